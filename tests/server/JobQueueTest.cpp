#include "server/queue/JobQueue.h"

#include <gtest/gtest.h>

#include "server/queue/JobDescription.h"

namespace server {
namespace {

using core::JobStatus;

BMessage Description(const std::string& title, const std::string& path, int64_t due = 0,
                     bool hold = false) {
    BMessage info;
    info.Add("title", title);
    if (hold) info.Add<int32_t>("submitonhold", 1);
    BMessage volume;
    volume.Add("addon", "KTImage");
    volume.Add("path", path);
    BMessage job("KTJA"_code);
    job.Add<int32_t>("job_type", 1);
    job.Add("addon", "KTImage");
    job.Add("volume", volume);
    job.Add("start_info", info);
    if (due > 0) {
        BMessage schedule;
        schedule.Add("TIME", BTime::FromSeconds(due));
        job.Add("scheduler", schedule);
    }
    return job;
}

class JobQueueTest : public testing::Test {
protected:
    int32_t Add(const std::string& path, int64_t due = 0, bool hold = false) {
        ++lastId;
        queue.Insert(QueuedJob::Make(lastId, Description("Job", path, due, hold), 1000 + lastId));
        return lastId;
    }
    // Starts whatever may start, as the server does; the ids in order.
    std::vector<int32_t> Start(int64_t now) {
        std::vector<int32_t> started;
        while (auto id = queue.NextToStart(now)) {
            EXPECT_TRUE(queue.SetRunning(*id));
            started.push_back(*id);
        }
        return started;
    }
    JobStatus Status(int32_t id) const { return queue.Find(id)->Status(); }

    JobQueue queue;
    int32_t lastId = 0;
};

using Ids = std::vector<int32_t>;

TEST_F(JobQueueTest, OneDestinationInTurnTwoAtMost) {
    Add("/a");
    Add("/a/");  // the same place in other words
    Add("/b");
    Add("/c");
    EXPECT_EQ(Start(5000), (Ids{1, 3}));
    EXPECT_TRUE(queue.Ended(1));
    EXPECT_EQ(Start(5000), (Ids{2}));
    EXPECT_TRUE(queue.Ended(2));
    EXPECT_TRUE(queue.Ended(3));
    EXPECT_EQ(Start(5000), (Ids{4}));
    EXPECT_FALSE(queue.Ended(3));
}

TEST_F(JobQueueTest, AJobInTheFutureWaitsForItsTimeAndHoldsUpNobody) {
    Add("/a", 9000);
    Add("/a", 8000);
    Add("/a");
    EXPECT_EQ(queue.NextDue(5000), 8000);
    EXPECT_EQ(Start(5000), (Ids{3}));
    queue.Ended(3);
    EXPECT_EQ(Start(7999), Ids{});
    EXPECT_EQ(Start(9500), (Ids{2}));  // both are due: the earlier one first
    EXPECT_EQ(queue.NextDue(9500), std::nullopt);
}

TEST_F(JobQueueTest, StartNowGoesFirstButKeepsTheTurns) {
    Add("/a");
    Add("/a");
    Add("/b", 9000);
    EXPECT_EQ(Start(5000), (Ids{1}));
    Add("/a");
    EXPECT_TRUE(queue.StartNow(4));
    EXPECT_TRUE(queue.StartNow(3));
    EXPECT_FALSE(queue.StartNow(3));
    EXPECT_FALSE(queue.StartNow(1));
    EXPECT_EQ(Start(5000), (Ids{3}));
    queue.Ended(1);
    EXPECT_EQ(Start(5000), (Ids{4}));
}

TEST_F(JobQueueTest, PausedJobsDoNotStartAndRunningOnesKeepTheirPlace) {
    Add("/a", 0, true);
    Add("/a");
    EXPECT_EQ(Status(1), JobStatus::Paused);
    EXPECT_FALSE(queue.StartNow(1));
    EXPECT_EQ(Start(5000), (Ids{2}));
    EXPECT_TRUE(queue.Pause(2));
    EXPECT_FALSE(queue.Pause(2));
    EXPECT_EQ(Status(2), JobStatus::Paused);
    EXPECT_TRUE(queue.Continue(1));
    EXPECT_EQ(Start(5000), Ids{});  // the paused run still has the destination
    EXPECT_TRUE(queue.Continue(2));
    EXPECT_EQ(Status(2), JobStatus::Running);
    EXPECT_FALSE(queue.Continue(2));
}

TEST_F(JobQueueTest, EditedJobsWaitAndBecomeWhatTheyWere) {
    Add("/a");
    Add("/b", 0, true);
    constexpr int32_t kOne = 100, kOther = 200;
    EXPECT_TRUE(queue.MarkEdited(1, kOne));
    EXPECT_TRUE(queue.MarkEdited(1, kOther));
    EXPECT_TRUE(queue.MarkEdited(2, kOther));
    EXPECT_EQ(Status(1), JobStatus::Edited);
    EXPECT_EQ(Start(5000), Ids{});
    EXPECT_FALSE(queue.Pause(1));
    EXPECT_FALSE(queue.Continue(2));
    EXPECT_EQ(queue.Delete(1, false), JobQueue::Deletion::Unfit);
    EXPECT_TRUE(queue.Unmark(1, kOne));
    EXPECT_FALSE(queue.Unmark(1, kOne));
    EXPECT_EQ(Status(1), JobStatus::Edited);  // somebody else still has it open
    EXPECT_EQ(queue.ReleaseEditor(kOther), (Ids{1, 2}));
    EXPECT_EQ(Status(1), JobStatus::Waiting);
    EXPECT_EQ(Status(2), JobStatus::Paused);
    EXPECT_EQ(Start(5000), (Ids{1}));
    EXPECT_FALSE(queue.MarkEdited(1, kOne));
    EXPECT_FALSE(queue.Change(1, Description("New", "/a")));
    EXPECT_TRUE(queue.Change(2, Description("New", "/z", 7000)));
    EXPECT_EQ(queue.Find(2)->title, "New");
    EXPECT_EQ(queue.Find(2)->Date(), 7000);
    EXPECT_EQ(Status(2), JobStatus::Paused);
}

TEST_F(JobQueueTest, DeletingAndAborting) {
    Add("/a");
    Add("/a");
    Add("/b", 0, true);
    Start(5000);
    EXPECT_EQ(queue.Delete(1, false), JobQueue::Deletion::MustAbort);
    EXPECT_EQ(queue.Delete(1, true), JobQueue::Deletion::MustAbort);
    EXPECT_EQ(queue.Delete(2, true), JobQueue::Deletion::Unfit);
    EXPECT_EQ(queue.Delete(2, false), JobQueue::Deletion::Removed);
    EXPECT_EQ(queue.Delete(3, true), JobQueue::Deletion::Removed);
    EXPECT_EQ(queue.Delete(3, true), JobQueue::Deletion::Unfit);
    EXPECT_EQ(queue.Find(2), nullptr);
    EXPECT_EQ(queue.Jobs().size(), 1u);
}

TEST(JobDescription, OneValueOfRepeatedFieldsAndNoPassword) {
    BMessage info;
    info.Add("title", "T");
    info.Add("password", "secret");
    info.Add<int32_t>("passonoff", 1);
    info.Add("winpos", BRect{});
    BMessage job("KTJA"_code);
    for (const int32_t id : {7, 8, 9})
        job.Add("client_id", id);
    for (const char* name : {"KTImage", "KTOther"}) {
        job.Add("addon", name);
        job.Add("bak_addonpacker", name);
        job.Add("compare", name);
    }
    job.Add<int32_t>("job_id", 5);
    job.Add("winpos", BRect{});
    job.Add("selectionpath", "/x");
    job.Add("password", "secret");
    job.Add("start_info", info);
    EXPECT_TRUE(description::HasPassword(job));

    const BMessage kept = description::Cleaned(job);
    EXPECT_EQ(kept.Count("client_id"), 1);
    EXPECT_EQ(kept.Get<int32_t>("client_id", 0), 9);
    for (const char* name : {"addon", "bak_addonpacker", "compare"}) {
        EXPECT_EQ(kept.Count(name), 1) << name;
        EXPECT_EQ(kept.Get(name, std::string()), "KTImage") << name;
    }
    for (const char* name : {"job_id", "winpos", "selectionpath", "password"}) {
        EXPECT_FALSE(kept.Has(name)) << name;
    }
    const Bytes flat = kept.Flatten();
    const std::string bytes(flat.begin(), flat.end());
    EXPECT_EQ(bytes.find("secret"), std::string::npos);
    EXPECT_EQ(bytes.find("winpos"), std::string::npos);
    EXPECT_TRUE(description::WantsProtection(kept));
}

TEST(JobDescription, KindsOfJobs) {
    BMessage job("KTJA"_code);
    EXPECT_EQ(description::TypeOf(job), core::JobType::Full);
    for (const int32_t wrong : {0, 7, -1}) {
        job.Set("job_type", wrong);
        EXPECT_EQ(description::TypeOf(job), std::nullopt);
        EXPECT_EQ(description::RawTypeOf(job), wrong);
    }
    BMessage text("KTJA"_code);
    text.Add("job_type", "1");
    EXPECT_EQ(description::TypeOf(text), std::nullopt);
}

TEST(JobDescription, AnEditedJobKeepsItsProtectionAndTakesATopLevelTitle) {
    BMessage former = Description("Old", "/a");
    BMessage info = former.Get("start_info", BMessage());
    info.Add<int32_t>("passonoff", 1);
    former.Set("start_info", info);
    former.Add<int32_t>("client_id", 77);
    description::SetProtection(former, {"age1old", {1, 2, 3}});

    BMessage edited = Description("Old", "/b");
    description::SetProtection(edited, {"age1another", {4}});
    edited.Add("title", "New");
    edited.Add<int32_t>("job_id", 3);
    const BMessage job = description::Edited(former, edited);
    EXPECT_EQ(description::TitleOf(job), "New");
    EXPECT_FALSE(job.Has("title"));
    EXPECT_TRUE(description::WantsProtection(job));
    const auto protection = description::ProtectionOf(job);
    ASSERT_TRUE(protection);
    EXPECT_EQ(protection->recipient, "age1old");
    EXPECT_EQ(protection->keyFile, (Bytes{1, 2, 3}));
    EXPECT_EQ(job.Get<int32_t>("client_id", 0), 77);
    EXPECT_NE(description::DestinationOf(job), description::DestinationOf(former));

    // Nobody can make a job protected after the fact: there is no key for it.
    BMessage wish = edited;
    info.Set("password", "secret");
    wish.Set("start_info", info);
    const BMessage open = description::Edited(Description("Old", "/a"), wish);
    EXPECT_FALSE(description::WantsProtection(open));
    EXPECT_FALSE(description::ProtectionOf(open));
    // What is left of a damaged one must not look like none.
    BMessage damaged = former;
    damaged.Remove("protection");
    damaged.Add("protection", "nonsense");
    ASSERT_TRUE(description::ProtectionOf(damaged));
    EXPECT_EQ(description::ProtectionOf(damaged)->recipient, "");
}

TEST(JobDescription, DestinationsAreToldApartByPlaceOnly) {
    const auto key = [](const char* addon, const char* path, int64_t size) {
        BMessage volume;
        volume.Add("addon", addon);
        volume.Add("path", path);
        volume.Add("mediasize", size);
        BMessage job("KTJA"_code);
        job.Add("addon", addon);
        job.Add("volume", volume);
        return description::DestinationOf(job);
    };
    EXPECT_EQ(key("KTImage", "/a/b", 0), key("KTImage", "/a/./b//", 700));
    EXPECT_NE(key("KTImage", "/a/b", 0), key("KTImage", "/a/c", 0));
    EXPECT_NE(key("KTImage", "/a/b", 0), key("KTRemote", "/a/b", 0));
}

}  // namespace
}  // namespace server
