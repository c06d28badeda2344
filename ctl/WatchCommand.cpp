#include <cstdio>
#include <map>

#include "core/protocol/LineTypes.h"
#include "core/report/ReportLines.h"
#include "ctl/Commands.h"
#include "ctl/JobList.h"
#include "ctl/Output.h"
#include "ctl/ProgressLine.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using core::JobStatus;
using enum core::MoreText;

namespace {

// Everything that jobs say while they run, one line each; of programs' lines one JSON object each.
class LiveLines {
public:
    // `only`: of this job, until it ends; 0: of all, until the user interrupts.
    LiveLines(ServerConnection& server, int32_t only, bool json)
        : fServer(server), fOnly(only), fJson(json) {}

    ExitCode Show();
    int32_t Report() const { return fReport; }  // the job's, once it has ended

private:
    using Event = ServerConnection::Event;

    void Accept(int32_t id);
    void Take(BMessage& message);
    void Print(const BMessage& message, int32_t id);
    void PrintEnd(int32_t id, int32_t status);
    void PrintObject(const nlohmann::ordered_json& object) const;

    ServerConnection& fServer;
    const int32_t fOnly;
    const bool fJson;
    ProgressLine fProgress;
    std::map<int32_t, std::chrono::steady_clock::time_point> fPrinted;  // progress, of each job
    int32_t fReport = 0;
    bool fEnded = false;
};

ExitCode LiveLines::Show() {
    // Of what runs now nobody need tell us; of what starts later the server tells all clients.
    const auto jobs = ListJobs(fServer);
    if (!jobs) return Fail(kMoreServerSilent);
    for (const auto& job : *jobs) {
        const auto status = static_cast<JobStatus>(job.status);
        if (status == JobStatus::Running || status == JobStatus::Paused) Accept(job.id);
    }
    constexpr std::chrono::hours kAnyTime{24};
    // The report is announced just before the end, but not told in every case.
    while (!fEnded) {
        auto event = fServer.Next(kAnyTime);
        if (!event) continue;
        if (event->kind == Event::Kind::Interrupt) break;
        if (event->kind == Event::Kind::ServerGone) {
            fProgress.Clear();
            return Fail(kMoreCtlServerEnded);
        }
        Take(event->message);
    }
    fProgress.Clear();
    return ExitCode::Good;
}

void LiveLines::Accept(int32_t id) {
    if (fOnly != 0 && id != fOnly) return;
    BMessage accept(core::code::kAcceptStatus);
    accept.Add("job_id", id);
    accept.Add("user", BMessenger(&fServer));
    fServer.Send(std::move(accept));
}

void LiveLines::Take(BMessage& message) {
    namespace code = core::code;
    const int32_t id = message.Get<int32_t>("job_id", 0);
    if (fOnly != 0 && id != fOnly) return;
    switch (message.what) {
        case code::kJobStarted:
            Accept(id);
            break;
        case code::kJobChanged:
            if (message.Get<int32_t>("jobstatus", 0) == static_cast<int32_t>(JobStatus::Running))
                Accept(id);
            break;
        case code::kJobProgress:
            Print(message, id);
            break;
        case code::kReportInserted:
            fReport = message.Get<int32_t>("report_id", 0);
            break;
        case code::kJobFinished:
            PrintEnd(id, message.Get<int32_t>("status", 3));
            fEnded = fOnly != 0;
            break;
        default:
            break;
    }
}

void LiveLines::Print(const BMessage& message, int32_t id) {
    const auto type = message.Get<int32_t>("linetype", 0);
    const bool isProgress = type == static_cast<int32_t>(core::LineType::Progress);
    if (isProgress && !fJson && fProgress.IsOnTerminal()) {
        fProgress.Show(message);
        return;
    }
    if (isProgress) {
        constexpr std::chrono::seconds kPeriod{1};
        const auto now = std::chrono::steady_clock::now();
        auto& printed = fPrinted[id];
        if (now - printed < kPeriod) return;
        printed = now;
    }
    const std::string text = core::ReportLineText(message);
    if (fJson) {
        nlohmann::ordered_json line{{"job_id", id}, {"linetype", type}, {"text", text}};
        if (isProgress) {
            line["size"] = message.Get<int64_t>("size", 0);
            line["maxsize"] = message.Get<int64_t>("maxsize", 0);
        }
        PrintObject(line);
        return;
    }
    fProgress.Clear();
    constexpr size_t kColumns = 200;
    std::printf(
        "%s  %s\n", JobIdWords(id).c_str(),
        isProgress ? ProgressLine::Text(message, kColumns).c_str() : Printable(text).c_str());
    std::fflush(stdout);
}

void LiveLines::PrintEnd(int32_t id, int32_t status) {
    if (fJson) {
        PrintObject({{"job_id", id}, {"end", status}});
        return;
    }
    fProgress.Clear();
    Say(kMoreCtlJobEnded, JobIdWords(id), core::TextOf(core::JobEndTextId(status)));
}

void LiveLines::PrintObject(const nlohmann::ordered_json& object) const {
    using Json = nlohmann::ordered_json;
    std::printf("%s\n", object.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
    std::fflush(stdout);
}

}  // namespace

ExitCode Watch(ServerConnection& server, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    return LiveLines(server, 0, json).Show();
}

ExitCode Follow(ServerConnection& server, const std::string& number, bool json) {
    const auto id = ParseJobId(number);
    if (!id) return WrongUse(kMoreCtlNoJobNumber, number);
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    const ListedJob* job = Find(*jobs, *id);
    if (!job) return PrintReportOf(server, *id, json);
    LiveLines lines(server, *id, json);
    if (const auto code = lines.Show(); code != ExitCode::Good) return code;
    return lines.Report() == 0 ? ExitCode::Good : PrintReportOf(server, lines.Report(), json);
}

}  // namespace ctl
