// The server's record file: queue, ids and reports in one SQLite file of the data folder. A file
// that is damaged is set aside, never deleted, and a new one takes over whatever jobs could still
// be read.
#pragma once

#include <string>
#include <vector>

#include "server/queue/QueueStore.h"
#include "server/reports/ReportStore.h"

namespace server {

class Records {
public:
    static constexpr char kFileName[] = "records.db";
    static constexpr int kVersion = 1;  // PRAGMA user_version

    // Makes the file where there is none.
    static kit::Result<Records> Open(const std::string& folder);

    QueueStore Queue() { return QueueStore(fDatabase); }
    ReportStore Reports() { return ReportStore(fDatabase); }
    Database& File() { return fDatabase; }

    // Words about what was found wrong and set aside, for a report; empty when all was well.
    const std::vector<std::string>& Problems() const { return fProblems; }

private:
    explicit Records(Database database) : fDatabase(std::move(database)) {}
    static kit::Result<Records> OpenSound(const std::string& path);

    Database fDatabase;
    std::vector<std::string> fProblems;
};

}  // namespace server
