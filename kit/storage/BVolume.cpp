#include "kit/storage/BVolume.h"

#include <algorithm>
#include <future>
#include <set>

#include "kit/storage/MountList.h"

using kit::MountKind;
using kit::MountSource;

namespace {

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder == "/") return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// The same files seen at a second place: the whole file system, or a folder of it, mounted again.
// Subvolumes of btrfs share a number but not their files.
bool ShowsTheSame(const MountSource::Mount& mount, const MountSource::Mount& other) {
    if (mount.device != other.device || mount.fileSystem != other.fileSystem) return false;
    if (mount.root == other.root) return true;
    return mount.fileSystem != "btrfs" && IsAtOrBelow(mount.root, other.root);
}

// The root volume, then the mounts that show most of a file system, then the shortest way to it.
bool ComesBefore(const MountSource::Mount& a, const MountSource::Mount& b) {
    const auto key = [](const MountSource::Mount& mount) {
        return std::tuple(mount.mountPoint != "/", mount.root.size(), mount.mountPoint.size(),
                          std::string_view(mount.mountPoint));
    };
    return key(a) < key(b);
}

std::vector<MountSource::Mount> WithoutRepeats(std::vector<MountSource::Mount> mounts) {
    std::sort(mounts.begin(), mounts.end(), ComesBefore);
    std::vector<MountSource::Mount> once;
    for (auto& mount : mounts) {
        const bool repeated = std::any_of(once.begin(), once.end(), [&mount](const auto& other) {
            return ShowsTheSame(mount, other);
        });
        if (!repeated) once.push_back(std::move(mount));
    }
    return once;
}

std::string NameOf(const MountSource::Mount& mount, const std::string& label) {
    std::string name = label;
    if (name.empty() && mount.mountPoint == "/") name = "System";
    if (name.empty()) name = mount.mountPoint.substr(mount.mountPoint.rfind('/') + 1);
    std::replace(name.begin(), name.end(), '/', '_');
    // As components of a path these would mean something else.
    if (name == "." || name == "..") name.insert(0, 1, '_');
    return name;
}

}  // namespace

BVolumeRoster::BVolumeRoster(std::shared_ptr<MountSource> source) : fSource(std::move(source)) {}

std::vector<BVolume> BVolumeRoster::Volumes() const {
    std::vector<MountSource::Mount> mounts = fSource->Mounts();
    std::erase_if(mounts, [](const auto& mount) { return KindOf(mount) == MountKind::Pseudo; });

    // Asked all at once: one that hangs must not cost its two seconds more than once.
    std::vector<std::future<std::optional<MountSource::Space>>> answers;
    answers.reserve(mounts.size());
    for (const auto& mount : mounts) {
        answers.push_back(
            std::async(std::launch::async, [this, &mount] { return fSource->SpaceOf(mount); }));
    }
    std::vector<MountSource::Mount> there;
    std::vector<std::pair<std::string, MountSource::Space>> spaces;
    for (size_t i = 0; i < mounts.size(); ++i) {
        const auto space = answers[i].get();
        if (!space && mounts[i].mountPoint != "/") continue;
        spaces.emplace_back(mounts[i].mountPoint, space.value_or(MountSource::Space{}));
        there.push_back(mounts[i]);
    }

    // By mount point, so that who gets the plain name and who " (2)" does not change from day to
    // day.
    there = WithoutRepeats(std::move(there));
    std::sort(there.begin(), there.end(),
              [](const auto& a, const auto& b) { return a.mountPoint < b.mountPoint; });
    std::vector<BVolume> volumes;
    std::set<std::string> names;
    for (const auto& mount : there) {
        const std::string plain = NameOf(mount, fSource->Label(mount));
        std::string name = plain;
        for (int count = 2; !names.insert(name).second; ++count) {
            name = plain + " (" + std::to_string(count) + ')';
        }
        const auto space = std::find_if(spaces.begin(), spaces.end(), [&mount](const auto& entry) {
            return entry.first == mount.mountPoint;
        });
        BVolume& volume = volumes.emplace_back();
        volume.name = std::move(name);
        volume.mountPoint = mount.mountPoint;
        volume.device = space->second.device != 0 ? space->second.device : mount.device;
        volume.fileSystem = mount.fileSystem;
        volume.source = mount.source;
        volume.capacity = space->second.capacity;
        volume.freeBytes = space->second.freeBytes;
        volume.persistent = KindOf(mount) == MountKind::Real;
        volume.removable = fSource->IsRemovable(mount);
        volume.readOnly = mount.readOnly;
        volume.isBoot = mount.mountPoint == "/";
    }
    std::stable_sort(volumes.begin(), volumes.end(), [](const BVolume& a, const BVolume& b) {
        return std::tuple(!a.isBoot, std::string_view(a.name)) <
               std::tuple(!b.isBoot, std::string_view(b.name));
    });
    return volumes;
}

const BVolume* BVolumeRoster::ByName(const std::vector<BVolume>& volumes, std::string_view name) {
    for (const BVolume& volume : volumes) {
        if (volume.name == name) return &volume;
    }
    return nullptr;
}

const BVolume* BVolumeRoster::ByPath(const std::vector<BVolume>& volumes, std::string_view path) {
    const BVolume* best = nullptr;
    for (const BVolume& volume : volumes) {
        if (!IsAtOrBelow(path, volume.mountPoint)) continue;
        if (!best || volume.mountPoint.size() > best->mountPoint.size()) best = &volume;
    }
    return best;
}

std::optional<std::string> BVolumeRoster::ToDisk(const std::vector<BVolume>& volumes,
                                                 std::string_view rulePath) {
    if (!rulePath.starts_with('/')) return std::nullopt;
    rulePath.remove_prefix(1);
    const size_t end = std::min(rulePath.find('/'), rulePath.size());
    const BVolume* volume = ByName(volumes, rulePath.substr(0, end));
    if (!volume) return std::nullopt;
    const std::string_view rest = rulePath.substr(end);  // "" or "/…"
    if (rest.empty() || rest == "/") return volume->mountPoint;
    return volume->mountPoint == "/" ? std::string(rest) : volume->mountPoint + std::string(rest);
}

std::optional<std::string> BVolumeRoster::FromDisk(const std::vector<BVolume>& volumes,
                                                   std::string_view diskPath) {
    const BVolume* volume = ByPath(volumes, diskPath);
    if (!volume) return std::nullopt;
    std::string_view rest = diskPath;
    if (volume->mountPoint != "/") rest.remove_prefix(volume->mountPoint.size());
    std::string path = '/' + volume->name;
    if (rest != "/") path += rest;
    return path;
}
