// Schedules in the server's process, by a clock that the test sets, in a zone with the European
// summer time.
#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <fstream>

#include "core/locale/MoreTexts.h"
#include "kit/support/UniqueFd.h"
#include "tests/server/ServerFixture.h"

namespace {

using tests::Eventually;

constexpr int64_t kHour = 3600, kDay = 24 * kHour;

int64_t Utc(int year, unsigned month, unsigned day, int hour, int minute = 0) {
    return std::chrono::sys_seconds{std::chrono::sys_days{std::chrono::year(year) / month / day}}
               .time_since_epoch()
               .count() +
           hour * kHour + minute * 60;
}

BMessage Daily(int64_t due) {
    BMessage schedule;
    schedule.Add("TIME", BTime::FromSeconds(due));
    schedule.Add<int32_t>("Days", 1);
    return schedule;
}

class ScheduledJobsTest : public tests::ServerFixture {
protected:
    ScheduledJobsTest() {
        house.zone = "CET-1CEST,M3.5.0,M10.5.0/3";
        SetClock(kStart);
        Start();
    }
    // A running server has heard of it when this returns.
    void SetClock(int64_t now) const {
        const std::string file = house.ServerFolder() + "/clock";
        std::ofstream(file + ".new") << now;
        std::filesystem::rename(file + ".new", file);
        if (house.Team() == 0) return;
        EXPECT_TRUE(Eventually([&] {
            std::string seen;
            std::ifstream(file + "-seen") >> seen;
            return seen == std::to_string(now) + ".";
        }));
    }
    int32_t Submit(const BMessage& schedule, const std::vector<std::string>& script = {},
                   bool hold = false, const std::string& path = "/somewhere") {
        BMessage job = Job("Planned", script, path);
        if (hold) job = With(job, "submitonhold", 1);
        job.Add("scheduler", schedule);
        return ServerFixture::Submit(job);
    }
    // Stores the job as `change` leaves it.
    void Edit(int32_t id, const std::function<void(BMessage&)>& change) {
        BMessage job = peer->Ask(About("KTjg"_code, id));
        EXPECT_FALSE(job.Has("series"));
        change(job);
        BMessage set = About("KTjs"_code, id);
        set.Add("job_data", job);
        peer->Send(set);
    }
    struct Listed {
        int32_t status = 0;  // 0: it is not listed
        int64_t date = 0;
    };
    Listed JobOf(int32_t id) {
        const BMessage list = peer->Ask(BMessage("KTJL"_code));
        for (int32_t i = 0; i < list.Count("job_id"); ++i) {
            if (list.Get<int32_t>("job_id", 0, i) == id)
                return {list.Get<int32_t>("jobstatus", 0, i), list.Get("date", BTime(), i).seconds};
        }
        return {};
    }
    int32_t Status(int32_t id) { return JobOf(id).status; }
    // The next run of a job that has just run: its number and its date.
    std::pair<int32_t, int64_t> NextOf(int32_t id) {
        const auto hasRun = [&](const BMessage& message) {
            return Of(id)(message) && message.Has("new_id");
        };
        const BMessage change = peer->WaitFor("KTjc"_code, hasRun).message;
        EXPECT_EQ(change.Get<int32_t>("jobstatus", 0), 1);
        return {change.Get<int32_t>("new_id", 0), change.Get("date", BTime()).seconds};
    }
    static constexpr int64_t kStart = 1'769'853'600;  // 2026-01-31 11:00 by the clocks there
};

TEST_F(ScheduledJobsTest, RunsAtTheEndOfEveryMonthAtNoon) {
    ASSERT_EQ(kStart, Utc(2026, 1, 31, 10));
    BMessage schedule;
    schedule.Add("TIME", BTime::FromSeconds(Utc(2026, 1, 31, 11)));
    schedule.Add<int32_t>("Months", 1);
    schedule.Add("Sunday", true);  // 2026-05-31 and 2027-01-31 are
    int32_t id = Submit(schedule);
    int64_t due = JobOf(id).date;
    EXPECT_EQ(due, Utc(2026, 1, 31, 11));
    const std::vector<int64_t> expected{
        Utc(2026, 2, 28, 11),  Utc(2026, 3, 31, 10),  Utc(2026, 4, 30, 10),  Utc(2026, 6, 1, 10),
        Utc(2026, 6, 30, 10),  Utc(2026, 7, 31, 10),  Utc(2026, 8, 31, 10),  Utc(2026, 9, 30, 10),
        Utc(2026, 10, 31, 11), Utc(2026, 11, 30, 11), Utc(2026, 12, 31, 11), Utc(2027, 2, 1, 11),
        Utc(2027, 3, 1, 11),  // 2027-02-28 is a Sunday, too
    };
    for (const int64_t next : expected) {
        SetClock(due - 1);
        EXPECT_EQ(Status(id), 1);
        SetClock(due);
        const auto [newId, date] = NextOf(id);
        EXPECT_GT(newId, id);
        EXPECT_EQ(date, next);
        EXPECT_EQ(Status(id), 0);
        EXPECT_EQ(JobOf(newId).date, next);
        id = newId;
        due = next;
    }
    EXPECT_EQ(Reports(), static_cast<int>(expected.size()));
}

TEST_F(ScheduledJobsTest, AMissedTimeRunsOnceAndOnlyOnce) {
    const int32_t id = Submit(Daily(kStart + kHour));
    house.Kill();
    SetClock(kStart + 10 * kDay);
    Start();
    // Whoever connects may be too late for the notice.
    ASSERT_TRUE(Eventually([&] { return Status(id) == 0 && Reports() == 1; }));
    const BMessage list = peer->Ask(BMessage("KTJL"_code));
    ASSERT_EQ(list.Count("job_id"), 1);
    EXPECT_EQ(list.Get("date", BTime()).seconds, kStart + 10 * kDay + kHour);
    KillAndStart();
    EXPECT_EQ(JobOf(list.Get<int32_t>("job_id", 0)).status, 1);
    EXPECT_EQ(Reports(), 1);
}

TEST_F(ScheduledJobsTest, TheClockIsSet) {
    int32_t id = Submit(Daily(kStart + kHour));
    SetClock(kStart + 300 * kDay);  // ahead by mistake: what became due runs, once
    auto [next, date] = NextOf(id);
    EXPECT_EQ(date, kStart + 300 * kDay + kHour);
    id = next;
    SetClock(kStart + kDay);  // and back: it is not left waiting for most of a year
    const auto isMoved = [&](const BMessage& message) {
        return Of(id)(message) && message.Has("date");
    };
    const BMessage change = peer->WaitFor("KTjc"_code, isMoved).message;
    EXPECT_EQ(change.Get("date", BTime()).seconds, kStart + kDay + kHour);
    SetClock(kStart + kDay + kHour);
    std::tie(next, date) = NextOf(id);
    EXPECT_EQ(date, kStart + 2 * kDay + kHour);
    // Back by a little: what has run does not run again.
    SetClock(kStart + kDay + kHour - 600);
    EXPECT_EQ(JobOf(next).date, date);
    SetClock(kStart + kDay + kHour + 600);
    EXPECT_EQ(Status(next), 1);
    EXPECT_EQ(Reports(), 2);
}

TEST_F(ScheduledJobsTest, EveryStateOutlivesAKill) {
    // What has begun is on the disk.
    const auto longOne = [&](const char* begun) {
        return std::vector<std::string>{"touch " + File(begun), "until " + File("never")};
    };
    const auto hasBegun = [&](const char* begun) {
        return Eventually([&] { return std::filesystem::exists(File(begun)); });
    };
    const int32_t held = Submit(Daily(kStart + kHour), {}, true);
    const int32_t waiting = Submit(Daily(kStart + kHour));
    const int32_t paused = Submit(Daily(kStart + 2 * kHour));
    Tell("KTJP"_code, paused);
    const int32_t edited = Submit(Daily(kStart + 3 * kHour));
    Tell("KTje"_code, edited, "edit", 1);
    EXPECT_EQ(Status(edited), 4);
    const int32_t running = Submit(Daily(kStart - kHour), longOne("a"), false, "/a");
    ASSERT_TRUE(hasBegun("a"));
    const int32_t pausedRunning = Submit(Daily(kStart - kHour), longOne("b"), false, "/b");
    ASSERT_TRUE(hasBegun("b"));
    Tell("KTJP"_code, pausedRunning);
    const int32_t third = Submit(Daily(kStart - kHour), longOne("c"), false, "/c");
    EXPECT_EQ(Status(third), 1);  // two at most side by side

    KillAndStart();
    EXPECT_EQ(Status(held), 3);
    EXPECT_EQ(Status(waiting), 1);
    EXPECT_EQ(JobOf(waiting).date, kStart + kHour);
    EXPECT_EQ(Status(paused), 3);
    EXPECT_EQ(Status(edited), 1);
    EXPECT_EQ(Status(running), 0);
    EXPECT_EQ(Status(pausedRunning), 0);
    // Their next runs stay, under new numbers.
    for (const int32_t id : {third + 1, third + 2}) {
        EXPECT_EQ(Status(id), 1) << id;
        EXPECT_EQ(JobOf(id).date, kStart - kHour + kDay) << id;
    }
    ASSERT_TRUE(Eventually([&] { return Status(third) == 2; }));
    EXPECT_EQ(Reports(), 2);

    // Held and paused jobs let their time pass, and run when they are let go.
    SetClock(kStart + 5 * kHour);
    EXPECT_EQ(Status(held), 3);
    Tell("KTJC"_code, held);
    EXPECT_EQ(NextOf(held).second, kStart + kDay + kHour);
}

TEST_F(ScheduledJobsTest, EditedDeletedAborted) {
    int32_t id = Submit(Daily(kStart + kHour));
    Tell("KTje"_code, id, "edit", 1);
    ASSERT_EQ(Status(id), 4);  // the clock does not wait for what was told
    SetClock(kStart + 2 * kHour);
    EXPECT_EQ(Status(id), 4);
    // What an editor shows and sends back says the time to the minute.
    Edit(id, [&](BMessage& job) { job.Add("script", "until " + File("never")); });
    Tell("KTje"_code, id, "edit", 0);
    WaitForStatus(id, 2);
    // Aborted it goes on with its next run; deleted it does not.
    Tell("KTJD"_code, id, "flag", 1);
    int64_t date = 0;
    std::tie(id, date) = NextOf(id);
    EXPECT_EQ(date, kStart + kDay + kHour);
    SetClock(date);
    WaitForStatus(id, 2);
    Tell("KTJD"_code, id);
    peer->WaitFor("KTJR"_code);
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);

    // Started by hand before its time: the time stays.
    id = Submit(Daily(date + kHour));
    Tell("KTbg"_code, id);
    EXPECT_EQ(NextOf(id).second, date + kHour);
}

TEST_F(ScheduledJobsTest, TwoDueAtOnceTakeTurnsAtOneDestination) {
    const int32_t first = Submit(Daily(kStart + kHour), {"until " + File("go")});
    const int32_t second = Submit(Daily(kStart + kHour), {});
    SetClock(kStart + kHour);
    WaitForStatus(first, 2);
    EXPECT_EQ(Status(second), 1);
    Touch("go");
    NextOf(first);
    NextOf(second);
}

TEST_F(ScheduledJobsTest, AJobWithoutAllowedDaysStaysAndIsReported) {
    BMessage schedule = Daily(kStart - kHour);
    for (const char* day :
         {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"})
        schedule.Add(day, true);
    const int32_t id = Submit(schedule);
    const BMessage report = peer->WaitFor("rpIN"_code).message;
    EXPECT_EQ(report.Get<int32_t>("job_id", 0), id);
    EXPECT_FALSE(report.Has("overdue"));
    SetClock(kStart + kDay);
    EXPECT_EQ(Status(id), 1);
    Tell("KTbg"_code, id);
    EXPECT_GT(NextOf(id).first, id);
}

TEST_F(ScheduledJobsTest, TheMachineStaysAwakeWhileAJobRunsButNotWhileItIsPaused) {
    const std::string file = house.ServerFolder() + "/awake";
    const auto isHeld = [&] {
        const kit::UniqueFd lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        return ::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0;
    };
    EXPECT_FALSE(isHeld());
    const int32_t id = Submit({}, {"until " + File("go")});
    ASSERT_TRUE(Eventually(isHeld));
    Tell("KTJP"_code, id);
    ASSERT_TRUE(Eventually([&] { return !isHeld(); }));
    Tell("KTJC"_code, id);
    ASSERT_TRUE(Eventually(isHeld));
    Touch("go");
    peer->WaitFor("KTJR"_code);
    EXPECT_FALSE(isHeld());

    EXPECT_EQ(OpenReport(1).Get<int32_t>("text_id", 0), core::kMoreKeptAwake);
}

TEST_F(ScheduledJobsTest, MissingGoodRunsAreToldOnceADay) {
    const auto overdue = [](const BMessage& message) { return message.Get("overdue", false); };
    const int64_t due = kStart + kHour;
    int32_t id = Submit(Daily(due), {"end 2"});  // fails day by day
    for (int64_t day = 0; day < 3; ++day) {
        SetClock(due + day * kDay);
        if (day == 2) {
            // For longer than its interval and a day.
            peer->WaitFor("rpIN"_code, overdue);
        }
        id = NextOf(id).first;
    }
    const int reports = Reports();
    EXPECT_EQ(reports, 4);
    // Not again on the same day, whatever happens; but on the next.
    SetClock(due + 3 * kDay - 1);
    KillAndStart();
    EXPECT_EQ(Status(id), 1);
    EXPECT_EQ(Reports(), reports);
    SetClock(due + 3 * kDay);
    const BMessage told = peer->WaitFor("rpIN"_code, overdue).message;
    EXPECT_EQ(told.Get("title", std::string()), "Planned");
    EXPECT_NE(told.Get<int32_t>("job_id", 0), 0);

    // Mended, it runs well, and all is quiet.
    id = NextOf(id).first;
    Edit(id, [](BMessage& job) { job.Remove("script"); });
    for (int64_t day = 4; day < 8; ++day) {
        SetClock(due + day * kDay - 1);
        EXPECT_EQ(Status(id), 1);
        SetClock(due + day * kDay);
        id = NextOf(id).first;
    }
    EXPECT_EQ(Reports(), reports + 2 + 4);
}

}  // namespace
