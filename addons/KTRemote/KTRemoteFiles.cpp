// What KTRemote does on the remote.
//
// A backup under way is NAME.partial; Publish renames it, on the remote's own side. Deleting goes
// the other way: the folder gets the name of a partial one first. Where a remote cannot rename a
// folder in one step its files move one by one, the manifest last; so a folder without a manifest
// is no backup, whatever its name, and deleting begins with the manifest.
#include <algorithm>
#include <random>
#include <thread>

#include "addons/KTRemote/KTRemote.h"
#include "addons/KTRemote/RemoteWriter.h"
#include "addons/common/KTMediaSettings.h"

using kit::Error;
using kit::ErrorKind;
using kit::Status;

namespace {

constexpr char kPartial[] = ".partial";
constexpr char kManifest[] = "backup.json";
constexpr auto kNotice = std::chrono::milliseconds(100);

bool IsComponent(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           std::none_of(name.begin(), name.end(), [](char c) { return c >= 0 && c < ' '; });
}

Error BadName(const std::string& name) {
    return Error::Make(ErrorKind::Invalid, name, "not a name of one component");
}

std::string NameOfTrial() {
    std::random_device random;
    return ".velmora-" + std::to_string(random()) + ".trial";
}

}  // namespace

// --- calls that are tried again ----------------------------------------------------------------

std::string KTRemote::PathOf(const std::string& below) const {
    if (below.empty()) return fRemote;
    return fRemote.ends_with(':') || fRemote.ends_with('/') ? fRemote + below
                                                            : fRemote + "/" + below;
}

bool KTRemote::IsAborted() const {
    const KTVolumeHost* host = fHost;
    return host && host->IsAborted();
}

Rclone::Stop KTRemote::Stop() const {
    return [this] { return IsAborted(); };
}

bool KTRemote::TryAgain(const Error& error, size_t tries) const {
    if (tries >= fLimits.waits.size() || IsAborted()) return false;
    const auto wait = fLimits.waits[tries];
    if (KTVolumeHost* host = fHost) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait).count();
        host->Tell(error.Text() + ". Trying again in " + std::to_string(seconds) + " s (" +
                   std::to_string(tries + 1) + " of " + std::to_string(fLimits.waits.size()) + ")");
    }
    const auto until = Rclone::Clock::now() + wait;
    while (!IsAborted() && Rclone::Clock::now() < until)
        std::this_thread::sleep_for(std::min<RcloneLimits::Time>(kNotice, wait));
    return !IsAborted();
}

template <class Call>
auto KTRemote::Insist(const Call& call) const -> decltype(call()) {
    for (size_t tries = 0;; ++tries) {
        auto result = call();
        if (result || result.error().kind != ErrorKind::Io || !TryAgain(result.error(), tries))
            return result;
    }
}

Status KTRemote::Do(const std::vector<std::string>& command, const std::vector<std::string>& paths,
                    RcloneLimits::Time patience) const {
    const auto done = Rclone::Ask(fLimits, command, paths, patience, Stop());
    if (!done) return done.error();
    return {};
}

// --- the place ----------------------------------------------------------------------------------

Status KTRemote::CheckSettings() const {
    if (fRemote.empty()) return Error::Make(ErrorKind::Invalid, fRemote, "no remote is set");
    if (media_settings::ProblemWithSize(fMediaSize, false)) {
        return Error::Make(ErrorKind::Invalid, fRemote, "media below 16 MiB");
    }
    return {};
}

Status KTRemote::CheckAccess() {
    if (Status status = CheckSettings(); !status) return status;
    if (const auto folders = Folders(); !folders) return folders.error();
    // No remote tells what is allowed, and some take what they do not keep.
    const std::string trial = PathOf(NameOfTrial());
    constexpr uint8_t kContent[] = {'o', 'k', '\n'};
    if (Status status = PutFile(trial, kContent); !status) return status;
    return Insist([&] { return Do({"deletefile"}, {trial}, fLimits.call); });
}

kit::Result<KTVolumeSpace> KTRemote::Space() {
    if (Status status = CheckSettings(); !status) return status.error();
    return Insist([&] { return remote_files::Space(fLimits, fRemote, Stop()); });
}

kit::Result<std::set<std::string>> KTRemote::Folders() const {
    if (Status status = CheckSettings(); !status) return status.error();
    const auto entries = Insist([&] { return remote_files::List(fLimits, fRemote, Stop()); });
    if (!entries) return entries.error();
    std::set<std::string> folders;
    for (const remote_files::Entry& entry : *entries) {
        if (entry.isFolder && entry.name[0] != '.') folders.insert(entry.name);
    }
    return folders;
}

kit::Result<bool> KTRemote::CanMoveFolders() {
    if (fMovesFolders < 0) {
        const auto answer =
            Insist([&] { return remote_files::CanMoveFolders(fLimits, fRemote, Stop()); });
        if (!answer) return answer.error();
        fMovesFolders = *answer ? 1 : 0;
    }
    return fMovesFolders > 0;
}

// --- writing ------------------------------------------------------------------------------------

std::unique_ptr<KTVolumeWriter> KTRemote::NewWriter(const std::string& path) const {
    return std::make_unique<RemoteWriter>(
        fLimits, path, Stop(),
        [this](const Error& error, size_t tries) { return TryAgain(error, tries); });
}

Status KTRemote::PutFile(const std::string& path, std::span<const uint8_t> data) const {
    const auto writer = NewWriter(path);
    if (Status status = writer->Write(data); !status) return status;
    return writer->Finish();
}

Status KTRemote::WriteRootFile(const std::string& file, std::span<const uint8_t> data) {
    if (!IsComponent(file)) return BadName(file);
    if (Status status = CheckSettings(); !status) return status;
    return PutFile(PathOf(file), data);
}

Status KTRemote::BeginBackup(const std::string& name) {
    if (!IsComponent(name)) return BadName(name);
    const auto folders = Folders();
    if (!folders) return folders.error();
    if (fBegun == name || folders->contains(name) || folders->contains(name + kPartial)) {
        return Error::Make(ErrorKind::Exists, PathOf(name), "there is such a backup already");
    }
    const std::string path = PathOf(name + kPartial);
    if (Status status = Insist([&] { return Do({"mkdir"}, {path}, fLimits.call); }); !status)
        return status;
    fBegun = name;
    fFiles.clear();
    return {};
}

kit::Result<std::unique_ptr<KTVolumeWriter>> KTRemote::CreateFile(const std::string& name,
                                                                  const std::string& file) {
    if (!IsComponent(name) || !IsComponent(file)) return BadName(name + "/" + file);
    if (fBegun != name) {
        return Error::Make(ErrorKind::NotFound, PathOf(name), "no such backup was begun");
    }
    if (!fFiles.insert(file).second) {
        return Error::Make(ErrorKind::Exists, PathOf(name + "/" + file), "there already");
    }
    ForgetFiles();
    return NewWriter(PathOf(name + kPartial + "/" + file));
}

// --- the moment at which a backup exists, and the one at which it does not any more --------------

// What was done although the answer was lost is not a failure: where things lie decides.
Status KTRemote::MoveFolder(const std::string& from, const std::string& to) {
    return Insist([&]() -> Status {
        Status moved = Do({"moveto"}, {PathOf(from), PathOf(to)}, fLimits.stall);
        if (moved || moved.error().kind == ErrorKind::Aborted) return moved;
        const auto folders = remote_files::List(fLimits, fRemote, Stop());
        if (!folders) return moved;
        const auto has = [&](const std::string& name) {
            return std::any_of(folders->begin(), folders->end(),
                               [&](const auto& entry) { return entry.name == name; });
        };
        return has(to) && !has(from) ? Status() : moved;
    });
}

Status KTRemote::Publish(const std::string& name) {
    if (!IsComponent(name)) return BadName(name);
    const auto folders = Folders();
    if (!folders) return folders.error();
    if (folders->contains(name)) {
        return Error::Make(ErrorKind::Exists, PathOf(name), "there is such a backup already");
    }
    const std::string partial = name + kPartial;
    if (!folders->contains(partial)) {
        return Error::Make(ErrorKind::NotFound, PathOf(partial), "is not there");
    }
    const auto canMove = CanMoveFolders();
    if (!canMove) return canMove.error();
    Status status;
    if (*canMove) {
        status = MoveFolder(partial, name);
    } else {
        const std::string manifest = std::string("/") + kManifest;
        status = Insist([&] {
            return Do({"move", "--exclude=" + manifest}, {PathOf(partial), PathOf(name)},
                      fLimits.stall);
        });
        if (status) {
            status = Insist([&] {
                return Do({"moveto"}, {PathOf(partial + manifest), PathOf(name + manifest)},
                          fLimits.stall);
            });
        }
        // An empty folder, where the remote has such a thing; it harms nobody if it stays.
        if (status) (void)Do({"purge"}, {PathOf(partial)}, fLimits.call);
    }
    if (!status) return status;
    fBegun.clear();
    ForgetFiles();
    return {};
}

Status KTRemote::Purge(const std::string& folder) const {
    return Insist([&] { return Do({"purge"}, {PathOf(folder)}, fLimits.stall); });
}

Status KTRemote::RemoveBackup(const std::string& folder) {
    if (!IsComponent(folder)) return BadName(folder);
    ForgetFiles();
    if (!fBegun.empty() && folder == fBegun + kPartial) {
        fBegun.clear();
        // It is ours, so nothing has to be asked. An aborted job has little time left.
        if (!IsAborted()) return Purge(folder);
        const auto done = Rclone::Ask(fLimits, {"purge"}, {PathOf(folder)}, fLimits.lastRites, {});
        if (done) return {};
        if (KTVolumeHost* host = fHost) {
            host->Tell("What was already saved could not be deleted in time and stays as '" +
                       PathOf(folder) + "'");
        }
        return done.error();
    }
    const auto folders = Folders();
    if (!folders) return folders.error();
    if (!folders->contains(folder)) {
        return Error::Make(ErrorKind::NotFound, PathOf(folder), "is not there");
    }
    const auto entries =
        Insist([&] { return remote_files::List(fLimits, PathOf(folder), Stop()); });
    if (!entries) return entries.error();
    // A backup holds files only; anything else in the folder is somebody else's.
    if (std::any_of(entries->begin(), entries->end(), [](const auto& e) { return e.isFolder; })) {
        return Error::Make(ErrorKind::Invalid, PathOf(folder), "not a backup");
    }
    if (folder.ends_with(kPartial)) return Purge(folder);
    const auto canMove = CanMoveFolders();
    if (!canMove) return canMove.error();
    if (!*canMove) {
        const bool hasManifest = std::any_of(entries->begin(), entries->end(),
                                             [](const auto& e) { return e.name == kManifest; });
        if (hasManifest) {
            Status status = Insist([&] {
                return Do({"deletefile"}, {PathOf(folder + "/" + kManifest)}, fLimits.call);
            });
            if (!status) return status;
        }
        return Purge(folder);
    }
    const std::string partial = folder + kPartial;
    if (folders->contains(partial)) {
        if (Status status = Purge(partial); !status) return status;
    }
    if (Status status = MoveFolder(folder, partial); !status) return status;
    return Purge(partial);
}

// --- reading ------------------------------------------------------------------------------------

kit::Result<std::vector<std::string>> KTRemote::ListBackups() {
    const auto folders = Folders();
    if (!folders) return folders.error();
    return std::vector<std::string>(folders->begin(), folders->end());
}

kit::Result<std::vector<KTVolumeFile>> KTRemote::ListFiles(const std::string& folder) {
    if (!IsComponent(folder)) return BadName(folder);
    if (Status status = CheckSettings(); !status) return status.error();
    const auto entries =
        Insist([&] { return remote_files::List(fLimits, PathOf(folder), Stop()); });
    if (!entries) return entries.error();
    std::vector<KTVolumeFile> files;
    std::map<std::string, int64_t> sizes;
    for (const remote_files::Entry& entry : *entries) {
        if (entry.isFolder || entry.size < 0) continue;
        files.push_back({entry.name, entry.size});
        sizes[entry.name] = entry.size;
    }
    std::lock_guard lock(fMutex);
    fSizes[folder] = std::move(sizes);
    return files;
}

void KTRemote::ForgetFiles() {
    {
        std::lock_guard lock(fMutex);
        fSizes.clear();
    }
    fReader.Forget();
}

kit::Result<int64_t> KTRemote::SizeIn(const std::string& folder, const std::string& file) {
    for (bool isAsked : {false, true}) {
        if (isAsked) {
            if (const auto files = ListFiles(folder); !files) return files.error();
        }
        std::lock_guard lock(fMutex);
        const auto listed = fSizes.find(folder);
        if (listed == fSizes.end()) continue;
        const auto found = listed->second.find(file);
        if (found != listed->second.end()) return found->second;
    }
    return Error::Make(ErrorKind::NotFound, PathOf(folder + "/" + file), "is not there");
}

kit::Result<size_t> KTRemote::ReadAt(const std::string& folder, const std::string& file,
                                     int64_t offset, std::span<uint8_t> into) {
    if (!IsComponent(folder) || !IsComponent(file)) return BadName(folder + "/" + file);
    if (offset < 0) return Error::Make(ErrorKind::Invalid, file, "offset below 0");
    const auto size = SizeIn(folder, file);
    if (!size) return size.error();
    const auto there = static_cast<size_t>(std::max<int64_t>(*size - offset, 0));
    const auto part = into.first(std::min(into.size(), there));
    if (part.empty()) return size_t{0};
    const std::string path = PathOf(folder + "/" + file);
    Status status = Insist([&] { return fReader.Read(path, offset, part); });
    if (!status) return status.error();
    return part.size();
}
