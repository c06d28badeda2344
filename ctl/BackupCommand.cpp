#include <cstdio>
#include <filesystem>

#include "core/protocol/LineTypes.h"
#include "core/report/ReportLines.h"
#include "ctl/BackupJob.h"
#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/ProgressLine.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

namespace {

using core::JobEnd;

// One submitted job, from the server's "inserted" to its end, as seen from here.
class Watch {
public:
    Watch(ServerConnection& server, const BackupOptions& options)
        : fServer(server), fOptions(options) {}

    ExitCode UntilTheEnd();

private:
    using Event = ServerConnection::Event;

    void Take(BMessage& message);
    bool IsOurs(const BMessage& message) const {
        return fJob != 0 && message.Get<int32_t>("job_id", 0) == fJob;
    }
    void Progress(const BMessage& message);
    void Interrupted();
    ExitCode Refused();
    ExitCode Result();

    ServerConnection& fServer;
    const BackupOptions& fOptions;
    ProgressLine fProgress;
    std::chrono::steady_clock::time_point fPrinted{};
    int32_t fJob = 0;     // 0: not accepted yet
    int32_t fReport = 0;  // 0: none yet
    std::string fBackup;  // the name of the finished backup
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
            return Fail("The backup server ended before the job did.");
        }
        if (event->kind == Event::Kind::Interrupt) {
            if (fAborting) return Fail("Not waiting any longer.");
            Interrupted();
            continue;
        }
        Take(event->message);
        if (fRefused) return Refused();
        if (fJob != 0 && fOptions.onHold) {
            if (fOptions.json) {
                PrintJson({{"job_id", fJob}, {"status", "on hold"}});
            } else {
                std::printf("Job %s is on hold. Start it by: backupctl continue %s\n",
                            JobIdWords(fJob).c_str(), JobIdWords(fJob).c_str());
            }
            return ExitCode::Good;
        }
        if (fRemoved && !fStarted) return Fail("The job was deleted before it started.");
    }
    fProgress.Clear();
    return Result();
}

void Watch::Take(BMessage& message) {
    using namespace core::code;
    switch (message.what) {
        case kJobInserted:
            if (fJob == 0 && message.Get<int32_t>("client_id", 0) == fServer.Team()) {
                fJob = message.Get<int32_t>("job_id", 0);
                if (fAborting) Interrupted();
            }
            break;
        case kJobStarted:
            if (!IsOurs(message)) break;
            fStarted = true;
            {
                BMessage accept(kAcceptStatus);
                accept.Add("job_id", fJob);
                accept.Add("user", BMessenger(&fServer));
                message.SendReply(std::move(accept));
            }
            break;
        case kJobProgress:
            if (IsOurs(message)) Progress(message);
            break;
        case kJobFinished:
            if (IsOurs(message)) {
                fEnd = static_cast<JobEnd>(message.Get<int32_t>("status", 3));
            }
            break;
        case kJobChanged:
            if (IsOurs(message) && !fOptions.json &&
                message.Get<int32_t>("jobstatus", 0) ==
                    static_cast<int32_t>(core::JobStatus::Paused)) {
                fProgress.Clear();
                std::printf("Paused. Go on by: backupctl continue %s\n", JobIdWords(fJob).c_str());
            }
            break;
        case kJobRemoved:
            if (IsOurs(message)) fRemoved = true;
            break;
        case kCatalogue:
            if (IsOurs(message)) fBackup = message.Get("name", std::string());
            break;
        case kReportInserted:
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
    } else if (type == core::LineType::Volume) {
        fProgress.Clear();
        std::printf("Saving volume %s\n", Printable(core::ReportLineText(message)).c_str());
        std::fflush(stdout);
    }
}

void Watch::Interrupted() {
    fAborting = true;
    if (fJob == 0) return;
    fProgress.Clear();
    std::fprintf(stderr, "Aborting the job. Once more to leave without waiting for it.\n");
    BMessage abort(core::code::kDeleteJob);
    abort.Add("job_id", fJob);
    if (fStarted) abort.Add("flag", int32_t{1});
    fServer.Send(std::move(abort));
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

ExitCode Watch::Result() {
    const auto report = fReport != 0 ? fServer.OpenReport(fReport) : std::nullopt;
    const char* words = "abnormal end";
    ExitCode code = ExitCode::Failed;
    switch (*fEnd) {
        case JobEnd::Good:
            words = "good";
            code = ExitCode::Good;
            break;
        case JobEnd::Aborted:
            words = "aborted";
            break;
        case JobEnd::Errors:
            // With a backup in the catalogue something was saved; without one nothing was.
            words = fBackup.empty() ? "failed" : "done with problems";
            if (!fBackup.empty()) code = ExitCode::Problems;
            break;
        default:
            break;
    }
    if (fOptions.json) {
        nlohmann::ordered_json result{{"job_id", fJob},
                                      {"status", words},
                                      {"backup", fBackup},
                                      {"report_id", fReport},
                                      {"lines", nlohmann::ordered_json::array()}};
        if (report) result["lines"] = ReportJson(*report);
        PrintJson(result);
        return code;
    }
    if (report) PrintReport(*report, fOptions.verbose);
    std::printf("Job %s: %s%s%s\n", JobIdWords(fJob).c_str(), words,
                fBackup.empty() ? "" : ", saved as ", Printable(fBackup).c_str());
    return code;
}

std::string DefaultTitle(const std::vector<std::string>& paths) {
    std::string title = "Backup of ";
    for (size_t i = 0; i < paths.size(); ++i)
        title += (i > 0 ? ", " : "") + paths[i];
    constexpr size_t kMost = 200;
    return title.substr(0, kMost);
}

}  // namespace

ExitCode Backup(ServerConnection& server, const BackupOptions& options) {
    const auto compression = ParseCompression(options.compress);
    if (!compression) return Fail(compression.error().Text(), ExitCode::Usage);
    const auto sources = MapSources(options.paths, BVolumeRoster().Volumes());
    if (!sources) return Fail(sources.error().Text(), ExitCode::Usage);
    if (!options.json) {
        for (const auto& note : sources->notes)
            std::fprintf(stderr, "Note: %s\n", note.c_str());
    }
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    BMessage job = BackupJob(*sources, AbsoluteTarget(options.target), *compression,
                             options.title.empty() ? DefaultTitle(options.paths) : options.title,
                             options.onHold);
    job.Add("client_id", server.Team());
    if (!server.Send(std::move(job))) return Fail("The backup server cannot be reached.");
    return Watch(server, options).UntilTheEnd();
}

}  // namespace ctl
