// Volumes: the mounted file systems as the client shows them and the server saves them. Both name
// them through this class, so that a rule written by one is understood by the other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct BVolume {
    std::string name;        // label; else "System" for "/"; else the last part of the mount point;
                             // "/" becomes "_", " (2)" on a clash
    std::string mountPoint;  // absolute, bytes
    uint64_t device = 0;     // st_dev
    std::string fileSystem;  // "ext4"
    std::string source;      // "/dev/sda1"
    int64_t capacity = 0;    // bytes
    int64_t freeBytes = 0;   // available to the user
    bool persistent = false;  // a real file system; the root one always
    bool removable = false;
    bool readOnly = false;
    bool isBoot = false;  // mounted at "/"
};

namespace kit {

// What the roster asks the system for. A test hands in its own.
// `device` is the number in the mount list; `root` what of the file system is mounted there.
class MountSource {
public:
    struct Mount {
        std::string mountPoint, root, fileSystem, source;
        uint64_t device = 0;
        bool readOnly = false;
    };
    struct Space {
        int64_t capacity = 0, freeBytes = 0;  // bytes
        uint64_t device = 0;                  // st_dev of the mount point; 0: the mount's number
    };
    virtual ~MountSource() = default;
    virtual std::vector<Mount> Mounts() = 0;
    virtual std::string Label(const Mount& mount) = 0;  // "" when there is none
    virtual bool IsRemovable(const Mount& mount) = 0;
    // Nothing when the mount does not answer in 2 s. Called for several mounts at once.
    virtual std::optional<Space> SpaceOf(const Mount& mount) = 0;
    static std::shared_ptr<MountSource> System();  // mountinfo, blkid, statvfs
};

}  // namespace kit

class BVolumeRoster {
public:
    explicit BVolumeRoster(std::shared_ptr<kit::MountSource> source = kit::MountSource::System());

    // A fresh look: bind mounts once, mounts that do not answer left out, the root volume first,
    // the others by name. May take up to 2 s when a network mount hangs: not for a window's thread.
    std::vector<BVolume> Volumes() const;

    static const BVolume* ByName(const std::vector<BVolume>& volumes, std::string_view name);
    // The volume that holds `path` by the longest mount point; null when none does.
    static const BVolume* ByPath(const std::vector<BVolume>& volumes, std::string_view path);
    // "/Name/rest" of a rule to the path on disk, and back. Nothing when the volume is not there.
    static std::optional<std::string> ToDisk(const std::vector<BVolume>& volumes,
                                             std::string_view rulePath);
    static std::optional<std::string> FromDisk(const std::vector<BVolume>& volumes,
                                               std::string_view diskPath);

private:
    std::shared_ptr<kit::MountSource> fSource;
};
