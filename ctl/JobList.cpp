#include "ctl/JobList.h"

#include <array>
#include <ctime>

#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/report/Format.h"
#include "core/schedule/ScheduleWords.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

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

std::optional<BMessage> DescriptionOf(ServerConnection& server, int32_t id) {
    BMessage question(core::code::kGetJob);
    question.Add("job_id", id);
    auto answer = server.Ask(std::move(question));
    return answer && answer->what == core::code::kSubmitJob ? answer : std::nullopt;
}

core::Schedule ScheduleOf(const BMessage& description) {
    return core::Schedule::FromRecord(description.Get("scheduler", BMessage()));
}

std::string NextWords(const ListedJob& job, const core::Schedule& schedule) {
    if (job.status != static_cast<int32_t>(core::JobStatus::Waiting)) return {};
    if (schedule.NeverRuns()) return core::TextOf(core::kMoreRunsNever);
    return core::RunsNextText(schedule.time, ::time(nullptr), core::Zone::OfSystem());
}

nlohmann::ordered_json ScheduleJson(const core::Schedule& schedule) {
    constexpr std::array kWeekdays{"sunday",   "monday", "tuesday", "wednesday",
                                   "thursday", "friday", "saturday"};
    auto notOn = nlohmann::ordered_json::array();
    for (size_t day = 0; day < kWeekdays.size(); ++day) {
        if ((schedule.excluded >> day & 1) != 0) notOn.push_back(kWeekdays[day]);
    }
    nlohmann::ordered_json json{
        {"next", nullptr},         {"months", schedule.months},   {"days", schedule.days},
        {"hours", schedule.hours}, {"minutes", schedule.minutes}, {"not_on", notOn}};
    if (schedule.time != 0) json["next"] = schedule.time;
    return json;
}

}  // namespace ctl
