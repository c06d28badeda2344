// The queue on disk: every job that was accepted, until it has ended. What a function did is on the
// disk when it returns. No password ever gets here: descriptions are cleaned, and refused if they
// are not.
//
// One thread at a time, that of its database.
#pragma once

#include <cstdint>
#include <vector>

#include "server/queue/JobQueue.h"
#include "server/sqlite/Database.h"

namespace server {

struct StoredJob {
    QueuedJob job;
    int64_t started = 0;  // it was running when the server ended; 0: it was not
};

class QueueStore {
public:
    explicit QueueStore(Database& database) : fDatabase(&database) {}
    kit::Status Prepare();  // makes the table

    kit::Status Insert(const QueuedJob& job);
    kit::Status Update(const QueuedJob& job);  // state and description
    kit::Status SetStarted(int32_t id, int64_t started);
    kit::Status Remove(int32_t id);

    // All jobs by id. What cannot be read is left out and counted; after an error the jobs read so
    // far.
    std::vector<StoredJob> Load(int* unreadable) const;
    // The highest id that any job ever had here.
    int32_t LastId() const;
    // Ids up to `id` are taken, whoever used them.
    kit::Status ReserveIds(int32_t id);

private:
    Database* fDatabase;
};

}  // namespace server
