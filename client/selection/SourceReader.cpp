#include "client/selection/SourceReader.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QCollator>
#include <QLocale>
#include <QMimeDatabase>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "kit/message/BMessage.h"
#include "kit/storage/BNodeMonitor.h"
#include "kit/storage/NodeAttributes.h"
#include "kit/support/UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr size_t kMostThreads = 4;  // one dead mount must not stop the others
constexpr int kMostUnderWay = 3;    // batches that nobody has taken yet
constexpr size_t kWorthSorting = 20000;
constexpr size_t kFirstBatch = 256, kLaterBatch = 4096;
constexpr auto kFirstWait = 20ms, kLaterWait = 80ms;
constexpr auto kLastWait = 300ms;

struct Name {
    std::string bytes;
    bool directory = false;
};

void Sort(std::vector<Name>& names) {
    // Numbers within names are only counted by a language that has words for it.
    const QLocale locale;
    QCollator collator(locale.language() == QLocale::C ? QLocale(QLocale::English) : locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    struct Keyed {
        QCollatorSortKey key;
        size_t index;
    };
    std::vector<Keyed> order;
    order.reserve(names.size());
    for (size_t i = 0; i < names.size(); ++i)
        order.push_back({collator.sortKey(QString::fromUtf8(names[i].bytes)), i});
    std::sort(order.begin(), order.end(), [&names](const Keyed& a, const Keyed& b) {
        const Name& left = names[a.index];
        const Name& right = names[b.index];
        if (left.directory != right.directory) return left.directory;
        const int compared = a.key.compare(b.key);
        return compared != 0 ? compared < 0 : left.bytes < right.bytes;
    });
    std::vector<Name> sorted;
    sorted.reserve(names.size());
    for (const Keyed& keyed : order)
        sorted.push_back(std::move(names[keyed.index]));
    names = std::move(sorted);
}

}  // namespace

struct SourceReader::Job {
    int64_t read = 0;
    bool volumes = false;
    Order order;
    std::atomic<bool> cancelled = false;
    int underWay = 0;  // guarded by Shared::mutex
};

// What the threads use; it outlives the reader when one of them hangs.
struct SourceReader::Shared {
    BMessenger target;
    std::shared_ptr<BNodeMonitor> monitor;
    std::shared_ptr<kit::MountSource> mounts;
    std::string variableData;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::shared_ptr<Job>> waiting;  // the last is next
    std::map<int64_t, std::shared_ptr<Job>> jobs;
    size_t threads = 0, idle = 0;
    bool end = false;

    // Waits for its turn; false when the order was cancelled meanwhile.
    bool Send(Job& job, BMessage message) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return job.cancelled || job.underWay < kMostUnderWay; });
            if (job.cancelled) return false;
            ++job.underWay;
        }
        message.Add("read", job.read);
        return target.SendMessage(std::move(message)) == BSendResult::Ok;
    }
};

// --- one directory ------------------------------------------------------------------------------

class SourceReader::Directory {
public:
    Directory(Shared& shared, Job& job) : fShared(shared), fJob(job) {}

    void Run() {
        const int error = Tell();
        BMessage end(kEnd);
        end.Add("error", int32_t{error});
        end.Add("whole", fJob.order.names.empty() && error == 0);
        fShared.Send(fJob, std::move(end));
    }

private:
    int Tell() {
        const Order& order = fJob.order;
        const int follow = order.volumeRoot ? 0 : O_NOFOLLOW;
        fFd =
            kit::UniqueFd(::open(order.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow));
        if (!fFd.IsOpen()) return errno;
        struct statx self {};
        if (::statx(fFd.Get(), "", AT_EMPTY_PATH, STATX_INO, &self) != 0) return errno;
        // What is mounted here is a volume of its own, or none at all: a backup does not go there.
        if (!order.volumeRoot && (self.stx_attributes & STATX_ATTR_MOUNT_ROOT)) return 0;

        fStarted = Clock::now();
        if (!order.names.empty()) {
            for (const std::string& name : order.names)
                if (!Look(name)) return ECANCELED;
            return Flush() ? 0 : ECANCELED;
        }
        // A directory that cannot be watched is only not kept up to date.
        if (fShared.monitor) (void)fShared.monitor->WatchDirectory(order.path);
        BMessage opened(kOpened);
        opened.Add("device", static_cast<int64_t>(makedev(self.stx_dev_major, self.stx_dev_minor)));
        opened.Add("node", static_cast<int64_t>(self.stx_ino));
        if (!fShared.Send(fJob, std::move(opened))) return ECANCELED;
        return TellAll();
    }

    int TellAll() {
        const std::unique_ptr<DIR, int (*)(DIR*)> open(::fdopendir(::dup(fFd.Get())), ::closedir);
        if (!open) return errno;
        std::vector<Name> names;
        auto tell = [&] {
            for (const Name& name : names)
                if (!Look(name.bytes)) return false;
            names.clear();
            return true;
        };
        for (bool sortable = true;;) {
            errno = 0;
            const dirent* entry = ::readdir(open.get());
            if (!entry && errno != 0) return errno;
            if (!entry) {
                if (sortable) Sort(names);
                return tell() && Flush() ? 0 : ECANCELED;
            }
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            names.push_back({std::string(name), entry->d_type == DT_DIR});
            if (sortable && names.size() < kWorthSorting) continue;
            sortable = false;
            if (names.size() >= kFirstBatch && !tell()) return ECANCELED;
        }
    }

    // Adds the entry to the batch if it is one that is shown. False: cancelled.
    bool Look(const std::string& name) {
        if (fJob.cancelled) return false;
        struct statx entry {};
        constexpr unsigned kWanted = STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_INO;
        if (::statx(fFd.Get(), name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kWanted,
                    &entry) != 0)
            return true;
        auto kind = SourceKind::File;
        int64_t size = 0;
        if (S_ISDIR(entry.stx_mode)) {
            kind = SourceKind::Directory;
            size = -1;
            if (name == "var" && IsVariableData(entry)) return true;
        } else if (S_ISLNK(entry.stx_mode)) {
            struct stat target {};
            const bool leads = ::fstatat(fFd.Get(), name.c_str(), &target, 0) == 0;
            kind =
                leads && S_ISDIR(target.st_mode) ? SourceKind::DirectoryLink : SourceKind::FileLink;
        } else if (S_ISREG(entry.stx_mode)) {
            size = static_cast<int64_t>(entry.stx_size);
        } else {
            return true;
        }
        const std::string path = fJob.order.path + (fJob.order.path == "/" ? "" : "/") + name;
        fBatch.Add("name", name);
        fKinds.push_back(static_cast<int8_t>(kind));
        fSizes.push_back(size);
        fAttributes.push_back(kit::AttributesSize(path, true));
        fModified.push_back(entry.stx_mtime.tv_sec);
        fNodes.push_back(static_cast<int64_t>(entry.stx_ino));

        const auto now = Clock::now();
        if (fKinds.size() < (fFirst ? kFirstBatch : kLaterBatch) &&
            now - fStarted < (fFirst ? kFirstWait : kLaterWait))
            return true;
        return Flush();
    }

    bool IsVariableData(const struct statx& entry) const {
        struct stat data {};
        return ::lstat(fShared.variableData.c_str(), &data) == 0 && data.st_ino == entry.stx_ino &&
               data.st_dev == makedev(entry.stx_dev_major, entry.stx_dev_minor);
    }

    bool Flush() {
        if (fKinds.empty()) return true;
        fBatch.AddArray<int8_t>("kind", fKinds);
        fBatch.AddArray<int64_t>("size", fSizes);
        fBatch.AddArray<int64_t>("attributes", fAttributes);
        fBatch.AddArray<int64_t>("modified", fModified);
        fBatch.AddArray<int64_t>("node", fNodes);
        fKinds.clear();
        for (auto* values : {&fSizes, &fAttributes, &fModified, &fNodes})
            values->clear();
        fFirst = false;
        const bool sent = fShared.Send(fJob, std::exchange(fBatch, BMessage(kBatch)));
        fStarted = Clock::now();
        return sent;
    }

    Shared& fShared;
    Job& fJob;
    kit::UniqueFd fFd;
    BMessage fBatch{kBatch};
    std::vector<int8_t> fKinds;
    std::vector<int64_t> fSizes, fAttributes, fModified, fNodes;
    Clock::time_point fStarted;
    bool fFirst = true;
};

namespace {

BMessage VolumesMessage(const std::shared_ptr<kit::MountSource>& mounts) {
    // Qt reads its tables of file types on first use; the window shall not wait for that.
    (void)QMimeDatabase().mimeTypeForName("text/plain");
    BMessage message(SourceReader::kVolumes);
    for (const BVolume& volume : BVolumeRoster(mounts).Volumes()) {
        message.Add("name", volume.name);
        message.Add("path", volume.mountPoint);
        message.Add("device", static_cast<int64_t>(volume.device));
        message.Add("persistent", volume.persistent);
        message.Add("capacity", volume.capacity);
        message.Add("free", volume.freeBytes);
        struct stat root {};
        (void)::stat(volume.mountPoint.c_str(), &root);  // it answered the roster; else all is 0
        message.Add("node", static_cast<int64_t>(root.st_ino));
        message.Add("modified", static_cast<int64_t>(root.st_mtime));
        message.Add("attributes", kit::AttributesSize(volume.mountPoint, true));
    }
    return message;
}

}  // namespace

// --- threads ------------------------------------------------------------------------------------

SourceReader::SourceReader(BMessenger target, std::shared_ptr<BNodeMonitor> monitor,
                           std::shared_ptr<kit::MountSource> mounts, std::string variableData)
    : fShared(std::make_shared<Shared>()) {
    fShared->target = target;
    fShared->monitor = std::move(monitor);
    fShared->mounts = std::move(mounts);
    fShared->variableData = std::move(variableData);
}

SourceReader::~SourceReader() {
    std::unique_lock lock(fShared->mutex);
    fShared->end = true;
    fShared->waiting.clear();
    for (auto& [read, job] : fShared->jobs)
        job->cancelled = true;
    fShared->changed.notify_all();
    fShared->changed.wait_for(lock, kLastWait, [this] { return fShared->threads == 0; });
}

int64_t SourceReader::Read(Order order) {
    auto job = std::make_shared<Job>();
    job->order = std::move(order);
    return Enqueue(std::move(job));
}

int64_t SourceReader::ListVolumes() {
    auto job = std::make_shared<Job>();
    job->volumes = true;
    return Enqueue(std::move(job));
}

int64_t SourceReader::Enqueue(std::shared_ptr<Job> job) {
    const std::lock_guard lock(fShared->mutex);
    const int64_t read = job->read = fNext++;
    fShared->jobs[read] = job;
    fShared->waiting.push_back(std::move(job));
    if (fShared->waiting.size() > fShared->idle && fShared->threads < kMostThreads) {
        ++fShared->threads;
        std::thread(Work, fShared).detach();
    }
    fShared->changed.notify_all();
    return read;
}

void SourceReader::Cancel(int64_t read) {
    const std::lock_guard lock(fShared->mutex);
    const auto found = fShared->jobs.find(read);
    if (found == fShared->jobs.end()) return;
    found->second->cancelled = true;
    std::erase(fShared->waiting, found->second);
    fShared->jobs.erase(found);
    fShared->changed.notify_all();
}

void SourceReader::Taken(int64_t read) {
    const std::lock_guard lock(fShared->mutex);
    const auto found = fShared->jobs.find(read);
    if (found == fShared->jobs.end()) return;
    --found->second->underWay;
    fShared->changed.notify_all();
}

void SourceReader::Work(std::shared_ptr<Shared> shared) {
    std::unique_lock lock(shared->mutex);
    while (!shared->end) {
        if (shared->waiting.empty()) {
            ++shared->idle;
            shared->changed.wait(lock, [&] { return shared->end || !shared->waiting.empty(); });
            --shared->idle;
            continue;
        }
        const std::shared_ptr<Job> job = std::move(shared->waiting.back());
        shared->waiting.pop_back();
        lock.unlock();
        if (job->volumes)
            shared->Send(*job, VolumesMessage(shared->mounts));
        else
            Directory(*shared, *job).Run();
        lock.lock();
        shared->jobs.erase(job->read);
    }
    --shared->threads;
    shared->changed.notify_all();
}
