#include "ctl/JobWatch.h"

#include <algorithm>

#include "core/protocol/LineTypes.h"
#include "core/protocol/Texts.h"
#include "core/report/ReportLines.h"
#include "ctl/JobList.h"
#include "ctl/Output.h"
#include "ctl/ProgressLine.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using core::JobEnd;
using enum core::MoreText;

namespace {

// One submitted job, from the server's "inserted" to its end, as seen from here.
class Watch {
public:
    Watch(ServerConnection& server, const WatchOptions& options)
        : fServer(server), fOptions(options) {}

    ExitCode UntilTheEnd();

private:
    using Event = ServerConnection::Event;

    void Take(BMessage& message);
    bool IsOurs(const BMessage& message) const {
        return fJob != 0 && message.Get<int32_t>("job_id", 0) == fJob;
    }
    // Whether it is one of the backups that this job was to insert.
    bool IsInserted(const std::string& name) const {
        return std::ranges::any_of(fOptions.inserted, [&](const std::string& folder) {
            return !name.empty() && folder.starts_with(name);
        });
    }
    void Progress(const BMessage& message);
    void Interrupted();
    ExitCode Refused();
    ExitCode InQueue();
    ExitCode Result();
    bool IsDone(const std::optional<BMessage>& report) const;

    ServerConnection& fServer;
    const WatchOptions& fOptions;
    ProgressLine fProgress;
    std::chrono::steady_clock::time_point fPrinted{};
    int32_t fJob = 0;     // 0: not accepted yet
    int32_t fReport = 0;  // 0: none yet
    std::string fBackup;  // the name of the finished backup
    std::vector<std::string> fInserted;
    bool fStarted = false, fAborting = false, fRefused = false, fRemoved = false;
    std::optional<JobEnd> fEnd;
};

ExitCode Watch::UntilTheEnd() {
    constexpr std::chrono::hours kAnyTime{24};
    while (!fEnd) {
        auto event = fServer.Next(kAnyTime);
        if (!event) continue;
        if (event->kind == Event::Kind::ServerGone) {
            fProgress.Clear();
            return Fail(kMoreCtlServerEnded);
        }
        if (event->kind == Event::Kind::Interrupt) {
            if (fAborting) return Fail(kMoreCtlNotWaiting);
            Interrupted();
            continue;
        }
        Take(event->message);
        if (fRefused) return Refused();
        if (fJob != 0 && (fOptions.onHold || fOptions.schedule)) return InQueue();
        if (fRemoved && !fStarted) return Fail(kMoreCtlDeletedEarly);
    }
    fProgress.Clear();
    return Result();
}

void Watch::Take(BMessage& message) {
    namespace code = core::code;
    switch (message.what) {
        case code::kJobInserted:
            if (fJob == 0 && message.Get<int32_t>("client_id", 0) == fServer.Team()) {
                fJob = message.Get<int32_t>("job_id", 0);
                if (fAborting) Interrupted();
            }
            break;
        case code::kJobStarted:
            if (!IsOurs(message)) break;
            fStarted = true;
            {
                BMessage accept(code::kAcceptStatus);
                accept.Add("job_id", fJob);
                accept.Add("user", BMessenger(&fServer));
                message.SendReply(std::move(accept));
            }
            break;
        case code::kJobProgress:
            if (IsOurs(message)) Progress(message);
            break;
        case code::kJobFinished:
            if (IsOurs(message)) {
                fEnd = static_cast<JobEnd>(message.Get<int32_t>("status", 3));
            }
            break;
        case code::kJobChanged:
            if (IsOurs(message) && !fOptions.json &&
                message.Get<int32_t>("jobstatus", 0) ==
                    static_cast<int32_t>(core::JobStatus::Paused)) {
                fProgress.Clear();
                Say(kMoreCtlPaused, JobIdWords(fJob));
            }
            break;
        case code::kJobRemoved:
            if (IsOurs(message)) fRemoved = true;
            break;
        case code::kCatalogue:
            if (core::IsBackup(fOptions.type) && IsOurs(message))
                fBackup = message.Get("name", std::string());
            if (fStarted && IsInserted(message.Get("name", std::string())))
                fInserted.push_back(message.Get("name", std::string()));
            break;
        case code::kReportInserted:
            if (IsOurs(message)) fReport = message.Get<int32_t>("report_id", 0);
            if (fJob == 0 && message.Get<int32_t>("client_id", 0) == fServer.Team()) {
                fReport = message.Get<int32_t>("report_id", 0);
                fRefused = true;
            }
            break;
        default:
            break;
    }
}

// The job waits until somebody has put one in.
bool AsksForMedium(const BMessage& message) {
    const int32_t textId = message.Get<int32_t>("text_id", -1);
    return textId == core::text::kMediumFull || textId == core::text::kInsertMedium;
}

void Watch::Progress(const BMessage& message) {
    if (fOptions.json) return;
    constexpr std::chrono::seconds kPlainPeriod{10};
    const auto type = static_cast<core::LineType>(message.Get<int32_t>("linetype", 0));
    const auto now = std::chrono::steady_clock::now();
    if (type == core::LineType::Progress && fProgress.IsOnTerminal()) {
        fProgress.Show(message);
    } else if (type == core::LineType::Progress && now - fPrinted >= kPlainPeriod) {
        if (fPrinted != std::chrono::steady_clock::time_point()) {
            std::printf("%s\n", ProgressLine::Text(message, 200).c_str());
            std::fflush(stdout);
        }
        fPrinted = now;
    } else if (AsksForMedium(message)) {
        fProgress.Clear();
        std::printf("%s\n", Printable(core::ReportLineText(message)).c_str());
        std::fflush(stdout);
    } else if (type == core::LineType::Volume) {
        fProgress.Clear();
        std::printf("%s\n",
                    Printable(core::VolumeLineText(static_cast<int32_t>(fOptions.type),
                                                   message.Get<int32_t>(core::kTextIdField, -1),
                                                   core::ReportLineText(message)))
                        .c_str());
        std::fflush(stdout);
    }
}

void Watch::Interrupted() {
    fAborting = true;
    if (fJob == 0) return;
    fProgress.Clear();
    Note(kMoreCtlAborting);
    BMessage abort(core::code::kDeleteJob);
    abort.Add("job_id", fJob);
    if (fStarted) abort.Add("flag", int32_t{1});
    fServer.Send(std::move(abort));
}

ExitCode Watch::InQueue() {
    if (fOptions.onHold && !fOptions.json) Say(kMoreCtlOnHold, JobIdWords(fJob), JobIdWords(fJob));
    if (fOptions.schedule) return PrintScheduleOf(fServer, fJob, *fOptions.schedule, fOptions.json);
    if (fOptions.json) PrintJson({{"job_id", fJob}, {"status", "on hold"}});
    return ExitCode::Good;
}

ExitCode Watch::Refused() {
    auto report = fServer.OpenReport(fReport);
    if (fOptions.json) {
        PrintJson({{"status", "refused"},
                   {"report_id", fReport},
                   {"lines", report ? ReportJson(*report) : nlohmann::ordered_json::array()}});
    } else if (report) {
        PrintReport(*report, true);
    }
    return ExitCode::Failed;
}

bool HasLine(const std::optional<BMessage>& report, int32_t textId) {
    if (!report) return false;
    for (int32_t i = 0; i < core::CountReportLines(*report); ++i) {
        if (report->Get<int32_t>(core::kTextIdField, 0, i) == textId) return true;
    }
    return false;
}

// Whether a job that ended with errors did something worth having, to its end.
bool Watch::IsDone(const std::optional<BMessage>& report) const {
    // With a backup in the catalogue something was saved; without one nothing was.
    if (core::IsBackup(fOptions.type)) return !fBackup.empty();
    if (fOptions.type == core::JobType::Insert) return !fInserted.empty();
    return HasLine(report, core::text::kBackupLoaded) &&
           !HasLine(report, core::text::kNothingToRestore) &&
           !HasLine(report, core::text::kDestinationFull);
}

ExitCode Watch::Result() {
    const auto report = fReport != 0 ? fServer.OpenReport(fReport) : std::nullopt;
    const char* status = "abnormal end";
    int32_t words = kMoreCtlEndAbnormal;
    ExitCode code = ExitCode::Failed;
    switch (*fEnd) {
        case JobEnd::Good:
            status = "good";
            words = kMoreCtlEndGood;
            code = ExitCode::Good;
            break;
        case JobEnd::Aborted:
            status = "aborted";
            words = kMoreCtlEndAborted;
            break;
        case JobEnd::Errors:
            status = "failed";
            words = kMoreCtlEndFailed;
            if (!IsDone(report)) break;
            status = "done with problems";
            words = kMoreCtlEndProblems;
            code = ExitCode::Problems;
            break;
        default:
            break;
    }
    if (fOptions.json) {
        nlohmann::ordered_json result{{"job_id", fJob}, {"status", status}};
        if (core::IsBackup(fOptions.type)) result["backup"] = fBackup;
        if (fOptions.type == core::JobType::Insert) result["inserted"] = fInserted;
        result["report_id"] = fReport;
        result["lines"] = report ? ReportJson(*report) : nlohmann::ordered_json::array();
        PrintJson(result);
        return code;
    }
    if (report) PrintReport(*report, fOptions.verbose);
    for (const auto& name : fInserted)
        Say(kMoreCtlInserted, Printable(name));
    if (fBackup.empty()) {
        Say(kMoreCtlJobEnded, JobIdWords(fJob), core::TextOf(words));
    } else {
        Say(kMoreCtlJobSaved, JobIdWords(fJob), core::TextOf(words), Printable(fBackup));
    }
    return code;
}

}  // namespace

ExitCode SubmitAndWatch(ServerConnection& server, BMessage job, const WatchOptions& options) {
    job.Add("client_id", server.Team());
    if (!server.Send(std::move(job))) return Fail(kMoreCtlUnreachable);
    return Watch(server, options).UntilTheEnd();
}

}  // namespace ctl
