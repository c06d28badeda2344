#include "server/queue/Records.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "server/reports/LineChunk.h"
#include "tests/TemporaryFolder.h"

namespace server {
namespace {

class RecordsTest : public testing::Test {
protected:
    Records Open() {
        auto records = Records::Open(folder);
        EXPECT_TRUE(records.ok());
        return std::move(*records);
    }
    static QueuedJob Job(int32_t id, const std::string& title) {
        BMessage info;
        info.Add("title", title);
        BMessage description("KTJA"_code);
        description.Add("start_info", info);
        return QueuedJob::Make(id, description, 1234);
    }
    static BMessage Lines(int first, int count) {
        LineChunk lines;
        for (int i = 0; i < count; ++i) {
            lines.AddWords(core::LineType::File, "line " + std::to_string(first + i));
        }
        return lines.Take();
    }

    const TemporaryFolder temporary;
    const std::string folder = temporary.Path();
    int unreadable = 0;  // as the last load says
};

TEST_F(RecordsTest, JobsComeBackAsTheyWereAndIdsAreNeverReused) {
    {
        auto records = Open();
        auto queue = records.Queue();
        ASSERT_TRUE(queue.Insert(Job(1, "One")).ok());
        ASSERT_TRUE(queue.Insert(Job(2, "Two")).ok());
        ASSERT_TRUE(queue.Insert(Job(3, "Three")).ok());
        QueuedJob two = Job(2, "Two, renamed");
        two.paused = true;
        ASSERT_TRUE(queue.Update(two).ok());
        ASSERT_TRUE(queue.SetStarted(1, 5678).ok());
        ASSERT_TRUE(queue.Remove(3).ok());
        EXPECT_FALSE(queue.Insert(Job(2, "Again")).ok());
    }
    auto records = Open();
    const auto jobs = records.Queue().Load(&unreadable);
    ASSERT_EQ(jobs.size(), 2u);
    EXPECT_EQ(unreadable, 0);
    EXPECT_EQ(jobs[0].started, 5678);
    EXPECT_EQ(jobs[1].job.title, "Two, renamed");
    EXPECT_TRUE(jobs[1].job.paused);
    EXPECT_EQ(jobs[1].job.submitted, 1234);
    EXPECT_EQ(records.Queue().LastId(), 3);
    ASSERT_TRUE(records.Queue().ReserveIds(2).ok());
    EXPECT_EQ(records.Queue().LastId(), 3);
    ASSERT_TRUE(records.Queue().ReserveIds(40).ok());
    EXPECT_EQ(records.Queue().LastId(), 40);
    EXPECT_EQ(records.Queue().Load(&unreadable).size(), 2u);
}

TEST_F(RecordsTest, APasswordIsNotStored) {
    auto records = Open();
    QueuedJob job = Job(1, "Secret");
    BMessage info;
    info.Add("password", "open sesame");
    job.description.Set("start_info", info);
    EXPECT_FALSE(records.Queue().Insert(job).ok());
    EXPECT_FALSE(records.Queue().Update(job).ok());
}

TEST_F(RecordsTest, WhatWasCommittedOutlivesAKill) {
    const pid_t child = ::fork();
    if (child == 0) {
        auto records = Records::Open(folder);
        const bool good = records && records->Queue().Insert(Job(1, "Kept")).ok();
        Database::Transaction open(records->File());
        (void)records->Queue().Insert(Job(2, "Not committed"));
        ::_exit(good ? 0 : 1);  // no destructor runs
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    auto records = Open();
    EXPECT_TRUE(records.Problems().empty());
    const auto jobs = records.Queue().Load(&unreadable);
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_EQ(jobs[0].job.title, "Kept");
}

TEST_F(RecordsTest, DamageIsSetAsideAndJobsAreSaved) {
    const std::string path = folder + "/" + Records::kFileName;
    {
        auto records = Open();
        for (int id = 1; id <= 40; ++id) {
            ASSERT_TRUE(records.Queue().Insert(Job(id, "Job " + std::to_string(id))).ok());
        }
        ASSERT_TRUE(records.Queue().SetStarted(7, 99).ok());
        for (int id = 1; id <= 30; ++id) {
            ASSERT_TRUE(records.Reports().Begin({id, id, 1, "R", 1}).ok());
            ASSERT_TRUE(records.Reports().Append(id, Lines(0, 3000)).ok());
        }
    }
    // The last pages belong to the reports; the jobs are at the start.
    const auto size = std::filesystem::file_size(path);
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(size * 3 / 4));
    file << std::string(size / 8, '\x5a');
    file.close();

    auto records = Open();
    ASSERT_EQ(records.Problems().size(), 2u);
    EXPECT_TRUE(std::filesystem::exists(path + ".damaged-1"));
    const auto jobs = records.Queue().Load(&unreadable);
    ASSERT_EQ(jobs.size(), 40u);
    EXPECT_EQ(jobs[6].started, 99);
    EXPECT_TRUE(records.Reports().Load(false).empty());
}

TEST_F(RecordsTest, RubbishAndNewerFilesAreSetAside) {
    const std::string path = folder + "/" + Records::kFileName;
    std::ofstream(path) << "this is no database, but longer than a header of one: "
                        << std::string(4096, 'x');
    {
        auto records = Open();
        EXPECT_FALSE(records.Problems().empty());
        ASSERT_TRUE(records.File().Execute("PRAGMA user_version=99").ok());
    }
    auto records = Open();
    EXPECT_FALSE(records.Problems().empty());
    EXPECT_TRUE(std::filesystem::exists(path + ".damaged-1"));
    EXPECT_TRUE(std::filesystem::exists(path + ".damaged-2"));
}

TEST_F(RecordsTest, ADescriptionThatIsNoMessageIsCountedNotBelieved) {
    auto records = Open();
    ASSERT_TRUE(records.Queue().Insert(Job(1, "Good")).ok());
    ASSERT_TRUE(records.Queue().Insert(Job(2, "Bad")).ok());
    ASSERT_TRUE(records.File().Execute("UPDATE jobs SET description=x'00112233' WHERE id=2").ok());
    EXPECT_EQ(records.Queue().Load(&unreadable).size(), 1u);
    EXPECT_EQ(unreadable, 1);
}

TEST_F(RecordsTest, ReportsGrowInChunksAndCountOnceFinished) {
    auto records = Open();
    auto reports = records.Reports();
    ASSERT_TRUE(reports.Begin({5, 17, 1, "A title", 777}).ok());
    ASSERT_TRUE(reports.Append(5, Lines(0, 1)).ok());
    ASSERT_TRUE(reports.Append(5, Lines(1, 2000)).ok());
    EXPECT_TRUE(reports.Load(true).empty());
    EXPECT_EQ(reports.Load(false).size(), 1u);
    ASSERT_TRUE(reports.Finish(5).ok());
    const auto list = reports.Load(true);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].jobId, 17);
    EXPECT_EQ(list[0].title, "A title");
    EXPECT_EQ(list[0].date, 777);
    EXPECT_EQ(reports.LastJobId(), 17);

    auto text = reports.Read(5);
    ASSERT_TRUE(text.ok());
    EXPECT_EQ(*text, Lines(0, 2001));
    EXPECT_FALSE(reports.Append(6, Lines(0, 1)).ok());  // there is no such report
    EXPECT_EQ(reports.Read(6).error().kind, kit::ErrorKind::NotFound);

    ASSERT_TRUE(records.File().Execute("UPDATE report_lines SET lines=x'01ffff' WHERE id=1").ok());
    EXPECT_EQ(reports.Read(5).error().kind, kit::ErrorKind::Damaged);
    ASSERT_TRUE(reports.Remove(std::vector<int32_t>{5}).ok());
    auto left = records.File().Prepare("SELECT count(*) FROM report_lines");
    ASSERT_TRUE(left.Next());
    EXPECT_EQ(left.Integer(0), 0);
    EXPECT_EQ(reports.LastId(), 5);
}

TEST(ReportDeletion, ByAgeByCountAndNothingForNoughtOrNonsense) {
    constexpr int64_t kDay = 24 * 60 * 60;
    std::vector<ReportInfo> reports;
    for (int32_t id = 1; id <= 5; ++id)
        reports.push_back({id, 0, 1, "", id * kDay});
    const auto select = [&](int32_t mode, int32_t days, int32_t count) {
        BMessage message("rpDS"_code);
        message.Add("mode", mode);
        message.Add("days", days);
        message.Add("count", count);
        ReportDeletion deletion;
        deletion.Update(message);
        return deletion.Select(reports, 6 * kDay);
    };
    using Ids = std::vector<int32_t>;
    EXPECT_EQ(select(0, 1, 1), Ids{});
    EXPECT_EQ(select(1, 3, 1), (Ids{1, 2}));
    EXPECT_EQ(select(1, 0, 1), Ids{});
    EXPECT_EQ(select(1, -3, 1), Ids{});
    EXPECT_EQ(select(1, 2147483647, 0), Ids{});
    EXPECT_EQ(select(2, 1, 2), (Ids{1, 2, 3}));
    EXPECT_EQ(select(2, 1, 9), Ids{});
    EXPECT_EQ(select(2, 1, 0), Ids{});
    EXPECT_EQ(select(7, 1, 1), Ids{});
}

}  // namespace
}  // namespace server
