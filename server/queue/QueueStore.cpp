#include "server/queue/QueueStore.h"

#include <algorithm>
#include <limits>

#include "server/queue/JobDescription.h"

namespace server {

kit::Status QueueStore::Prepare() {
    // AUTOINCREMENT: the number of a deleted job is not given again.
    return fDatabase->Execute(
        "CREATE TABLE IF NOT EXISTS jobs("
        "id INTEGER PRIMARY KEY AUTOINCREMENT, submitted INTEGER NOT NULL, paused INTEGER NOT NULL,"
        "start_now INTEGER NOT NULL, started INTEGER NOT NULL, description BLOB NOT NULL)");
}

kit::Status QueueStore::Insert(const QueuedJob& job) {
    if (description::HasPassword(job.description)) {
        return kit::Error::Make(kit::ErrorKind::Invalid, {}, "a password must not be stored");
    }
    const Bytes flat = job.description.Flatten();
    return fDatabase
        ->Prepare(
            "INSERT INTO jobs(id,submitted,paused,start_now,started,description)"
            "VALUES(?,?,?,?,0,?)")
        .Bind(1, int64_t{job.id})
        .Bind(2, job.submitted)
        .Bind(3, int64_t{job.paused})
        .Bind(4, int64_t{job.startNow})
        .Bind(5, flat)
        .Run();
}

kit::Status QueueStore::Update(const QueuedJob& job) {
    if (description::HasPassword(job.description)) {
        return kit::Error::Make(kit::ErrorKind::Invalid, {}, "a password must not be stored");
    }
    const Bytes flat = job.description.Flatten();
    return fDatabase->Prepare("UPDATE jobs SET paused=?,start_now=?,description=? WHERE id=?")
        .Bind(1, int64_t{job.paused})
        .Bind(2, int64_t{job.startNow})
        .Bind(3, flat)
        .Bind(4, int64_t{job.id})
        .Run();
}

kit::Status QueueStore::SetStarted(int32_t id, int64_t started) {
    return fDatabase->Prepare("UPDATE jobs SET started=? WHERE id=?")
        .Bind(1, started)
        .Bind(2, int64_t{id})
        .Run();
}

kit::Status QueueStore::Remove(int32_t id) {
    return fDatabase->Prepare("DELETE FROM jobs WHERE id=?").Bind(1, int64_t{id}).Run();
}

std::vector<StoredJob> QueueStore::Load(int* unreadable) const {
    std::vector<StoredJob> jobs;
    auto select = fDatabase->Prepare(
        "SELECT id,submitted,paused,start_now,started,description FROM jobs ORDER BY id");
    while (select.Next()) {
        const int64_t id = select.Integer(0);
        auto message = BMessage::Unflatten(select.Blob(5));
        if (!message || id <= 0 || id > std::numeric_limits<int32_t>::max() ||
            !description::TypeOf(*message)) {
            ++*unreadable;
            continue;
        }
        StoredJob stored;
        stored.job =
            QueuedJob::Make(static_cast<int32_t>(id), std::move(*message), select.Integer(1));
        stored.job.paused = select.Integer(2) != 0;
        stored.job.startNow = select.Integer(3) != 0;
        stored.started = select.Integer(4);
        jobs.push_back(std::move(stored));
    }
    if (!select.Result()) ++*unreadable;
    return jobs;
}

int32_t QueueStore::LastId() const {
    auto select = fDatabase->Prepare("SELECT seq FROM sqlite_sequence WHERE name='jobs'");
    if (!select.Next()) return 0;
    return static_cast<int32_t>(
        std::clamp<int64_t>(select.Integer(0), 0, std::numeric_limits<int32_t>::max()));
}

kit::Status QueueStore::ReserveIds(int32_t id) {
    if (id <= LastId()) return {};
    Database::Transaction transaction(*fDatabase);
    // A row that comes and goes is SQLite's own way to move the sequence on.
    auto inserted = fDatabase
                        ->Prepare(
                            "INSERT INTO jobs(id,submitted,paused,start_now,started,description)"
                            "VALUES(?,0,0,0,0,x'')")
                        .Bind(1, int64_t{id})
                        .Run();
    if (!inserted) return inserted;
    if (auto removed = Remove(id); !removed) return removed;
    return transaction.Commit();
}

}  // namespace server
