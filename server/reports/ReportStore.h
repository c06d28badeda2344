// The reports on disk. A report is made when its job starts and gets its lines in chunks, so that a
// crash loses the last moments only; it counts as a report once it is finished. docs/formats.md has
// the tables.
//
// One thread at a time, that of its database.
#pragma once

#include <span>
#include <vector>

#include "kit/message/BMessage.h"
#include "server/reports/ReportDeletion.h"
#include "server/reports/ReportInfo.h"
#include "server/sqlite/Database.h"

namespace server {

class ReportStore {
public:
    explicit ReportStore(Database& database) : fDatabase(&database) {}
    kit::Status Prepare();  // makes the tables

    kit::Status Begin(const ReportInfo& report);
    kit::Status Append(int32_t id, const BMessage& lines);  // as LineChunk has them
    kit::Status Finish(int32_t id);
    kit::Status Remove(std::span<const int32_t> ids);

    std::vector<ReportInfo> Load(bool finished) const;  // by id
    int32_t LastId() const;
    int32_t LastJobId() const;
    // All lines of a report in one message; NotFound, or Damaged where a chunk is.
    kit::Result<BMessage> Read(int32_t id) const;

    ReportDeletion LoadDeletion() const;
    kit::Status SaveDeletion(const ReportDeletion& deletion);

private:
    Database* fDatabase;
};

}  // namespace server
