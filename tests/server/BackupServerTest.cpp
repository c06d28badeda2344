// Jobs in the server's process, from their submission to their end.
#include <sys/stat.h>

#include <map>

#include "tests/server/ServerFixture.h"

namespace {

using tests::ScriptedPeer;
using tests::ServerHouse;

class BackupServerTest : public tests::ServerFixture {
protected:
    BackupServerTest() { Start(); }
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
    WaitForStatus(id, 2);
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

TEST_F(BackupServerTest, PauseContinueAbort) {
    const int32_t id = Submit(Job("Long", {"until " + File("never")}));
    WaitForStatus(id, 2);
    Tell("KTJP"_code, id);
    WaitForStatus(id, 3);
    Tell("KTJP"_code, id);  // unfit, ignored
    Tell("KTJC"_code, id);
    WaitForStatus(id, 2);
    Tell("KTJP"_code, id);
    WaitForStatus(id, 3);
    const auto asked = std::chrono::steady_clock::now();
    Tell("KTJD"_code, id, "flag", 1);
    EXPECT_EQ(EndOf(id), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
    EXPECT_FALSE(peer->Has("KTjc"_code));

    const int32_t other = Submit(Job("Long", {"until " + File("never")}));
    WaitForStatus(other, 2);
    Tell("KTJD"_code, other);
    EXPECT_EQ(EndOf(other), 1);
    peer->WaitFor("KTJR"_code, Of(other));
}

TEST_F(BackupServerTest, OnHoldEditedRenamedAndDeleted) {
    peer->Send(With(Job("Held"), "submitonhold", 1));
    const BMessage inserted = peer->WaitFor("KTJI"_code).message;
    const int32_t id = inserted.Get<int32_t>("job_id", 0);
    EXPECT_EQ(inserted.Get<int32_t>("jobstatus", 0), 3);

    Tell("KTje"_code, id, "edit", 1);
    WaitForStatus(id, 4);
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

    Tell("KTje"_code, id, "edit", 0);
    WaitForStatus(id, 3);
    Tell("KTJC"_code, id);
    WaitForStatus(id, 1);
    const BMessage again = peer->Ask(About("KTjg"_code, id));
    EXPECT_EQ(again.Get("start_info", BMessage()).Get("title", std::string()), "Renamed");
    EXPECT_FALSE(again.Has("title"));

    Tell("KTJD"_code, id, "flag", 1);  // it waits: there is nothing to abort
    EXPECT_FALSE(peer->Has("KTJR"_code));
    Tell("KTbg"_code, id);  // its time is in 2100, but the user wants it now
    EXPECT_EQ(EndOf(id), 0);

    const int32_t gone = Submit(With(Job("Held"), "submitonhold", 1));
    EXPECT_GT(gone, id);
    Tell("KTJD"_code, gone);
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
    Start();
    Tell("KTJC"_code, id);
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
    KillAndStart();
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
    Start();
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_EQ(Reports(), 2);
}

TEST_F(BackupServerTest, EndsCleanlyWithItsJobsAborted) {
    const int32_t id = Submit(Job("Long", {"until " + File("never")}));
    WaitForStatus(id, 2);
    const pid_t server = house.Team();
    ::kill(server, SIGTERM);
    EXPECT_EQ(EndOf(id), 1);
    EXPECT_EQ(ServerHouse::WaitForEnd(server), 0);
    Start();
    EXPECT_EQ(peer->Ask(BMessage("KTJL"_code)).what, "NONE"_code);
    EXPECT_EQ(Reports(), 1);
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
    WaitForStatus(id, 4);
    Tell("KTJD"_code, id);
    EXPECT_FALSE(peer->Has("KTJR"_code));
    other->Close();
    WaitForStatus(id, 3);
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

TEST_F(BackupServerTest, DataIsTheUsersAlone) {
    EndOf(Submit(Job("One")));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(house.Data())) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 077, 0u) << entry.path();
    }
}

}  // namespace
