// The server's process, driven by peers that speak the protocol by themselves. Its engine plays
// scripts. Codes and numbers are written out: a constant may be wrong.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <fstream>
#include <map>

#include "core/locale/KTLocale.h"
#include "core/locale/TextTable.h"
#include "core/report/ReportLines.h"
#include "tests/support/ServerHouse.h"

namespace {

using tests::Eventually;
using tests::ScriptedPeer;
using tests::ServerHouse;

class BackupServerTest : public testing::Test {
protected:
    BackupServerTest() : house(VELMORA_FAKE_SERVER) {
        KTLocale::GetInstance()->SetDefaultText(core::kTextTable.data(), core::kTextCount,
                                                "English");
        house.Start();
        peer = house.ConnectClient();
        AcceptPanels(*peer);
    }

    // Answers 'KTJS' by a panel with token 77.
    static void AcceptPanels(ScriptedPeer& client) {
        client.SetAnswers([&client](const BMessage& question) -> std::optional<BMessage> {
            if (question.what != "KTJS"_code) return std::nullopt;
            BMessage answer("KTAB"_code);
            answer.Add("job_id", question.Get<int32_t>("job_id", 0));
            answer.Add("user", client.Self(77));
            return answer;
        });
    }
    BMessage Job(const std::string& title, const std::vector<std::string>& script = {},
                 const std::string& path = "/somewhere", int32_t type = 1) const {
        BMessage info;
        info.Add("title", title);
        BMessage volume;
        volume.Add("addon", "KTImage");
        volume.Add("path", path);
        BMessage job("KTJA"_code);
        job.Add("client_id", peer->Team());
        job.Add("job_type", type);
        job.Add("addon", "KTImage");
        job.Add("volume", volume);
        job.Add("start_info", info);
        for (const auto& step : script)
            job.Add("script", step);
        return job;
    }
    static BMessage With(BMessage job, const char* name, int32_t value) {
        BMessage info = job.Get("start_info", BMessage());
        info.Set(name, value);
        job.Set("start_info", info);
        return job;
    }
    static BMessage About(uint32_t code, int32_t id) {
        BMessage message(code);
        message.Add("job_id", id);
        return message;
    }
    static BMessage Delete(int32_t id, bool abort) {
        BMessage message = About("KTJD"_code, id);
        if (abort) message.Add<int32_t>("flag", 1);
        return message;
    }
    int32_t Submit(const BMessage& job) {
        peer->Send(job);
        return peer->WaitFor("KTJI"_code).message.Get<int32_t>("job_id", 0);
    }
    static ScriptedPeer::Condition Of(int32_t id, const char* field = nullptr, int32_t value = 0) {
        return [=](const BMessage& message) {
            return message.Get<int32_t>("job_id", -1) == id &&
                   (!field || message.Get<int32_t>(field, -1) == value);
        };
    }
    int32_t EndOf(int32_t id) {
        return peer->WaitFor("KTJf"_code, Of(id)).message.Get<int32_t>("status", -1);
    }
    // The lines of the newest report of a job, as "linetype: text".
    std::vector<std::string> ReportOf(int32_t jobId) {
        const BMessage list = peer->Ask(BMessage("rpGL"_code));
        int32_t report = 0;
        for (int32_t i = 0; i < list.Count("report_id"); ++i) {
            if (list.Get<int32_t>("job_id", 0, i) == jobId)
                report = list.Get<int32_t>("report_id", 0, i);
        }
        return Lines(OpenReport(report));
    }
    BMessage OpenReport(int32_t report) {
        BMessage open("rpOP"_code);
        open.Add("report_id", report);
        open.Add("user", peer->Self(88));
        peer->Send(open);
        return peer->WaitFor("rpRP"_code).message;
    }
    static std::vector<std::string> Lines(const BMessage& report) {
        std::vector<std::string> lines;
        for (int32_t i = 0; i < report.Count("text_id"); ++i) {
            lines.push_back(std::to_string(report.Get<int32_t>("linetype", 0, i)) + ": " +
                            core::ReportLineText(report, i));
        }
        return lines;
    }
    std::string File(const std::string& name) const { return house.Root() + "/" + name; }
    void Touch(const std::string& name) const { std::ofstream(File(name)) << "x"; }

    ServerHouse house;
    std::unique_ptr<ScriptedPeer> peer;
};

TEST_F(BackupServerTest, AJobFromSubmissionToReport) {
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).what, "NONE"_code);
    peer->Send(Job("Nightly", {"line 4 Data", "line 7 detail", "line 3 trouble", "progress 5 10",
                               "until " + File("go"), "end 2"}));
    const BMessage inserted = peer->WaitFor("KTJI"_code).message;
    const int32_t id = inserted.Get<int32_t>("job_id", 0);
    EXPECT_GT(id, 0);
    EXPECT_EQ(inserted.Get("title", std::string()), "Nightly");
    EXPECT_EQ(inserted.Get<int32_t>("jobstatus", 0), 1);
    EXPECT_EQ(inserted.Get<int32_t>("job_type", 0), 1);
    EXPECT_GT(inserted.Get("date", BTime()).seconds, 0u);
    EXPECT_EQ(inserted.Get("base", true), false);
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 2));
    const auto start = peer->WaitFor("KTJS"_code, Of(id));
    EXPECT_EQ(start.kind, ScriptedPeer::kRequest);
    EXPECT_EQ(start.token, -1);
    EXPECT_EQ(start.message.Get("title", std::string()), "Nightly");

    const auto progress = peer->WaitFor("KTJF"_code, Of(id, "linetype", 100));
    EXPECT_EQ(progress.token, 77);
    EXPECT_EQ(progress.message.Get<int64_t>("size", 0), 5);
    EXPECT_EQ(progress.message.Get<int64_t>("maxsize", 0), 10);
    EXPECT_EQ(core::ReportLineText(progress.message), "/Volume/file");
    EXPECT_EQ(core::ReportLineText(peer->WaitFor("KTJF"_code, Of(id, "linetype", 4)).message),
              "Data");
    EXPECT_EQ(core::ReportLineText(peer->WaitFor("KTJF"_code, Of(id, "linetype", 3)).message),
              "trouble");
    const BMessage running = peer->Ask(BMessage("KTJL"_code));
    EXPECT_EQ(running.what, "KTJI"_code);
    EXPECT_EQ(running.Get<int32_t>("jobstatus", 0), 2);
    EXPECT_EQ(peer->Ask(About("KTjg"_code, id)).what, "NONE"_code);

    Touch("go");
    EXPECT_EQ(EndOf(id), 2);
    // Whoever hears of the end finds everything else in place.
    const BMessage reported = peer->WaitFor("rpIN"_code).message;
    EXPECT_EQ(reported.Get<int32_t>("job_id", 0), id);
    EXPECT_EQ(reported.Get("title", std::string()), "Nightly");
    EXPECT_EQ(reported.Get<int32_t>("job_type", 0), 1);
    peer->WaitFor("KTJR"_code, Of(id));
    EXPECT_EQ(ReportOf(id), (std::vector<std::string>{"4: Data", "7: detail", "3: trouble"}));
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_FALSE(peer->Has("KTJf"_code));
}

TEST_F(BackupServerTest, TwoSideBySideOneDestinationInTurn) {
    const std::string wait = "until " + File("go");
    const int32_t first = Submit(Job("1", {wait}, "/a"));
    const int32_t second = Submit(Job("2", {wait}, "/a/"));
    const int32_t third = Submit(Job("3", {wait}, "/b"));
    const int32_t fourth = Submit(Job("4", {wait}, "/c"));
    EXPECT_LT(first, second);
    const BMessage list = peer->Ask(BMessage("KTJL"_code));
    std::map<int32_t, int32_t> states;
    for (int32_t i = 0; i < list.Count("job_id"); ++i) {
        states[list.Get<int32_t>("job_id", 0, i)] = list.Get<int32_t>("jobstatus", 0, i);
    }
    EXPECT_EQ(states,
              (std::map<int32_t, int32_t>{{first, 2}, {second, 1}, {third, 2}, {fourth, 1}}));
    Touch("go");
    for (const int32_t id : {first, second, third, fourth})
        EXPECT_EQ(EndOf(id), 0);
}

TEST_F(BackupServerTest, PauseContinueAbort) {
    const int32_t id = Submit(Job("Long", {"until " + File("never")}));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 2));
    peer->Send(About("KTJP"_code, id));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 3));
    peer->Send(About("KTJP"_code, id));  // unfit, ignored
    peer->Send(About("KTJC"_code, id));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 2));
    peer->Send(About("KTJP"_code, id));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 3));
    const auto asked = std::chrono::steady_clock::now();
    peer->Send(Delete(id, true));
    EXPECT_EQ(EndOf(id), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(2));
    EXPECT_FALSE(peer->Has("KTjc"_code));

    const int32_t other = Submit(Job("Long", {"until " + File("never")}));
    peer->WaitFor("KTjc"_code, Of(other, "jobstatus", 2));
    peer->Send(Delete(other, false));
    EXPECT_EQ(EndOf(other), 1);
    peer->WaitFor("KTJR"_code, Of(other));
}

TEST_F(BackupServerTest, OnHoldEditedRenamedAndDeleted) {
    peer->Send(With(Job("Held"), "submitonhold", 1));
    const BMessage inserted = peer->WaitFor("KTJI"_code).message;
    const int32_t id = inserted.Get<int32_t>("job_id", 0);
    EXPECT_EQ(inserted.Get<int32_t>("jobstatus", 0), 3);

    BMessage edit = About("KTje"_code, id);
    edit.Add<int32_t>("edit", 1);
    peer->Send(edit);
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 4));
    BMessage data = peer->Ask(About("KTjg"_code, id));
    EXPECT_EQ(data.what, "KTJA"_code);
    EXPECT_EQ(data.Get<int32_t>("job_id", 0), id);
    EXPECT_FALSE(data.Has("client_id"));
    EXPECT_EQ(data.Get("volume", BMessage()).Get("path", std::string()), "/somewhere");

    data.Add("title", "Renamed");
    BMessage schedule;
    schedule.Add("TIME", BTime{4102444800u});  // 2100
    data.Add("scheduler", schedule);
    BMessage store = About("KTjs"_code, id);
    store.Add("job_data", data);
    peer->Send(store);
    const BMessage changed =
        peer->WaitFor("KTjc"_code, [](const BMessage& m) { return m.Has("title"); }).message;
    EXPECT_EQ(changed.Get("title", std::string()), "Renamed");
    EXPECT_EQ(changed.Get("date", BTime()).seconds, 4102444800u);
    EXPECT_FALSE(changed.Has("jobstatus"));
    EXPECT_FALSE(changed.Has("job_type"));

    edit.Set<int32_t>("edit", 0);
    peer->Send(edit);
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 3));
    peer->Send(About("KTJC"_code, id));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 1));
    const BMessage again = peer->Ask(About("KTjg"_code, id));
    EXPECT_EQ(again.Get("start_info", BMessage()).Get("title", std::string()), "Renamed");
    EXPECT_FALSE(again.Has("title"));

    peer->Send(Delete(id, true));  // it waits: there is nothing to abort
    EXPECT_FALSE(peer->Has("KTJR"_code));
    peer->Send(About("KTbg"_code, id));  // its time is in 2100, but the user wants it now
    EXPECT_EQ(EndOf(id), 0);

    const int32_t gone = Submit(With(Job("Held"), "submitonhold", 1));
    EXPECT_GT(gone, id);
    peer->Send(Delete(gone, false));
    peer->WaitFor("KTJR"_code, Of(gone));
    for (const uint32_t unfit : {"KTJC"_code, "KTJP"_code, "KTJD"_code, "KTbg"_code, "KTjs"_code}) {
        peer->Send(About(unfit, gone));
    }
    EXPECT_EQ(peer->Ask(About("KTjg"_code, gone)).what, "NONE"_code);
}

TEST_F(BackupServerTest, ADueJobStartsByItself) {
    BMessage job = Job("Soon");
    BMessage schedule;
    schedule.Add("TIME", BTime::FromSeconds(::time(nullptr) + 2));
    job.Add("scheduler", schedule);
    const int32_t id = Submit(job);
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).Get<int32_t>("jobstatus", 0), 1);
    EXPECT_EQ(EndOf(id), 0);
}

TEST_F(BackupServerTest, RefusedJobsAreReported) {
    peer->Send(Job("What", {}, "/a", 9));
    const BMessage refused = peer->WaitFor("rpIN"_code).message;
    EXPECT_EQ(refused.Get("title", std::string()), "What");
    EXPECT_EQ(refused.Get<int32_t>("job_id", -1), 0);
    EXPECT_EQ(refused.Get<int32_t>("job_type", 0), 9);
    const auto lines = Lines(OpenReport(refused.Get<int32_t>("report_id", 0)));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("3: The job was refused")) << lines[0];
}

TEST_F(BackupServerTest, APasswordBecomesAKeyAndReachesNoDisk) {
    BMessage job = With(With(Job("Secret"), "passonoff", 1), "submitonhold", 1);
    BMessage info = job.Get("start_info", BMessage());
    info.Add("password", "open-sesame-4711");
    job.Set("start_info", info);
    // What others say about keys counts for nothing.
    BMessage forged;
    forged.Add("recipient", "forged-by-somebody");
    job.Add("protection", forged);
    const int32_t id = Submit(job);
    BMessage description = peer->Ask(About("KTjg"_code, id));
    EXPECT_FALSE(description.Has("protection"));
    EXPECT_FALSE(description.Get("start_info", BMessage()).Has("password"));
    // Neither an editor nor a restart takes the protection away.
    BMessage edit = About("KTjs"_code, id);
    description.Add("protection", forged);
    edit.Add("job_data", With(description, "passonoff", 0));
    peer->Send(edit);
    peer->WaitFor("KTjc"_code, Of(id));
    ASSERT_EQ(house.Stop(), 0);
    bool hasKey = false;
    for (const auto& file : std::filesystem::recursive_directory_iterator(house.Root())) {
        if (!file.is_regular_file()) continue;
        std::ifstream stream(file.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        for (const char* secret : {"open-sesame-4711", "AGE-SECRET-KEY", "forged-by-somebody"})
            EXPECT_EQ(bytes.find(secret), std::string::npos) << file.path() << secret;
        hasKey |= bytes.find("age-encryption.org/v1\n-> scrypt ") != std::string::npos;
    }
    EXPECT_TRUE(hasKey);
    house.Start();
    peer = house.ConnectClient();
    AcceptPanels(*peer);
    peer->Send(About("KTJC"_code, id));
    EXPECT_EQ(EndOf(id), 0);

    // The switch decides, not the field: this one is simply not protected.
    info.Set<int32_t>("passonoff", 0);
    info.Remove("submitonhold");
    job.Set("start_info", info);
    EXPECT_EQ(EndOf(Submit(job)), 0);
}

TEST_F(BackupServerTest, QueueAndReportsOutliveAKillAndARunningJobEndsAsAbnormal) {
    const int32_t held = Submit(With(Job("Held"), "submitonhold", 1));
    const int32_t running =
        Submit(Job("Running", {"lines 2500", "line 3 before the end", "until " + File("never")}));
    peer->WaitFor("KTJF"_code, Of(running, "linetype", 3));
    house.Kill();
    EXPECT_TRUE(peer->WaitForClose());

    house.Start();
    peer = house.ConnectClient();
    AcceptPanels(*peer);
    const BMessage list = peer->Ask(BMessage("KTJL"_code));
    ASSERT_EQ(list.Count("job_id"), 1);
    EXPECT_EQ(list.Get<int32_t>("job_id", 0), held);
    EXPECT_EQ(list.Get<int32_t>("jobstatus", 0), 3);
    const auto lines = ReportOf(running);
    ASSERT_GT(lines.size(), 2000u);
    EXPECT_EQ(lines.back(), "3: abnormal job end");
    EXPECT_GT(Submit(Job("Next")), running);
}

TEST_F(BackupServerTest, ACrashingEngineIsReportedByTheNextStart) {
    const int32_t thrown = Submit(Job("Throws", {"throw"}));
    EXPECT_EQ(EndOf(thrown), 3);
    EXPECT_EQ(ReportOf(thrown),
              (std::vector<std::string>{"3: Internal error: as the script wants it",
                                        "3: abnormal job end"}));
    peer->Send(Job("Crashes", {"crash"}));
    EXPECT_TRUE(peer->WaitForClose());
    house.Kill();
    house.Start();
    peer = house.ConnectClient();
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).Count("report_id"), 2);
}

TEST_F(BackupServerTest, EndsCleanlyWithItsJobsAborted) {
    const int32_t id = Submit(Job("Long", {"until " + File("never")}));
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 2));
    const pid_t server = house.Team();
    ::kill(server, SIGTERM);
    EXPECT_EQ(EndOf(id), 1);
    EXPECT_EQ(ServerHouse::WaitForEnd(server), 0);
    house.Start();
    peer = house.ConnectClient();
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).Count("report_id"), 1);
    const pid_t second = house.Spawn(house.ServerFolder() + "/BackupServer");
    EXPECT_EQ(ServerHouse::WaitForEnd(second), 0);
    EXPECT_EQ(peer->Ask(BMessage("what"_code)).what, "NONE"_code);
}

TEST_F(BackupServerTest, ALatePanelGetsWhatItMissed) {
    peer->SetAnswers({});
    const int32_t id =
        Submit(Job("Late", {"line 4 Data", "progress 3 7", "until " + File("go"), "progress 7 7"}));
    const auto start = peer->WaitFor("KTJS"_code, Of(id));
    BMessage accept = About("KTAB"_code, id);
    accept.Add("user", peer->Self(50));
    peer->Send(accept);  // as a plain message, while it runs
    peer->WaitFor("KTJF"_code, Of(id, "linetype", 4));
    EXPECT_EQ(peer->WaitFor("KTJF"_code, Of(id, "linetype", 100)).message.Get<int64_t>("size", 0),
              3);
    Touch("go");
    EXPECT_EQ(peer->WaitFor("KTJf"_code).token, 50);

    accept.Set("user", peer->Self(51));
    peer->Answer(start, accept);  // as the answer, after the end
    EXPECT_EQ(peer->WaitFor("KTJF"_code, Of(id, "linetype", 4)).token, 51);
    EXPECT_EQ(
        peer->WaitFor("KTJF"_code, [](const BMessage& m) { return m.Get<int64_t>("size", 0) == 7; })
            .token,
        50);
    const auto end = peer->WaitFor("KTJf"_code);
    EXPECT_EQ(end.token, 51);
    EXPECT_EQ(end.message.Get<int32_t>("status", -1), 0);
    peer->Send(accept);  // once is enough
    EXPECT_FALSE(peer->Has("KTJf"_code));
}

TEST_F(BackupServerTest, ProgressIsAtMostTenASecond) {
    std::vector<std::string> script;
    for (int i = 1; i <= 200; ++i) {
        script.push_back("progress " + std::to_string(i) + " 200");
        script.push_back("lines 200");
    }
    const auto begin = std::chrono::steady_clock::now();
    const int32_t id = Submit(Job("Quick", script));
    EXPECT_EQ(EndOf(id), 0);
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin);
    int64_t updates = 0, last = 0;
    for (const auto& arrived : peer->Pending()) {
        if (arrived.message.what != "KTJF"_code) continue;
        ++updates;
        last = arrived.message.Get<int64_t>("size", last);
    }
    EXPECT_LE(static_cast<double>(updates), 10 * seconds.count() + 3);
    EXPECT_EQ(last, 200);
}

TEST_F(BackupServerTest, AskedOnlyTheSubmitterOrAllWhenItIsGone) {
    auto other = house.ConnectClient(ScriptedPeer::Identity::NewProcess);
    AcceptPanels(*other);
    const int32_t own = Submit(Job("Own"));
    EXPECT_EQ(EndOf(own), 0);
    EXPECT_FALSE(other->Has("KTJS"_code));
    EXPECT_TRUE(other->Has("KTJI"_code));

    BMessage orphan = Job("Orphan", {"until " + File("go")});
    orphan.Add<int32_t>("client_id", 2147483646);  // the last one counts: nobody
    const int32_t id = Submit(orphan);
    other->WaitFor("KTJS"_code, Of(id));
    peer->WaitFor("KTJS"_code, Of(id));
    // One that registers later is asked for a panel too.
    auto late = house.ConnectClient(ScriptedPeer::Identity::NewProcess);
    BMessage accept = About("KTAB"_code, id);
    accept.Add("user", late->Self(77));
    late->Answer(late->WaitFor("KTJS"_code, Of(id)), accept);
    late->Ask(BMessage("what"_code));
    Touch("go");
    EXPECT_EQ(EndOf(id), 0);
    EXPECT_TRUE(other->Has("KTJf"_code, Of(id)));
    EXPECT_TRUE(late->Has("KTJf"_code, Of(id)));
}

TEST_F(BackupServerTest, AClientThatGoesReleasesItsEditMarks) {
    auto other = house.ConnectClient(ScriptedPeer::Identity::NewProcess);
    const int32_t id = Submit(With(Job("Held"), "submitonhold", 1));
    BMessage edit = About("KTje"_code, id);
    edit.Add<int32_t>("edit", 1);
    other->Send(edit);
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 4));
    peer->Send(Delete(id, false));
    EXPECT_FALSE(peer->Has("KTJR"_code));
    other->Close();
    peer->WaitFor("KTjc"_code, Of(id, "jobstatus", 3));
}

TEST_F(BackupServerTest, AHangingClientHoldsUpNobody) {
    auto deaf = house.ConnectClient(ScriptedPeer::Identity::NewProcess);
    BMessage accept("KTAB"_code);
    const int32_t id = Submit(Job("Busy", {"lines 30000", "until " + File("go")}));
    for (int i = 0; i < 300; ++i)
        Submit(With(Job("Held"), "submitonhold", 1));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).Count("job_id"), 301);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
    Touch("go");
    EXPECT_EQ(EndOf(id), 0);
}

TEST_F(BackupServerTest, ALargeReportComesThroughASharedArea) {
    const int32_t id = Submit(Job("Large", {"lines 100000"}));
    EXPECT_EQ(EndOf(id), 0);
    const int32_t report = peer->WaitFor("rpIN"_code).message.Get<int32_t>("report_id", 0);
    BMessage open("rpOP"_code);
    open.Add("report_id", report);
    open.Add("user", peer->Self(88));
    const auto begin = std::chrono::steady_clock::now();
    peer->Send(open);
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

TEST_F(BackupServerTest, ReportsAreDeletedByHandAndByRule) {
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
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).Count("report_id"), 3);
    EXPECT_FALSE(peer->Has("rpRM"_code));

    BMessage settings = peer->Ask(BMessage("rpDG"_code));
    EXPECT_EQ(settings.what, "rpDS"_code);
    EXPECT_EQ(settings.Get<int32_t>("mode", -1), 0);
    settings.Set<int32_t>("mode", 2);
    settings.Set<int32_t>("count", 2);
    peer->Send(settings);
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).Count("report_id"), 2);
    EndOf(Submit(Job("One more")));
    const BMessage left = peer->Ask(BMessage("rpGL"_code));
    ASSERT_EQ(left.Count("report_id"), 2);
    EXPECT_EQ(left.Get("title", std::string(), 1), "One more");
    EXPECT_EQ(house.Stop(), 0);
    house.Start();
    peer = house.ConnectClient();
    EXPECT_EQ(peer->Ask(BMessage("rpGL"_code)).Count("report_id"), 2);
    EXPECT_EQ(peer->Ask(BMessage("rpDG"_code)).Get<int32_t>("count", 0), 2);
}

TEST_F(BackupServerTest, UnknownAndOddMessages) {
    EXPECT_EQ(peer->Ask(BMessage("what"_code)).what, "NONE"_code);
    const BMessage property = peer->Ask(BMessage("PGET"_code));
    EXPECT_EQ(property.what, "MNOT"_code);
    EXPECT_LT(property.Get<int32_t>("error", 0), 0);
    EXPECT_FALSE(property.Get("message", std::string()).empty());
    // A known message that came as a request, and internal codes from outside.
    EXPECT_EQ(peer->Ask(About("KTJP"_code, 4711)).what, "NONE"_code);
    for (const uint32_t code : {"_QRQ"_code, "slat"_code, "sday"_code, "_TGN"_code, "what"_code,
                                "KTJI"_code, "KTjg"_code, "rpOP"_code, "KTAB"_code, "KTxX"_code}) {
        peer->Send(BMessage(code));
        BMessage odd(code);
        odd.Add("job_id", "not a number");
        odd.Add("team", peer->Team());
        odd.Add("name", "no such backup");
        peer->Send(odd);
    }
    BMessage password("ktpc"_code);
    password.Add("name", "no such backup");
    EXPECT_EQ(peer->Ask(password).what, "ktpr"_code);
    BMessage scan("ktvs"_code);
    scan.Add<int32_t>("id", 5);
    peer->Send(scan);
    const auto found = peer->WaitFor("ktvd"_code);
    EXPECT_EQ(found.message.Get<int32_t>("id", 0), 5);
    EXPECT_FALSE(found.message.Has("title"));
    BMessage list("KTLR"_code);
    list.Add("path", "/");
    EXPECT_EQ(peer->Ask(list).what, "NONE"_code);
    EXPECT_TRUE(peer->Pending().empty()) << CodeText(peer->Pending().front().message.what);
}

TEST_F(BackupServerTest, ADamagedFileIsSetAsideAndToldInAReport) {
    Submit(With(Job("Held"), "submitonhold", 1));
    ASSERT_EQ(house.Stop(), 0);
    std::fstream file(house.Data() + "/records.db",
                      std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(16 * 1024);
    file << std::string(4096, '\x5a');
    file.close();
    house.Start();
    peer = house.ConnectClient();
    const BMessage list = peer->Ask(BMessage("rpGL"_code));
    ASSERT_EQ(list.Count("report_id"), 1);
    EXPECT_EQ(list.Get("title", std::string()), "Backup server");
    EXPECT_TRUE(std::filesystem::exists(house.Data() + "/records.db.damaged-1"));
    EXPECT_GT(Submit(With(Job("New"), "submitonhold", 1)), 0);
}

TEST_F(BackupServerTest, DataIsTheUsersAlone) {
    EndOf(Submit(Job("One")));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(house.Data())) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 077, 0u) << entry.path();
    }
}

}  // namespace
