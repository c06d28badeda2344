#include "server/reports/ReportStore.h"

#include <zstd.h>

#include <algorithm>
#include <limits>

#include "server/reports/LineChunk.h"

namespace server {

namespace {

// The first byte of a chunk tells how the flattened message behind it is kept.
enum : uint8_t { kPlain = 0, kZstd = 1 };
constexpr size_t kMostChunk = 64 * 1024 * 1024;

Bytes Pack(const BMessage& lines) {
    const Bytes flat = lines.Flatten();
    Bytes packed(1 + ZSTD_compressBound(flat.size()));
    const size_t size =
        ZSTD_compress(packed.data() + 1, packed.size() - 1, flat.data(), flat.size(), 1);
    if (ZSTD_isError(size) || size >= flat.size()) {
        packed.assign(1, kPlain);
        packed.insert(packed.end(), flat.begin(), flat.end());
        return packed;
    }
    packed[0] = kZstd;
    packed.resize(1 + size);
    return packed;
}

std::optional<BMessage> Unpack(std::span<const uint8_t> chunk) {
    if (chunk.empty()) return std::nullopt;
    const auto body = chunk.subspan(1);
    if (chunk[0] == kPlain) return BMessage::Unflatten(body);
    if (chunk[0] != kZstd) return std::nullopt;
    const auto size = ZSTD_getFrameContentSize(body.data(), body.size());
    if (size > kMostChunk) return std::nullopt;  // the two error values are huge
    Bytes flat(size);
    const size_t got = ZSTD_decompress(flat.data(), flat.size(), body.data(), body.size());
    if (ZSTD_isError(got) || got != flat.size()) return std::nullopt;
    return BMessage::Unflatten(flat);
}

int32_t Clamp(int64_t value) {
    return static_cast<int32_t>(std::clamp<int64_t>(value, 0, std::numeric_limits<int32_t>::max()));
}

}  // namespace

kit::Status ReportStore::Prepare() {
    return fDatabase->Execute(
        "CREATE TABLE IF NOT EXISTS reports("
        "id INTEGER PRIMARY KEY AUTOINCREMENT, job_id INTEGER NOT NULL, job_type INTEGER NOT NULL,"
        "title TEXT NOT NULL, date INTEGER NOT NULL, finished INTEGER NOT NULL);"
        "CREATE TABLE IF NOT EXISTS report_lines("
        "id INTEGER PRIMARY KEY, report_id INTEGER NOT NULL REFERENCES reports ON DELETE CASCADE,"
        "lines BLOB NOT NULL);"
        "CREATE INDEX IF NOT EXISTS report_lines_of ON report_lines(report_id, id);"
        "CREATE TABLE IF NOT EXISTS report_deletion("
        "only INTEGER PRIMARY KEY CHECK(only=1), mode INTEGER NOT NULL, days INTEGER NOT NULL,"
        "count INTEGER NOT NULL, with_backup INTEGER NOT NULL)");
}

kit::Status ReportStore::Begin(const ReportInfo& report) {
    return fDatabase
        ->Prepare("INSERT INTO reports(id,job_id,job_type,title,date,finished)VALUES(?,?,?,?,?,0)")
        .Bind(1, int64_t{report.id})
        .Bind(2, int64_t{report.jobId})
        .Bind(3, int64_t{report.jobType})
        .Bind(4, report.title)
        .Bind(5, report.date)
        .Run();
}

kit::Status ReportStore::Append(int32_t id, const BMessage& lines) {
    const Bytes chunk = Pack(lines);
    return fDatabase->Prepare("INSERT INTO report_lines(report_id,lines)VALUES(?,?)")
        .Bind(1, int64_t{id})
        .Bind(2, chunk)
        .Run();
}

kit::Status ReportStore::Finish(int32_t id) {
    return fDatabase->Prepare("UPDATE reports SET finished=1 WHERE id=?")
        .Bind(1, int64_t{id})
        .Run();
}

kit::Status ReportStore::Remove(std::span<const int32_t> ids) {
    Database::Transaction transaction(*fDatabase);
    auto remove = fDatabase->Prepare("DELETE FROM reports WHERE id=?");
    for (const int32_t id : ids) {
        if (auto removed = remove.Bind(1, int64_t{id}).Run(); !removed) return removed;
    }
    return transaction.Commit();
}

std::vector<ReportInfo> ReportStore::Load(bool finished) const {
    std::vector<ReportInfo> reports;
    auto select = fDatabase->Prepare(
        "SELECT id,job_id,job_type,title,date FROM reports WHERE finished=? ORDER BY id");
    select.Bind(1, int64_t{finished});
    while (select.Next()) {
        reports.push_back({Clamp(select.Integer(0)), Clamp(select.Integer(1)),
                           Clamp(select.Integer(2)), select.Text(3), select.Integer(4)});
    }
    return reports;
}

int32_t ReportStore::LastId() const {
    auto select = fDatabase->Prepare("SELECT seq FROM sqlite_sequence WHERE name='reports'");
    return select.Next() ? Clamp(select.Integer(0)) : 0;
}

int32_t ReportStore::LastJobId() const {
    auto select = fDatabase->Prepare("SELECT max(job_id) FROM reports");
    return select.Next() ? Clamp(select.Integer(0)) : 0;
}

kit::Result<BMessage> ReportStore::Read(int32_t id) const {
    auto known = fDatabase->Prepare("SELECT 1 FROM reports WHERE id=?");
    if (!known.Bind(1, int64_t{id}).Next()) {
        if (auto result = known.Result(); !result) return result.error();
        return kit::Error::Make(kit::ErrorKind::NotFound, {}, "no such report");
    }
    LineChunk lines;
    auto select =
        fDatabase->Prepare("SELECT lines FROM report_lines WHERE report_id=? ORDER BY id");
    select.Bind(1, int64_t{id});
    while (select.Next()) {
        auto chunk = Unpack(select.Blob(0));
        if (!chunk || !lines.Append(*chunk)) {
            return kit::Error::Make(kit::ErrorKind::Damaged, {}, "lines of a report");
        }
    }
    if (auto result = select.Result(); !result) return result.error();
    return lines.Take();
}

ReportDeletion ReportStore::LoadDeletion() const {
    ReportDeletion deletion;
    auto select =
        fDatabase->Prepare("SELECT mode,days,count,with_backup FROM report_deletion WHERE only=1");
    if (select.Next()) {
        deletion.mode = Clamp(select.Integer(0));
        deletion.days = Clamp(select.Integer(1));
        deletion.count = Clamp(select.Integer(2));
        deletion.withBackup = select.Integer(3) != 0;
    }
    return deletion;
}

kit::Status ReportStore::SaveDeletion(const ReportDeletion& deletion) {
    return fDatabase->Prepare("INSERT OR REPLACE INTO report_deletion VALUES(1,?,?,?,?)")
        .Bind(1, int64_t{deletion.mode})
        .Bind(2, int64_t{deletion.days})
        .Bind(3, int64_t{deletion.count})
        .Bind(4, int64_t{deletion.withBackup})
        .Run();
}

}  // namespace server
