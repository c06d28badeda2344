// Deleting backups, as clients ask for it: what goes, what stays and what a report says then.
#include "tests/server/ServerFixture.h"
#include "tests/support/MadeCatalogue.h"

namespace {

using tests::MadeBackup;

constexpr auto kIncremental = core::JobType::Incremental;

class BackupDeletion : public tests::ServerFixture {
protected:
    std::string Add(const MadeBackup& backup) { return tests::AddCatalogue(house.Data(), backup); }
    void Delete(const std::vector<std::string>& names, int32_t full = 0) {
        BMessage message("KTxX"_code);
        for (const auto& name : names) {
            message.Add("name", name);
            message.Add("full", full);
        }
        peer->Send(message);
    }
    void WaitUntilGone(const std::string& name) {
        peer->WaitFor("KTLr"_code, [&](const BMessage& message) {
            return message.Get("name", std::string()) == name;
        });
    }
    // The words of the next report, whose only line must be an error.
    std::string NextReport(const std::string& title, int32_t client = 0) {
        const BMessage notice = peer->WaitFor("rpIN"_code).message;
        EXPECT_EQ(notice.Get("title", std::string()), title);
        EXPECT_EQ(notice.Get<int32_t>("job_id", -1), 0);
        EXPECT_EQ(notice.Get<int32_t>("client_id", 0), client);
        const BMessage report = OpenReport(notice.Get<int32_t>("report_id", 0));
        EXPECT_EQ(report.Count("text_id"), 1);
        EXPECT_EQ(report.Get<int32_t>("text_id", 0), 279);
        EXPECT_EQ(report.Get<int32_t>("linetype", 0), 3);
        return core::ReportLineText(report, 0);
    }
    std::vector<std::string> Known() {
        BMessage list("KTLR"_code);
        list.Add("path", "/");
        const BMessage answer = peer->Ask(list);
        std::vector<std::string> names;
        for (int32_t i = 0; i < answer.Count("name"); ++i)
            names.push_back(answer.Get("name", std::string(), i));
        return names;
    }
};

TEST_F(BackupDeletion, WhatOthersAreBuiltOnGoesOnlyWithThem) {
    const auto full = Add({1, core::JobType::Full, 0, "Base", {"a"}, {}});
    const auto first = Add({2, kIncremental, 1, "First", {"b"}, {full}});
    const auto second = Add({3, kIncremental, 1, "Second", {"c"}, {full, first}});
    const auto differential = Add({4, core::JobType::Differential, 1, "Other", {"d"}, {full}});
    const auto stranger = Add({5, core::JobType::Full, 0, "Stranger", {"e"}, {}});
    Start();
    Delete({full});
    EXPECT_NE(NextReport("Base", peer->Team()).find("is built on it"), std::string::npos);
    Delete({first});
    EXPECT_NE(NextReport("First", peer->Team()).find(second), std::string::npos);
    EXPECT_EQ(Known().size(), 5u);
    Delete({differential});  // nothing is built on it: those that came before it need it not
    WaitUntilGone(differential);
    Delete({full, second, first});
    for (const auto& name : {full, first, second})
        WaitUntilGone(name);
    EXPECT_EQ(Known(), std::vector{stranger});
    KillAndStart();
    EXPECT_EQ(Known(), std::vector{stranger});
}

TEST_F(BackupDeletion, WithItsDataAwayTheEntryStays) {
    const auto base = Add({1, core::JobType::Full, 0, "Base", {"a"}, {}});
    const auto next = Add({2, kIncremental, 1, "Next", {"b"}, {base}});
    Start();
    Delete({base, next}, 1);
    // What is built on it could not be deleted, so the base stays as well.
    EXPECT_NE(NextReport("Next", peer->Team()).find("data cannot be deleted"), std::string::npos);
    EXPECT_NE(NextReport("Base", peer->Team()).find("is built on it"), std::string::npos);
    EXPECT_EQ(Known(), (std::vector{base, next}));
}

TEST_F(BackupDeletion, WhatAJobUsesStaysUntilItEnds) {
    const auto name = Add({1, core::JobType::Full, 0, "Used", {"a"}, {}});
    Start();
    peer->Send(
        Job("Reads", {"use " + name, "line 4 In use", "until " + File("go")}, "/somewhere", 4));
    peer->WaitFor("KTJF"_code);
    Delete({name});
    EXPECT_NE(NextReport("Used", peer->Team()).find("a job that is running uses it"),
              std::string::npos);
    EXPECT_EQ(Known(), std::vector{name});
    Touch("go");
    peer->WaitFor("KTJR"_code);
    Delete({name});
    WaitUntilGone(name);
}

TEST_F(BackupDeletion, ADamagedCatalogueIsToldOnceAndTheServerGoesOn) {
    std::vector<std::string> files;
    for (int i = 10'000; i < 30'000; ++i)
        files.push_back("file " + std::to_string(i));
    const auto name = Add({1, core::JobType::Full, 0, "Scratched", files, {}});
    Scratch(house.Data() + "/catalogues/" + name + ".db", 163'840, 327'680);
    Start();
    BMessage list("KTLR"_code);
    list.Add("path", "/" + name + "/Data/folder");
    EXPECT_EQ(peer->Ask(list).what, "NONE"_code);
    EXPECT_NE(NextReport("Scratched").find("is damaged"), std::string::npos);
    EXPECT_EQ(peer->Ask(list).what, "NONE"_code);
    EXPECT_EQ(Known(), std::vector{name});
    Delete({name});
    WaitUntilGone(name);
    for (const auto& left : peer->Pending())
        EXPECT_NE(left.message.what, "rpIN"_code);
}

}  // namespace
