#include "server/engine/FrameStream.h"

#include <xxhash.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>

#include "server/archive/Format.h"
#include "server/engine/JobEnvironment.h"

namespace server {

using archive::kFrameSize;

namespace {
// Nothing thrown may leave a thread.
template <class Call>
kit::Status Guarded(const Call& call) {
    try {
        return call();
    } catch (const std::exception& problem) {
        return kit::Error::Make(kit::ErrorKind::Io, "", problem.what());
    }
}

// How long the filler waits before it asks again whether the job is to end.
constexpr auto kAskAgain = std::chrono::milliseconds(100);
}  // namespace

FrameStream::FrameStream(const Contexts& contexts, Sink sink, JobControl& control, int workers,
                         int64_t first)
    : fSink(std::move(sink)), fControl(control), fNextNumber(first), fWanted(first) {
    // One frame for each compressing thread, one being filled, one ready to be taken; the same for
    // the results, so that a frame that takes long does not stop the others.
    for (int i = 0; i < workers + 2; ++i) {
        auto frame = std::make_unique<Frame>();
        frame->content = std::make_unique_for_overwrite<uint8_t[]>(kFrameSize);
        fEmpty.push_back(std::move(frame));
        fSpare.push_back(std::make_unique<Packed>());
    }
    fFilling = std::move(fEmpty.back());
    fEmpty.pop_back();
    for (int i = 0; i < workers; ++i) {
        fContexts.push_back(contexts());
        if (!fContexts.back()) {
            Fail(kit::Error::Make(kit::ErrorKind::Io, "", "no memory to compress"));
        }
    }
    for (const auto& context : fContexts) {
        fThreads.emplace_back([this, &context] { Compress(context.get()); });
    }
    fThreads.emplace_back([this] { WriteInOrder(); });
}

FrameStream::~FrameStream() {
    {
        std::lock_guard lock(fMutex);
        fEnd = true;
    }
    fToCompress.notify_all();
    fToWrite.notify_all();
    fPackedSpare.notify_all();
    for (std::thread& thread : fThreads) {
        if (thread.joinable()) thread.join();
    }
}

FrameStream::Place FrameStream::Begin(uint64_t size) {
    if (fFilling && (fFilling->used == kFrameSize || (fFilling->used >= archive::kFrameCutFrom &&
                                                      size > kFrameSize - fFilling->used))) {
        HandOver();
    }
    return {fNextNumber, fFilling ? static_cast<int64_t>(fFilling->used) : 0};
}

std::span<uint8_t> FrameStream::Room() {
    if (fFailed) return {};
    if (fFilling->used == kFrameSize && !HandOver()) return {};
    return {fFilling->content.get() + fFilling->used, kFrameSize - fFilling->used};
}

void FrameStream::Filled(size_t size) {
    fFilling->used += size;
    fWritten += static_cast<int64_t>(size);
}

bool FrameStream::Write(std::span<const uint8_t> data) {
    while (!data.empty()) {
        const std::span<uint8_t> room = Room();
        if (room.empty()) return false;
        const size_t size = std::min(room.size(), data.size());
        std::memcpy(room.data(), data.data(), size);
        Filled(size);
        data = data.subspan(size);
    }
    return true;
}

bool FrameStream::WriteZeros(int64_t size) {
    while (size > 0) {
        const std::span<uint8_t> room = Room();
        if (room.empty() || fControl.IsAborted()) return false;
        const auto now =
            static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(room.size()), size));
        std::memset(room.data(), 0, now);
        Filled(now);
        size -= static_cast<int64_t>(now);
    }
    return true;
}

bool FrameStream::TakeBack(const Place& place) {
    if (!fFilling || place.frame != fNextNumber) return false;
    fWritten -= static_cast<int64_t>(fFilling->used) - place.offset;
    fFilling->used = static_cast<size_t>(place.offset);
    return true;
}

bool FrameStream::HandOver() {
    std::unique_lock lock(fMutex);
    fFilling->number = fNextNumber++;
    fFull.push_back(std::move(fFilling));
    fToCompress.notify_one();
    while (fEmpty.empty() && !fFailed && !fControl.IsAborted()) {
        fEmptied.wait_for(lock, kAskAgain);
    }
    if (fEmpty.empty()) {
        if (fStatus.ok()) fStatus = kit::Error::Make(kit::ErrorKind::Aborted, "");
        fFailed = true;
        return false;
    }
    fFilling = std::move(fEmpty.back());
    fEmpty.pop_back();
    fFilling->used = 0;
    return true;
}

void FrameStream::Compress(KTCruncherContext* context) {
    std::unique_lock lock(fMutex);
    for (;;) {
        // A result's place is taken before a frame is, in their order: so the frame that is wanted
        // next always has one, and the threads cannot fill all places with frames behind it.
        fToCompress.wait(lock, [this] { return fEnd || (!fFull.empty() && !fSpare.empty()); });
        if (fEnd) return;
        std::unique_ptr<Frame> frame = std::move(fFull.front());
        fFull.pop_front();
        std::unique_ptr<Packed> packed = std::move(fSpare.back());
        fSpare.pop_back();
        lock.unlock();
        const std::span<const uint8_t> content(frame->content.get(), frame->used);
        packed->content = content.size();
        packed->hash = XXH3_64bits(content.data(), content.size());
        if (!fFailed) {
            kit::Status status =
                Guarded([&] { return context->Compress(content, &packed->bytes); });
            if (!status) Fail(std::move(status));
        }
        lock.lock();
        fPacked[frame->number] = std::move(packed);
        fEmpty.push_back(std::move(frame));
        fEmptied.notify_one();
        fToWrite.notify_one();
    }
}

void FrameStream::WriteInOrder() {
    std::unique_lock lock(fMutex);
    for (;;) {
        fToWrite.wait(lock, [this] {
            return fEnd || fPacked.contains(fWanted) || (fNoMore && fWanted == fNextNumber);
        });
        if (fEnd || !fPacked.contains(fWanted)) return;
        auto node = fPacked.extract(fWanted);
        std::unique_ptr<Packed> packed = std::move(node.mapped());
        lock.unlock();
        if (!fFailed) {
            kit::Status status = Guarded([&] {
                return fSink({node.key(), packed->bytes, packed->content, packed->hash});
            });
            if (!status) Fail(std::move(status));
        }
        lock.lock();
        ++fWanted;
        fSpare.push_back(std::move(packed));
        fToCompress.notify_one();
    }
}

void FrameStream::Fail(kit::Status status) {
    std::lock_guard lock(fMutex);
    if (fStatus.ok()) fStatus = std::move(status);
    fFailed = true;
    fEmptied.notify_all();
}

kit::Status FrameStream::Failure() const {
    std::lock_guard lock(fMutex);
    return fStatus;
}

kit::Status FrameStream::Finish() {
    {
        std::unique_lock lock(fMutex);
        if (fFilling && fFilling->used > 0 && !fFailed) {
            fFilling->number = fNextNumber++;
            fFull.push_back(std::move(fFilling));
            fToCompress.notify_one();
        }
        fNoMore = true;
        fToWrite.notify_all();
    }
    fThreads.back().join();
    fThreads.pop_back();
    return Failure();
}

}  // namespace server
