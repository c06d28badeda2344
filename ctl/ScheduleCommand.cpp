#include <ctime>

#include "core/schedule/ScheduleWords.h"
#include "ctl/Commands.h"
#include "ctl/JobList.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

// So that it does not start with half of what the user wants.
class EditMark {
public:
    EditMark(ServerConnection& server, int32_t id) : fServer(server), fId(id) { Tell(1); }
    ~EditMark() { Tell(0); }
    EditMark(const EditMark&) = delete;
    EditMark& operator=(const EditMark&) = delete;

private:
    void Tell(int32_t edit) {
        BMessage mark(core::code::kEditJob);
        mark.Add("job_id", fId);
        mark.Add("edit", edit);
        fServer.Send(std::move(mark));
    }
    ServerConnection& fServer;
    const int32_t fId;
};

ExitCode Change(ServerConnection& server, const ScheduleCommand& command, int32_t id,
                core::Schedule* given) {
    const EditMark mark(server, id);
    auto description = DescriptionOf(server, id);
    if (!description) return Fail(kMoreCtlNoSuchJob, JobIdWords(id));
    if (!command.none) {
        const auto changed = Changed(ScheduleOf(*description), command.options, ::time(nullptr),
                                     core::Zone::OfSystem());
        if (!changed) return Fail(changed.error().Text(), ExitCode::Usage);
        *given = *changed;
        description->Set("scheduler", changed->ToRecord());
    } else {
        *given = {};
        description->Remove("scheduler");
    }
    BMessage store(core::code::kSetJob);
    store.Add("job_id", id);
    store.Add("job_data", *description);
    server.Send(std::move(store));
    return ExitCode::Good;
}

}  // namespace

ExitCode ShowSchedule(ServerConnection& server, const ScheduleCommand& command) {
    const auto id = ParseJobId(command.job);
    if (!id) return WrongUse(kMoreCtlNoJobNumber, command.job);
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    auto jobs = ListJobs(server);
    if (!jobs) return Fail(kMoreServerSilent);
    const ListedJob* job = Find(*jobs, *id);
    if (!job) return Fail(kMoreCtlNoSuchJob, JobIdWords(*id));
    const auto description = DescriptionOf(server, *id);
    if (!description) {
        return Fail(kMoreCtlUnfitJob, JobIdWords(*id),
                    core::TextOf(core::JobStatusTextId(job->status)));
    }
    core::Schedule schedule = ScheduleOf(*description);
    if (command.none || !command.options.IsEmpty()) {
        if (const auto code = Change(server, command, *id, &schedule); code != ExitCode::Good)
            return code;
    }
    return PrintScheduleOf(server, *id, schedule, command.json);
}

ExitCode PrintScheduleOf(ServerConnection& server, int32_t id, const core::Schedule& given,
                         bool json) {
    // One that is due may be running already; then nobody gets its description.
    const auto description = DescriptionOf(server, id);
    const auto schedule = description ? ScheduleOf(*description) : given;
    if (json) {
        nlohmann::ordered_json document{{"job_id", id}, {"number", JobIdWords(id)}};
        document.update(ScheduleJson(schedule));
        PrintJson(document);
    } else if (schedule == core::Schedule()) {
        Say(kMoreCtlScheduleNow, JobIdWords(id));
    } else if (schedule.NeverRuns()) {
        Say(kMoreCtlJobState, JobIdWords(id), core::TextOf(kMoreRunsNever));
    } else {
        Say(kMoreCtlScheduleOf, JobIdWords(id),
            core::RunsNextText(schedule.time, ::time(nullptr), core::Zone::OfSystem()),
            core::RepeatText(schedule));
    }
    return ExitCode::Good;
}

}  // namespace ctl
