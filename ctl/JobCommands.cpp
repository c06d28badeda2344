#include <cstdio>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

struct ListedJob {
    int32_t id, status, type;
    int64_t date;
    std::string title;
};

std::optional<std::vector<ListedJob>> ListJobs(ServerConnection& server) {
    const auto list = server.Ask(BMessage(core::code::kListJobs));
    if (!list) return std::nullopt;
    std::vector<ListedJob> jobs;
    if (list->what == core::code::kNone) return jobs;
    for (int32_t i = 0; i < list->Count("job_id"); ++i) {
        if (list->Get("base", false, i)) continue;  // a backup that stands, not a job
        jobs.push_back({list->Get<int32_t>("job_id", 0, i), list->Get<int32_t>("jobstatus", 0, i),
                        list->Get<int32_t>("job_type", 0, i), list->Get("date", BTime(), i).seconds,
                        list->Get("title", std::string(), i)});
    }
    return jobs;
}

const ListedJob* Find(const std::vector<ListedJob>& jobs, int32_t id) {
    for (const auto& job : jobs) {
        if (job.id == id) return &job;
    }
    return nullptr;
}

nlohmann::ordered_json JobJson(const ListedJob& job) {
    return {{"job_id", job.id},
            {"number", JobIdWords(job.id)},
            {"status", JobStatusWords(job.status)},
            {"type", JobTypeWords(job.type)},
            {"date", job.date},
            {"title", job.title}};
}

}  // namespace

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

ExitCode Control(ServerConnection& server, JobCommand command, const std::string& text, bool json) {
    const auto id = ParseJobId(text);
    if (!id) return WrongUse(kMoreCtlNoJobNumber, text);
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    const ListedJob* job = Find(*jobs, *id);
    if (!job) return Fail(kMoreCtlNoSuchJob, JobIdWords(*id));

    using core::JobStatus;
    const auto status = static_cast<JobStatus>(job->status);
    const bool fit = command == JobCommand::Pause
                         ? status == JobStatus::Waiting || status == JobStatus::Running
                     : command == JobCommand::Continue ? status == JobStatus::Paused
                                                       : status != JobStatus::Edited;
    if (!fit) {
        return Fail(kMoreCtlUnfitJob, JobIdWords(*id),
                    core::TextOf(core::JobStatusTextId(job->status)));
    }
    BMessage order(command == JobCommand::Pause      ? core::code::kPauseJob
                   : command == JobCommand::Continue ? core::code::kContinueJob
                                                     : core::code::kDeleteJob);
    order.Add("job_id", *id);
    if (command == JobCommand::Abort && status != JobStatus::Waiting) {
        order.Add("flag", int32_t{1});
    }
    server.Send(std::move(order));
    // The server answers in the order it is asked, so what it lists now is after the command; only
    // the end of an aborted job takes its time.
    constexpr std::chrono::seconds kPatience{10};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    do {
        jobs = ListJobs(server);
        if (!jobs) return Fail(kMoreServerSilent);
        job = Find(*jobs, *id);
        if (!job || command != JobCommand::Abort) break;
        server.Next(std::chrono::milliseconds(100));
    } while (std::chrono::steady_clock::now() < end);
    if (command == JobCommand::Abort && job) {
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
