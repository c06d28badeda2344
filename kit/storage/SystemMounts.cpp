// MountSource as the system answers it: mountinfo, udev and blkid, sysfs, statvfs.
#include <blkid/blkid.h>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "kit/storage/MountList.h"

namespace kit {

namespace {

constexpr auto kPatience = std::chrono::seconds(2);
constexpr char kByLabel[] = "/dev/disk/by-label";

std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), ::free);
    return real ? std::string(real.get()) : std::string();
}

// "My\x20Disk": how udev writes what a file name should not hold.
std::string Decoded(std::string_view name) {
    std::string text;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x') {
            const std::string digits(name.substr(i + 2, 2));
            text += static_cast<char>(std::strtol(digits.c_str(), nullptr, 16));
            i += 3;
        } else {
            text += name[i];
        }
    }
    return text;
}

struct CloseFolder {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

std::string LabelByUdev(const std::string& device) {
    const std::unique_ptr<DIR, CloseFolder> directory(::opendir(kByLabel));
    while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] == '.') continue;
        if (RealPath(std::string(kByLabel) + '/' + entry->d_name) == device) {
            return Decoded(entry->d_name);
        }
    }
    return {};
}

std::string LabelByBlkid(const std::string& device) {
    blkid_cache cache = nullptr;
    if (::blkid_get_cache(&cache, nullptr) != 0) return {};
    const std::unique_ptr<char, decltype(&::free)> label(
        ::blkid_get_tag_value(cache, "LABEL", device.c_str()), ::free);
    std::string text = label ? label.get() : "";
    ::blkid_put_cache(cache);
    return text;
}

// Questions to mounts that may never answer. Each has a thread of its own, which is left behind
// when it hangs; a mount that still owes an answer is not asked again, so hung threads do not pile
// up.
class PatientQuestions {
public:
    template <class Answer>
    std::optional<Answer> Ask(const std::string& mountPoint,
                              std::optional<Answer> (*question)(const std::string& mountPoint)) {
        struct State {
            bool done = false;
            std::optional<Answer> answer;
        };
        {
            const std::lock_guard lock(fShared->mutex);
            if (!fShared->open.insert(mountPoint).second) return std::nullopt;
        }
        const auto state = std::make_shared<State>();
        std::thread([shared = fShared, state, mountPoint, question] {
            auto answer = question(mountPoint);
            const std::lock_guard lock(shared->mutex);
            state->answer = std::move(answer);
            state->done = true;
            shared->open.erase(mountPoint);
            shared->answered.notify_all();
        }).detach();
        std::unique_lock lock(fShared->mutex);
        fShared->answered.wait_for(lock, kPatience, [&state] { return state->done; });
        return state->answer;
    }

private:
    struct Shared {  // outlives this object for the threads left behind
        std::mutex mutex;
        std::condition_variable answered;
        std::set<std::string> open;
    };
    std::shared_ptr<Shared> fShared = std::make_shared<Shared>();
};

class SystemMounts : public MountSource {
public:
    std::vector<Mount> Mounts() override { return ReadMounts(); }

    std::string Label(const Mount& mount) override {
        if (!mount.source.starts_with("/dev/")) return {};
        const std::string device = RealPath(mount.source);
        if (device.empty()) return {};
        std::string label = LabelByBlkid(device);
        return label.empty() ? LabelByUdev(device) : label;
    }

    bool IsRemovable(const Mount& mount) override {
        struct stat status {};
        dev_t number = static_cast<dev_t>(mount.device);
        // btrfs and others show a number of their own in the list; the device file has the true
        // one.
        if (::stat(mount.source.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
            number = status.st_rdev;
        }
        const std::string node = RealPath("/sys/dev/block/" + std::to_string(::major(number)) +
                                          ':' + std::to_string(::minor(number)));
        if (node.empty()) return false;
        // Disks in USB cases call themselves fixed, and are pulled all the same.
        if (node.find("/usb") != std::string::npos) return true;
        for (const char* file :
             {"/removable", "/../removable"}) {  // a partition's disk is above it
            if (FILE* in = std::fopen((node + file).c_str(), "re")) {
                const int flag = std::fgetc(in);
                std::fclose(in);
                return flag == '1';
            }
        }
        return false;
    }

    std::optional<Space> SpaceOf(const Mount& mount) override {
        return fQuestions.Ask<Space>(mount.mountPoint, [](const std::string& point) {
            struct statvfs info {};
            struct stat status {};
            std::optional<Space> space;
            if (::statvfs(point.c_str(), &info) == 0 && ::stat(point.c_str(), &status) == 0 &&
                S_ISDIR(status.st_mode)) {
                space = Space{static_cast<int64_t>(info.f_blocks * info.f_frsize),
                              static_cast<int64_t>(info.f_bavail * info.f_frsize), status.st_dev};
            }
            return space;
        });
    }

private:
    PatientQuestions fQuestions;
};

}  // namespace

std::shared_ptr<MountSource> MountSource::System() {
    // One for all: what it knows of hung mounts is worth keeping.
    static const auto system = std::make_shared<SystemMounts>();
    return system;
}

}  // namespace kit
