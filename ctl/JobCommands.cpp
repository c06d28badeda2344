#include <cstdio>

#include "core/schedule/ScheduleWords.h"
#include "ctl/Commands.h"
#include "ctl/JobList.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

ExitCode Jobs(ServerConnection& server, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    if (json) {
        auto list = nlohmann::ordered_json::array();
        for (const auto& job : *jobs)
            list.push_back(JobJson(job));
        PrintJson(list);
        return ExitCode::Good;
    }
    if (jobs->empty()) Say(kMoreCtlNoJobs);
    for (const auto& job : *jobs) {
        std::printf("%s  %s %s %-16s  %s\n", JobIdWords(job.id).c_str(),
                    Padded(core::TextOf(core::JobStatusTextId(job.status)), 8).c_str(),
                    Padded(core::TextOf(core::JobTypeTextId(job.type)), 20).c_str(),
                    DateWords(job.date).c_str(), Printable(job.title).c_str());
    }
    return ExitCode::Good;
}

ExitCode Queue(ServerConnection& server, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    auto list = nlohmann::ordered_json::array();
    if (jobs->empty() && !json) Say(kMoreCtlNoJobs);
    for (const auto& job : *jobs) {
        const auto description = DescriptionOf(server, job.id);
        const auto schedule = description ? ScheduleOf(*description) : core::Schedule();
        if (json) {
            auto entry = JobJson(job);
            entry["schedule"] = description ? ScheduleJson(schedule) : nullptr;
            list.push_back(std::move(entry));
            continue;
        }
        std::string when = NextWords(job, schedule);
        if (schedule.Repeats()) when += (when.empty() ? "" : "; ") + core::RepeatText(schedule);
        std::printf("%s  %s %s %s\n", JobIdWords(job.id).c_str(),
                    Padded(core::TextOf(core::JobStatusTextId(job.status)), 8).c_str(),
                    Padded(core::TextOf(core::JobTypeTextId(job.type)), 20).c_str(),
                    Printable(job.title).c_str());
        if (!when.empty()) std::printf("          %s\n", when.c_str());
    }
    if (json) PrintJson(list);
    return ExitCode::Good;
}

namespace {

bool IsFit(JobCommand command, core::JobStatus status) {
    using core::JobStatus;
    switch (command) {
        case JobCommand::Start:
        case JobCommand::Hold:
            return status == JobStatus::Waiting;
        case JobCommand::Pause:
            return status == JobStatus::Waiting || status == JobStatus::Running;
        case JobCommand::Continue:
            return status == JobStatus::Paused;
        default:
            return status != JobStatus::Edited;
    }
}

BMessage OrderFor(JobCommand command, int32_t id, core::JobStatus status) {
    uint32_t code = core::code::kDeleteJob;
    if (command == JobCommand::Start) code = core::code::kStartJobNow;
    if (command == JobCommand::Pause || command == JobCommand::Hold) code = core::code::kPauseJob;
    if (command == JobCommand::Continue) code = core::code::kContinueJob;
    BMessage order(code);
    order.Add("job_id", id);
    if (command == JobCommand::Abort && status != core::JobStatus::Waiting) {
        order.Add("flag", int32_t{1});
    }
    return order;
}

}  // namespace

ExitCode Control(ServerConnection& server, JobCommand command, const std::string& text, bool json) {
    const auto id = ParseJobId(text);
    if (!id) return WrongUse(kMoreCtlNoJobNumber, text);
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    const ListedJob* job = Find(*jobs, *id);
    if (!job) return Fail(kMoreCtlNoSuchJob, JobIdWords(*id));

    const auto status = static_cast<core::JobStatus>(job->status);
    if (!IsFit(command, status)) {
        return Fail(kMoreCtlUnfitJob, JobIdWords(*id),
                    core::TextOf(core::JobStatusTextId(job->status)));
    }
    server.Send(OrderFor(command, *id, status));
    const bool goes = command == JobCommand::Abort || command == JobCommand::Delete;
    // The server answers in the order it is asked, so what it lists now is after the command; only
    // the end of an aborted job takes its time.
    constexpr std::chrono::seconds kPatience{10};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    do {
        jobs = ListJobs(server);
        if (!jobs) return Fail(kMoreServerSilent);
        job = Find(*jobs, *id);
        if (!job || !goes) break;
        server.Next(std::chrono::milliseconds(100));
    } while (std::chrono::steady_clock::now() < end);
    if (goes && job) {
        return Fail(kMoreCtlJobStays, JobIdWords(*id));
    }
    if (json) {
        PrintJson(job ? JobJson(*job)
                      : nlohmann::ordered_json{{"job_id", *id}, {"status", "Removed"}});
    } else {
        Say(kMoreCtlJobState, JobIdWords(*id),
            core::TextOf(job ? core::JobStatusTextId(job->status) : int32_t{kMoreCtlJobRemoved}));
    }
    return ExitCode::Good;
}

}  // namespace ctl
