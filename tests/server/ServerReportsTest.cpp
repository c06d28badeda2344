// Reports in the server's process: what is told in one, how a client gets it, and how they are
// deleted.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "tests/server/ServerFixture.h"

namespace {

using tests::Eventually;
using tests::ScriptedPeer;

class ServerReports : public tests::ServerFixture {
protected:
    ServerReports() { Start(); }
};

TEST_F(ServerReports, RefusedJobsAreReported) {
    peer->Send(Job("What", {}, "/a", 9));
    const BMessage refused = peer->WaitFor("rpIN"_code).message;
    EXPECT_EQ(refused.Get("title", std::string()), "What");
    EXPECT_EQ(refused.Get<int32_t>("job_id", -1), 0);
    EXPECT_EQ(refused.Get<int32_t>("job_type", 0), 9);
    const auto lines = Lines(OpenReport(refused.Get<int32_t>("report_id", 0)));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("3: The job was refused")) << lines[0];
}

TEST_F(ServerReports, ALargeReportComesThroughASharedArea) {
    const int32_t id = Submit(Job("Large", {"lines 100000"}));
    EXPECT_EQ(EndOf(id), 0);
    const int32_t report = peer->WaitFor("rpIN"_code).message.Get<int32_t>("report_id", 0);
    const auto begin = std::chrono::steady_clock::now();
    AskForReport(report);
    const auto where = peer->WaitFor("rpRP"_code);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(took, std::chrono::seconds(5));
    RecordProperty("milliseconds", static_cast<int>(took / std::chrono::milliseconds(1)));
    EXPECT_EQ(where.kind, ScriptedPeer::kRequest);
    EXPECT_EQ(where.token, 88);
    EXPECT_FALSE(where.message.Has("text_id"));
    const std::string name = "/velmora-" + std::to_string(house.Team()) + "-" +
                             std::to_string(where.message.Get<int32_t>("area_id", 0));
    kit::UniqueFd area(::shm_open(name.c_str(), O_RDONLY, 0));
    ASSERT_TRUE(area.IsOpen()) << name;
    struct stat status {};
    ASSERT_EQ(::fstat(area.Get(), &status), 0);
    Bytes bytes(static_cast<size_t>(status.st_size));
    ASSERT_EQ(::pread(area.Get(), bytes.data(), bytes.size(), 0), status.st_size);
    const auto size = *reinterpret_cast<const uint64_t*>(bytes.data() + 8);
    const auto text = BMessage::Unflatten(std::span(bytes).first(size));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->Get<int32_t>("report_id", 0), report);
    EXPECT_EQ(text->Count("text_id"), 100000);
    EXPECT_EQ(core::ReportLineText(*text, 99999), "/Volume/some/folder/file-99999");
    const auto isThere = [&] {
        kit::UniqueFd fd(::shm_open(name.c_str(), O_RDONLY, 0));
        return fd.IsOpen();
    };
    EXPECT_TRUE(isThere());
    peer->Answer(where, BMessage("xxxx"_code));
    EXPECT_TRUE(Eventually([&] { return !isThere(); }));
}

TEST_F(ServerReports, ReportsAreDeletedByHandAndByRule) {
    for (int i = 0; i < 4; ++i)
        EndOf(Submit(Job("Report")));
    const BMessage list = peer->Ask(BMessage("rpGL"_code));
    ASSERT_EQ(list.Count("report_id"), 4);
    BMessage remove("rpDL"_code);
    remove.Add("report_id", list.Get<int32_t>("report_id", 0, 1));
    remove.Add<int32_t>("report_id", 999);
    peer->Send(remove);
    EXPECT_EQ(peer->WaitFor("rpRM"_code).message.Get<int32_t>("report_id", 0),
              list.Get<int32_t>("report_id", 0, 1));
    EXPECT_EQ(Reports(), 3);
    EXPECT_FALSE(peer->Has("rpRM"_code));

    BMessage settings = peer->Ask(BMessage("rpDG"_code));
    EXPECT_EQ(settings.what, "rpDS"_code);
    EXPECT_EQ(settings.Get<int32_t>("mode", -1), 0);
    settings.Set<int32_t>("mode", 2);
    settings.Set<int32_t>("count", 2);
    peer->Send(settings);
    EXPECT_EQ(Reports(), 2);
    EndOf(Submit(Job("One more")));
    const BMessage left = peer->Ask(BMessage("rpGL"_code));
    ASSERT_EQ(left.Count("report_id"), 2);
    EXPECT_EQ(left.Get("title", std::string(), 1), "One more");
    EXPECT_EQ(house.Stop(), 0);
    Start();
    EXPECT_EQ(Reports(), 2);
    EXPECT_EQ(peer->Ask(BMessage("rpDG"_code)).Get<int32_t>("count", 0), 2);
}

TEST_F(ServerReports, ADamagedFileIsSetAsideAndToldInAReport) {
    Submit(With(Job("Held"), "submitonhold", 1));
    ASSERT_EQ(house.Stop(), 0);
    Scratch(house.Data() + "/records.db", 16'384, 4096);
    Start();
    const BMessage list = peer->Ask(BMessage("rpGL"_code));
    ASSERT_EQ(list.Count("report_id"), 1);
    EXPECT_EQ(list.Get("title", std::string()), "Backup server");
    EXPECT_TRUE(std::filesystem::exists(house.Data() + "/records.db.damaged-1"));
    EXPECT_GT(Submit(With(Job("New"), "submitonhold", 1)), 0);
}

}  // namespace
