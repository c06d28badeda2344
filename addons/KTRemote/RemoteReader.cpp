#include "addons/KTRemote/RemoteReader.h"

#include <algorithm>

using kit::Error;
using kit::ErrorKind;
using kit::Status;

namespace {

constexpr size_t kMostRuns = 6;
// What is not wanted is read and thrown away up to this many bytes, which is sooner done than a new
// run.
constexpr int64_t kSkip = int64_t{8} << 20;
constexpr int64_t kSkipAtOnce = int64_t{256} << 10;

}  // namespace

// A run that stands at the place or a little before it, as soon as it is free; else a new one.
RemoteReader::Taken RemoteReader::Take(const std::string& path, int64_t offset, int64_t size,
                                       bool mayGoOn) {
    std::unique_lock lock(fMutex);
    bool follows = false;
    while (mayGoOn) {
        auto best = fRuns.end();
        for (auto run = fRuns.begin(); run != fRuns.end(); ++run) {
            if (run->path != path || run->at > offset || offset - run->at > kSkip) continue;
            if (!run->goesOn) {
                follows = follows || run->at == offset;
            } else if (best == fRuns.end() || run->at > best->at) {
                best = run;
            }
        }
        if (best == fRuns.end()) break;
        if (best->isBusy) {
            fFreed.wait(lock);
            continue;
        }
        const int64_t skip = offset - best->at;
        best->isBusy = true;
        best->at = offset + size;
        fRuns.splice(fRuns.end(), fRuns, best);
        return {best, skip};
    }
    for (auto run = fRuns.begin(); fRuns.size() >= kMostRuns && run != fRuns.end();)
        run = run->isBusy ? std::next(run) : fRuns.erase(run);
    return {fRuns.insert(fRuns.end(), Run{path, offset + size, follows, true, nullptr})};
}

Status RemoteReader::Start(Run& run, int64_t offset, int64_t size) const {
    std::vector<std::string> command{"cat", "--offset=" + std::to_string(offset)};
    if (!run.goesOn) command.push_back("--count=" + std::to_string(size));
    auto started = Rclone::Start(fLimits, command, {run.path}, Rclone::Input::None, fStop);
    if (!started) return started.error();
    run.rclone = std::move(*started);
    return {};
}

Status RemoteReader::ReadAll(Run& run, std::span<uint8_t> into) const {
    const auto got = run.rclone->Read(into);
    if (!got) return got.error();
    if (*got == into.size()) return {};
    if (Status ended = run.rclone->Wait(Rclone::Clock::now() + fLimits.call); !ended) return ended;
    return Error::Make(ErrorKind::Io, run.path, "the connection to the remote was lost");
}

void RemoteReader::Free(Runs::iterator run, bool isGood) {
    std::lock_guard lock(fMutex);
    if (!isGood) {
        fRuns.erase(run);
    } else {
        run->isBusy = false;
        if (!run->goesOn) run->rclone.reset();
    }
    fFreed.notify_all();
}

Status RemoteReader::Read(const std::string& path, int64_t offset, std::span<uint8_t> into) {
    const auto size = static_cast<int64_t>(into.size());
    for (bool mayGoOn = true;; mayGoOn = false) {
        const auto [run, skip] = Take(path, offset, size, mayGoOn);
        const bool isOld = run->rclone != nullptr;
        Status status = isOld ? Status() : Start(*run, offset, size);
        for (int64_t left = skip; status && left > 0;) {
            Bytes unwanted(static_cast<size_t>(std::min(left, kSkipAtOnce)));
            status = ReadAll(*run, unwanted);
            left -= static_cast<int64_t>(unwanted.size());
        }
        if (status) status = ReadAll(*run, into);
        Free(run, status.ok());
        // One that was not used for a while may have lost its connection: that is no failure yet.
        if (status || !isOld || status.error().kind != ErrorKind::Io) return status;
    }
}

void RemoteReader::Forget() {
    std::lock_guard lock(fMutex);
    std::erase_if(fRuns, [](const Run& run) { return !run.isBusy; });
}
