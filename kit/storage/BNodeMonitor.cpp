#include "kit/storage/BNodeMonitor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "kit/app/BLooper.h"
#include "kit/message/BMessage.h"
#include "kit/storage/MountList.h"
#include "kit/support/UniqueFd.h"

namespace {

constexpr uint32_t kWatched = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;

// Events are gathered this long before they are told, so that a file that is written under a
// passing name and renamed, or made and removed at once, costs a window one message or none.
constexpr int kGatherMs = 20;
// What a directory can hold in passing; beyond it looking again is cheaper than being told.
constexpr size_t kMostEvents = 4096;

struct Event {
    BNodeMonitor::Opcode opcode{};
    node_ref directory;  // created: in it; removed: from it; moved: to it
    std::string name;
    uint64_t node = 0;  // 0: not known
    node_ref from;      // moved only
    std::string fromName;
    uint32_t cookie = 0;         // a removal that may turn out to be half a move
    std::string path, fromPath;  // of the entry, by what the directory was last called
    bool dropped = false;
};

using MountKey = std::pair<std::string, uint64_t>;  // mount point, device

}  // namespace

class BNodeMonitor::Worker {
public:
    explicit Worker(BMessenger target)
        : fTarget(target),
          fInotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
          fWake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
          fThread([this] { Run(); }) {}

    ~Worker() {
        fEnd = true;
        WakeUp();
        fThread.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    kit::Status Watch(const std::string& path) {
        if (!fInotify.IsOpen() || !fWake.IsOpen()) {
            return kit::Error::Make(kit::ErrorKind::Unsupported, path, "no node monitor");
        }
        // By a descriptor, so that what is watched and what its numbers are taken from is one
        // thing.
        const kit::UniqueFd directory(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        struct stat status {};
        if (!directory.IsOpen() || ::fstat(directory.Get(), &status) != 0) {
            return kit::Error::FromErrno(errno, path, "watch");
        }
        const std::string self = "/proc/self/fd/" + std::to_string(directory.Get());
        const std::lock_guard lock(fMutex);
        const int watch = ::inotify_add_watch(fInotify.Get(), self.c_str(), kWatched);
        if (watch < 0 && errno == ENOSPC) {
            return kit::Error::Make(kit::ErrorKind::Unsupported, path,
                                    "no more watches (fs.inotify.max_user_watches)");
        }
        if (watch < 0) return kit::Error::FromErrno(errno, path, "watch");
        const node_ref node{status.st_dev, status.st_ino};
        Forget(watch);
        fWatches[watch] = {node, path};
        fByNode[{node.device, node.node}] = watch;
        fByPath[path] = watch;
        return {};
    }

    void Unwatch(node_ref node) {
        const std::lock_guard lock(fMutex);
        const auto found = fByNode.find({node.device, node.node});
        if (found == fByNode.end()) return;
        const int watch = found->second;
        Forget(watch);
        ::inotify_rm_watch(fInotify.Get(), watch);
    }

    kit::Status WatchMounts() {
        kit::UniqueFd list(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
        if (!list.IsOpen()) return kit::Error::FromErrno(errno, "/proc/self/mountinfo", "watch");
        {
            const std::lock_guard lock(fMutex);
            if (fMountList.IsOpen()) return {};
            fMounts = Mounts();
            fMountList = std::move(list);
        }
        WakeUp();
        return {};
    }

private:
    struct Watched {
        node_ref node;
        std::string path;
    };

    void WakeUp() {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(fWake.Get(), &one, sizeof(one));
    }

    void Run() {
        if (!fWake.IsOpen()) return;  // nothing could end it; Watch tells
        while (!fEnd) {
            std::array<pollfd, 3> fds{{{fWake.Get(), POLLIN, 0},
                                       {fInotify.Get(), POLLIN, 0},
                                       {MountListFd(), POLLPRI, 0}}};
            if (::poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) return;
            if (fds[0].revents) {
                uint64_t count = 0;
                [[maybe_unused]] const ssize_t got = ::read(fWake.Get(), &count, sizeof(count));
            }
            if (fds[1].revents & POLLIN) TellEvents();
            if (fds[2].revents & (POLLPRI | POLLERR)) TellMounts();
        }
    }

    int MountListFd() {
        const std::lock_guard lock(fMutex);
        return fMountList.Get();
    }

    // True when it is time to end.
    bool Pause() {
        pollfd wake{fWake.Get(), POLLIN, 0};
        ::poll(&wake, 1, kGatherMs);
        return fEnd;
    }

    void TellEvents() {
        std::vector<Event> events;
        bool lost = false;
        if (Pause()) return;
        Drain(&events, &lost);
        // The second half of a move may just be on its way.
        const bool half = std::any_of(events.begin(), events.end(), [](const Event& event) {
            return event.cookie != 0 && !event.dropped;
        });
        if (half) {
            if (Pause()) return;
            Drain(&events, &lost);
        }
        Coalesce(&events);
        if (lost) {
            Send(BMessage(B_NODE_MONITOR), kOverflow);
            return;
        }
        for (const Event& event : events) {
            if (!event.dropped) Tell(event);
        }
    }

    void Drain(std::vector<Event>* events, bool* lost) {
        alignas(inotify_event) std::array<char, size_t{64} * 1024> buffer;
        // A removed directory's own watch ends before its removal is told, which still asks for its
        // node.
        std::vector<int> ended;
        const std::lock_guard lock(fMutex);
        for (;;) {
            const ssize_t size = ::read(fInotify.Get(), buffer.data(), buffer.size());
            if (size <= 0) break;
            for (ssize_t at = 0; at < size;) {
                inotify_event head;
                std::memcpy(&head, buffer.data() + at, sizeof(head));
                const char* name = buffer.data() + at + sizeof(head);
                at += static_cast<ssize_t>(sizeof(head) + head.len);
                if (head.mask & IN_IGNORED) {
                    ended.push_back(head.wd);  // removed, unmounted, or no longer asked for
                } else if ((head.mask & IN_Q_OVERFLOW) || events->size() >= kMostEvents) {
                    *lost = true;
                } else {
                    Take(head, head.len > 0 ? std::string(name) : std::string(), events);
                }
            }
        }
        for (const int watch : ended)
            Forget(watch);
    }

    void Take(const inotify_event& head, std::string name, std::vector<Event>* events) {
        const auto watched = fWatches.find(head.wd);
        if (watched == fWatches.end() || name.empty()) return;
        Event event;
        event.directory = watched->second.node;
        event.path = watched->second.path + (watched->second.path == "/" ? "" : "/") + name;
        event.name = std::move(name);

        if (head.mask & (IN_DELETE | IN_MOVED_FROM)) {
            event.opcode = kEntryRemoved;
            const auto own = fByPath.find(event.path);
            if (own != fByPath.end()) event.node = fWatches.at(own->second).node.node;
            if (head.mask & IN_MOVED_FROM) event.cookie = head.cookie;
        } else if (head.mask & (IN_CREATE | IN_MOVED_TO)) {
            event.opcode = kEntryCreated;
            struct stat status {};
            if (::lstat(event.path.c_str(), &status) == 0) event.node = status.st_ino;
            if (head.mask & IN_MOVED_TO) {
                const auto from =
                    std::find_if(events->begin(), events->end(), [&head](const Event& other) {
                        return other.cookie == head.cookie && !other.dropped;
                    });
                if (from != events->end()) {
                    event.opcode = kEntryMoved;
                    event.from = from->directory;
                    event.fromName = from->name;
                    event.fromPath = from->path;
                    if (event.node == 0) event.node = from->node;
                    from->dropped = true;
                    Renamed(event.fromPath, event.path);
                }
            }
        } else {
            return;
        }
        events->push_back(std::move(event));
    }

    // What is made and removed again within one batch was never there.
    static void Coalesce(std::vector<Event>* events) {
        std::unordered_map<std::string, size_t> created;
        for (size_t i = 0; i < events->size(); ++i) {
            Event& event = (*events)[i];
            if (event.dropped) continue;
            if (event.opcode == kEntryCreated) {
                created[event.path] = i;
            } else if (event.opcode == kEntryRemoved) {
                const auto before = created.find(event.path);
                if (before == created.end()) continue;
                (*events)[before->second].dropped = event.dropped = true;
                created.erase(before);
            } else {
                // Made under a passing name and given its own: it was made under its own.
                const auto before = created.find(event.fromPath);
                if (before == created.end()) continue;
                (*events)[before->second].dropped = true;
                event.opcode = kEntryCreated;
                created.erase(before);
                created[event.path] = i;
            }
        }
        std::erase_if(*events, [](const Event& event) { return event.dropped; });
    }

    void Tell(const Event& event) {
        BMessage message(B_NODE_MONITOR);
        message.Add("device", static_cast<int64_t>(event.directory.device));
        if (event.opcode == kEntryMoved) {
            message.Add("from directory", static_cast<int64_t>(event.from.node));
            message.Add("to directory", static_cast<int64_t>(event.directory.node));
            message.Add("from name", event.fromName);
        } else {
            message.Add("directory", static_cast<int64_t>(event.directory.node));
        }
        if (event.node != 0) message.Add("node", static_cast<int64_t>(event.node));
        message.Add("name", event.name);
        Send(std::move(message), event.opcode);
    }

    static std::vector<MountKey> Mounts() {
        std::vector<MountKey> keys;
        for (const auto& mount : kit::ReadMounts()) {
            if (kit::KindOf(mount) == kit::MountKind::Pseudo) continue;
            keys.emplace_back(mount.mountPoint, mount.device);
        }
        std::sort(keys.begin(), keys.end());
        return keys;
    }

    void TellMounts() {
        const std::vector<MountKey> now = Mounts();
        std::vector<MountKey> gone;
        std::vector<MountKey> come;
        std::set_difference(fMounts.begin(), fMounts.end(), now.begin(), now.end(),
                            std::back_inserter(gone));
        std::set_difference(now.begin(), now.end(), fMounts.begin(), fMounts.end(),
                            std::back_inserter(come));
        fMounts = now;
        for (const auto& [point, device] : gone) {
            BMessage message(B_NODE_MONITOR);
            message.Add("device", static_cast<int64_t>(device));
            message.Add("path", point);
            Send(std::move(message), kDeviceUnmounted);
        }
        for (const auto& [point, device] : come) {
            BMessage message(B_NODE_MONITOR);
            message.Add("new device", static_cast<int64_t>(device));
            message.Add("path", point);
            Send(std::move(message), kDeviceMounted);
        }
    }

    void Send(BMessage message, Opcode opcode) {
        message.Add("opcode", static_cast<int32_t>(opcode));
        // A target that is gone just hears nothing more; its owner is about to delete the monitor.
        (void)fTarget.SendMessage(std::move(message));
    }

    // --- what is watched; all with the mutex held
    // -------------------------------------------------

    void Forget(int watch) {
        const auto found = fWatches.find(watch);
        if (found == fWatches.end()) return;
        const Watched& watched = found->second;
        const auto byNode = fByNode.find({watched.node.device, watched.node.node});
        if (byNode != fByNode.end() && byNode->second == watch) fByNode.erase(byNode);
        const auto byPath = fByPath.find(watched.path);
        if (byPath != fByPath.end() && byPath->second == watch) fByPath.erase(byPath);
        fWatches.erase(found);
    }

    // A watched directory, or one above it, has another name now.
    void Renamed(const std::string& from, const std::string& to) {
        std::vector<int> below;
        const auto take = [&below](auto entry) { below.push_back(entry->second); };
        if (const auto itself = fByPath.find(from); itself != fByPath.end()) take(itself);
        const std::string prefix = from + '/';
        for (auto entry = fByPath.lower_bound(prefix);
             entry != fByPath.end() && entry->first.starts_with(prefix); ++entry) {
            take(entry);
        }
        for (const int watch : below) {
            Watched& watched = fWatches.at(watch);
            const auto entry = fByPath.find(watched.path);
            if (entry != fByPath.end() && entry->second == watch) fByPath.erase(entry);
            watched.path = to + watched.path.substr(from.size());
            fByPath[watched.path] = watch;
        }
    }

    const BMessenger fTarget;
    const kit::UniqueFd fInotify, fWake;
    std::mutex fMutex;
    std::unordered_map<int, Watched> fWatches;
    std::map<std::pair<uint64_t, uint64_t>, int> fByNode;
    std::map<std::string, int> fByPath;
    kit::UniqueFd fMountList;
    std::vector<MountKey> fMounts;  // the worker's own once fMountList is open
    std::atomic<bool> fEnd = false;
    std::thread fThread;  // last: it uses all of the above
};

BNodeMonitor::BNodeMonitor(BMessenger target) : fWorker(std::make_unique<Worker>(target)) {}

BNodeMonitor::~BNodeMonitor() = default;

kit::Status BNodeMonitor::WatchDirectory(const std::string& path) {
    return fWorker->Watch(path);
}

void BNodeMonitor::StopWatching(node_ref directory) {
    fWorker->Unwatch(directory);
}

kit::Status BNodeMonitor::WatchMounts() {
    return fWorker->WatchMounts();
}
