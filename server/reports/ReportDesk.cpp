#include "server/reports/ReportDesk.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>

#include "core/protocol/Codes.h"

namespace server {

namespace {

void AddTo(BMessage& message, const ReportInfo& report) {
    message.Add("title", report.title);
    message.Add("date", BTime::FromSeconds(report.date));
    message.Add("job_type", report.jobType);
    message.Add("report_id", report.id);
    message.Add("job_id", report.jobId);
}

}  // namespace

// What the disk did not take, kept for as long as the server runs. Bounded: a full disk must not
// become a full memory.
struct ReportDesk::Loose {
    static constexpr size_t kMost = 4 * 1024 * 1024;
    std::mutex mutex;
    std::map<int32_t, LineChunk> lines;
    size_t size = 0;

    void Keep(int32_t id, const BMessage& more) {
        std::lock_guard lock(mutex);
        const size_t bytes = more.FlattenedSize();
        if (size + bytes > kMost) return;
        size += bytes;
        lines[id].Append(more);
    }
    void AddTo(int32_t id, LineChunk& all) {
        std::lock_guard lock(mutex);
        if (auto at = lines.find(id); at != lines.end()) all.Append(at->second.Message());
    }
    bool Has(int32_t id) {
        std::lock_guard lock(mutex);
        return lines.contains(id);
    }
};

ReportDesk::ReportDesk(ServerHost& host, Records& records, std::string folder, Worker& writing)
    : fHost(host),
      fRecords(records),
      fFolder(std::move(folder)),
      fWriting(writing),
      fLoose(std::make_shared<Loose>()) {
    fReports = records.Reports().Load(true);
    fLastId = records.Reports().LastId();
    fDeletion = records.Reports().LoadDeletion();
}

ReportDesk::~ReportDesk() = default;

// --- messages -----------------------------------------------------------------------------------

void ReportDesk::List(BMessage& message) {
    BMessage reply(fReports.empty() ? core::code::kNone : core::code::kReportInserted);
    for (const auto& report : fReports)
        AddTo(reply, report);
    message.SendReply(std::move(reply));
}

void ReportDesk::Open(BMessage& message) {
    const auto id = message.Find<int32_t>("report_id");
    const auto user = message.Find<BMessenger>("user");
    if (!id || !user) return;
    const bool known = std::any_of(fReports.begin(), fReports.end(),
                                   [&](const ReportInfo& report) { return report.id == *id; });
    if (!known) return;
    fReading.Post([this, id = *id, user = *user, loose = fLoose] {
        LineChunk lines;
        auto file = Database::OpenReadOnly(fFolder + '/' + Records::kFileName);
        auto stored = file ? ReportStore(*file).Read(id) : kit::Result<BMessage>(file.error());
        if (stored) {
            lines.Append(*stored);
        } else if (!loose->Has(id)) {
            lines.AddWords(core::LineType::Error,
                           "This report cannot be read: " + stored.error().Text());
        }
        loose->AddTo(id, lines);
        // std::function copies what it holds; the text may be large.
        auto text = std::make_shared<BMessage>(lines.Take());
        fHost.Later([this, id, user, text] { Deliver(id, user, std::move(*text)); });
    });
}

void ReportDesk::Deliver(int32_t id, const BMessenger& user, BMessage text) {
    text.what = core::code::kReportText;
    text.Add("report_id", id);
    // A team that takes nothing must not fill the memory: the connection has a limit of its own.
    const size_t size = text.FlattenedSize();
    if (size > kMostDirect && WaitingFor(user.Team()) + size <= kMostWaiting) {
        if (auto area = kit::SharedArea::Create(text)) {
            BMessage where(core::code::kReportText);
            where.Add("report_id", id);
            where.Add("area_id", area->Id());
            const uint64_t delivery = ++fDeliveries;
            fAreas.emplace(delivery, Delivery{id, user, size, std::move(*area)});
            // Released by the answer, and also by the request's end when the receiver goes away.
            fHost.Ask(user, std::move(where),
                      [this, delivery](const BMessage&) { fAreas.erase(delivery); });
            return;
        }
        // Without shared memory the frame carries it: slower, but whole.
    }
    fHost.Send(user, std::move(text));
}

size_t ReportDesk::WaitingFor(int32_t team) const {
    size_t waiting = 0;
    for (const auto& [delivery, area] : fAreas) {
        if (area.user.Team() == team) waiting += area.size;
    }
    return waiting;
}

void ReportDesk::Close(BMessage& message) {
    const auto id = message.Find<int32_t>("report_id");
    const auto user = message.Find<BMessenger>("user");
    std::erase_if(fAreas, [&](const auto& entry) {
        return entry.second.report == id && entry.second.user == user;
    });
}

void ReportDesk::Delete(BMessage& message) {
    std::vector<int32_t> ids;
    for (int32_t i = 0; i < message.Count("report_id", B_INT32_TYPE); ++i) {
        ids.push_back(*message.Find<int32_t>("report_id", i));
    }
    Remove(ids);
}

void ReportDesk::GetDeletion(BMessage& message) {
    message.SendReply(fDeletion.ToMessage());
}

void ReportDesk::SetDeletion(BMessage& message) {
    fDeletion.Update(message);
    fWriting.Post([this, deletion = fDeletion] {
        (void)fRecords.Reports().SaveDeletion(deletion);  // it counts for this run at least
    });
    ApplyDeletion();
}

// --- for the rest of the server -----------------------------------------------------------------

void ReportDesk::Write(ReportInfo report, LineChunk lines, ReportCause cause) {
    if (report.id == 0) report.id = NewId();
    if (report.date == 0) report.date = fHost.Now();
    fWriting.Post([this, report = std::move(report), lines = lines.Take(), cause] {
        Database::Transaction transaction(fRecords.File());
        BeginStored(report);
        const bool stored = AppendStored(report.id, lines);
        FinishStored(report.id);
        if (!transaction.Commit() && stored) KeepInMemory(report.id, lines);
        fHost.Later([this, report, cause] { Announce(report, cause); });
    });
}

void ReportDesk::BeginStored(const ReportInfo& report) {
    (void)fRecords.Reports().Begin(report);  // without it its lines stay in memory
}

bool ReportDesk::AppendStored(int32_t id, const BMessage& lines) {
    if (lines.IsEmpty() || fRecords.Reports().Append(id, lines)) return true;
    fLoose->Keep(id, lines);
    return false;
}

void ReportDesk::KeepInMemory(int32_t id, const BMessage& lines) {
    fLoose->Keep(id, lines);
}

void ReportDesk::FinishStored(int32_t id) {
    (void)fRecords.Reports().Finish(id);
}

void ReportDesk::Announce(const ReportInfo& report, ReportCause cause) {
    const auto before =
        std::upper_bound(fReports.begin(), fReports.end(), report,
                         [](const ReportInfo& a, const ReportInfo& b) { return a.id < b.id; });
    fReports.insert(before, report);
    BMessage notice(core::code::kReportInserted);
    AddTo(notice, report);
    if (cause.client != 0) notice.Add("client_id", cause.client);
    if (cause.overdue) notice.Add("overdue", true);
    if (cause.end) notice.Add("status", static_cast<int32_t>(*cause.end));
    fHost.NotifyAll(notice);
}

void ReportDesk::ApplyDeletion() {
    Remove(fDeletion.Select(fReports, fHost.Now()));
}

void ReportDesk::BackupDeleted(int32_t jobId) {
    if (!fDeletion.withBackup || jobId == 0) return;
    std::vector<int32_t> ids;
    for (const auto& report : fReports) {
        if (report.jobId == jobId) ids.push_back(report.id);
    }
    Remove(ids);
}

void ReportDesk::Remove(const std::vector<int32_t>& ids) {
    const std::set<int32_t> wanted(ids.begin(), ids.end());
    std::vector<int32_t> known;
    std::erase_if(fReports, [&](const ReportInfo& report) {
        if (!wanted.contains(report.id)) return false;
        known.push_back(report.id);
        return true;
    });
    if (known.empty()) return;
    fWriting.Post([this, known] {
        (void)fRecords.Reports().Remove(known);  // what stays is listed again by the next start
    });
    for (const int32_t id : known) {
        BMessage notice(core::code::kReportRemoved);
        notice.Add("report_id", id);
        fHost.NotifyAll(notice);
    }
}

}  // namespace server
