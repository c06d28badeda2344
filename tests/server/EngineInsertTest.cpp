// Backups that are brought back from a medium: by the catalogue beside them, and by their media
// where that is lost; whole ones, cut ones, chains, and what somebody made up.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "core/protocol/Texts.h"
#include "server/archive/Format.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/LockedBackup.h"
#include "server/queue/JobDescription.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::JobType;
using core::LineType;

class EngineInsert : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        fHouse.packer = GetParam();
        fHouse.config.now = [this] { return fNow += 100; };
    }

    std::string Save(JobType type = JobType::Full, int32_t set = 1) {
        std::string name = fHouse.Save(type, set);
        EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
        return name;
    }
    JobEnd Insert(const std::vector<std::string>& folders) {
        return fHouse.Run(fHouse.InsertOrder(folders));
    }
    JobEnd Read(JobType type, const std::string& backup) {
        return fHouse.Run(fHouse.ReadOrder(type, backup));
    }
    // Where it was restored to.
    std::string Restored(const std::string& backup) {
        std::string to = fHouse.Restored(backup);
        EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
        return to;
    }
    void ExpectRestores(const std::string& backup, const std::map<std::string, std::string>& tree) {
        EXPECT_EQ(Differences(tree, DescribeTree(Restored(backup))), "");
        EXPECT_EQ(Read(JobType::Verify, backup), JobEnd::Good) << fHouse.events.All();
    }
    BackupInfo Known(const std::string& name) const { return fHouse.Known(name); }
    std::string In(const std::string& backup, const std::string& file) const {
        return fHouse.target + "/" + backup + "/" + file;
    }
    std::string Medium(const std::string& backup, int number = 1) const {
        return In(backup, "000" + std::to_string(number) + ".tar" + fHouse.Ending() +
                              (fHouse.protection ? ".age" : ""));
    }
    // All rows of a catalogue that cannot be different however it came to be.
    std::string Tree(const std::string& backup) const {
        auto reader = CatalogueReader::Open(fHouse.catalogues->PathOf(backup));
        if (!reader) return reader.error().Text();
        Statement rows = reader->File().Prepare(
            "SELECT e.id, hex(e.name), e.mode, e.uid, e.gid, e.size, e.modified, e.link, d.first,"
            " d.count FROM entries e LEFT JOIN directories d ON d.id = e.id ORDER BY e.id");
        std::string tree;
        while (rows.Next()) {
            for (int i = 0; i < 10; ++i)
                tree += (i == 1 ? rows.Text(1) : std::to_string(rows.Integer(i))) + " ";
            tree += "\n";
        }
        return tree;
    }
    bool IsQuick() const { return !fHouse.events.Has(LineType::Heading, text::kQuickIndexFailed); }

    // So many files of a megabyte.
    void MakeNoise(int count) const {
        for (int i = 0; i < count; ++i)
            WriteWhole(fHouse.source + "/noise" + std::to_string(100 + i),
                       NoiseBytes(1'000'000, 7 + i));
    }

    EngineHouse fHouse;
    int64_t fNow = 1'795'378'530;
};

TEST_P(EngineInsert, BringsBackWhatItWas) {
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000));
    fHouse.volume.Set("mediasize", archive::kMinMediaSize);
    const auto tree = DescribeTree(fHouse.source);
    const std::string backup = Save();
    const BackupInfo before = Known(backup);
    const std::string rows = Tree(backup);
    ASSERT_TRUE(fs::exists(Medium(backup, 2)));

    fHouse.ForgetAll();
    EXPECT_EQ(Insert({backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(IsQuick());
    EXPECT_TRUE(fHouse.events.Has(LineType::Totals, text::kInsertGood));
    const BackupInfo after = Known(backup);
    EXPECT_EQ(after.title, before.title);
    EXPECT_EQ(after.jobId, before.jobId);
    EXPECT_EQ(after.start, before.start);
    EXPECT_EQ(after.files, before.files);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(after.addon, "KTImage");
    EXPECT_TRUE(after.IsBase());
    EXPECT_EQ(Tree(backup), rows);
    ExpectRestores(backup, tree);
    EXPECT_EQ(Read(JobType::Compare, backup), JobEnd::Good) << fHouse.events.All();

    // A second time it is left alone.
    EXPECT_EQ(Insert({backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "left alone"));

    // The same from the media alone.
    fHouse.ForgetAll();
    fs::remove(In(backup, "catalogue.db.zst"));
    EXPECT_EQ(Insert({backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_FALSE(IsQuick());
    EXPECT_EQ(Tree(backup), rows);
    EXPECT_EQ(Known(backup).files, before.files);
    EXPECT_EQ(Known(backup).bytes, before.bytes);
    EXPECT_EQ(Differences(tree, DescribeTree(Restored(backup))), "");

    // What it was to save is known from its manifest, so the set goes on.
    WriteWhole(fHouse.source + "/later", "1");
    const auto later = DescribeTree(fHouse.source);
    EXPECT_EQ(Differences(later, DescribeTree(Restored(Save(JobType::Incremental)))), "");
}

TEST_P(EngineInsert, AFlippedByteCostsWhatItTouches) {
    MakeNoise(16);
    const auto tree = DescribeTree(fHouse.source);
    const std::string backup = Save();
    fHouse.ForgetAll();

    // In the catalogue: the media tell the same.
    Damage(In(backup, "catalogue.db.zst"), fs::file_size(In(backup, "catalogue.db.zst")) / 2);
    EXPECT_EQ(Insert({backup}), JobEnd::Good) << fHouse.events.All();
    EXPECT_FALSE(IsQuick());
    EXPECT_EQ(Differences(tree, DescribeTree(Restored(backup))), "");

    // In a medium, too: some files are gone, and all the others are there.
    fHouse.ForgetAll();
    Damage(Medium(backup), fs::file_size(Medium(backup)) / 2);
    EXPECT_EQ(Insert({backup}), JobEnd::Errors);
    if (fHouse.packer == std::string("KTNone")) {
        // Nothing but the sum can notice it; the frames are what they are now.
        EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "checksum")) << fHouse.events.All();
        EXPECT_EQ(Known(backup).files, 16);
        return;
    }
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "damaged at byte")) << fHouse.events.All();
    EXPECT_GE(Known(backup).files, 6);
    EXPECT_LT(Known(backup).files, 16);
    auto restored = DescribeTree(Restored(backup));
    EXPECT_EQ(static_cast<int64_t>(restored.size()), Known(backup).files);
    for (const auto& [path, facts] : restored)
        EXPECT_EQ(facts, tree.at(path)) << path;
}

TEST_P(EngineInsert, TheBeginningOfAMediumMayBeLost) {
    MakeNoise(12);
    const std::string backup = Save();
    fHouse.ForgetAll();
    fs::remove(In(backup, "catalogue.db.zst"));
    for (size_t at : {0, 1, 2, 3, 4, 5, 6, 7})
        Damage(Medium(backup), at);
    EXPECT_EQ(Insert({backup}), JobEnd::Errors);
    EXPECT_GE(Known(backup).files, 7) << fHouse.events.All();
    Restored(backup);
}

// What a crash leaves, at every step of the writing, and in the middle of a medium.
TEST_P(EngineInsert, TakesWhatIsWholeOfOneThatWasCut) {
    MakeNastyTree(fHouse.source);
    MakeNoise(9);
    const auto tree = DescribeTree(fHouse.source);
    const std::string backup = Save();
    const std::string partial = backup + ".partial";
    fHouse.ForgetAll();
    fs::rename(fHouse.target + "/" + backup, fHouse.target + "/" + partial);

    const auto expectWhole = [&](bool isQuick) {
        SCOPED_TRACE(isQuick);
        EXPECT_EQ(Insert({partial}), JobEnd::Errors);
        EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupEndedUnexpected));
        EXPECT_EQ(IsQuick(), isQuick) << fHouse.events.All();
        EXPECT_EQ(Known(backup).folder, partial);
        EXPECT_FALSE(Known(backup).IsBase());
        ExpectRestores(backup, tree);
        EXPECT_EQ(Read(JobType::Compare, backup), JobEnd::Good) << fHouse.events.All();
        // It is known for good.
        CatalogueStore again(fHouse.root + "/catalogues");
        ASSERT_TRUE(again.Open());
        EXPECT_EQ(again.Find(backup).value_or(BackupInfo()).folder, partial);
        fHouse.ForgetAll();
    };
    expectWhole(true);
    fs::remove(In(partial, "SHA256SUMS"));
    expectWhole(true);
    WriteWhole(In(partial, "backup.json"), ReadWhole(In(partial, "backup.json")).substr(0, 100));
    expectWhole(true);
    fs::remove(In(partial, "backup.json"));
    expectWhole(true);
    const std::string catalogue = ReadWhole(In(partial, "catalogue.db.zst"));
    WriteWhole(In(partial, "catalogue.db.zst"), catalogue.substr(0, catalogue.size() - 1));
    expectWhole(false);
    fs::remove(In(partial, "catalogue.db.zst"));
    expectWhole(false);

    const auto size = fs::file_size(Medium(partial));
    for (const auto cut : {size - 1, size / 2, size / 3}) {
        SCOPED_TRACE(cut);
        fs::resize_file(Medium(partial), cut);
        EXPECT_EQ(Insert({partial}), JobEnd::Errors);
        ASSERT_EQ(Known(backup).folder, partial) << fHouse.events.All();
        EXPECT_LE(Known(backup).files, static_cast<int64_t>(tree.size()));
        EXPECT_GT(Known(backup).files, 3);
        auto restored = DescribeTree(Restored(backup));
        EXPECT_EQ(Read(JobType::Verify, backup), JobEnd::Good) << fHouse.events.All();
        for (const auto& [path, facts] : restored) {
            if (path.find("noise") == std::string::npos) continue;
            EXPECT_EQ(facts, tree.at(path)) << path;
        }
        fHouse.ForgetAll();
    }
    fs::resize_file(Medium(partial), 0);
    EXPECT_EQ(Insert({partial}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kNothingToInsert)) << fHouse.events.All();
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
}

INSTANTIATE_TEST_SUITE_P(Packers, EngineInsert,
                         testing::Values("KTNone", "KTZstd", "KTLz4", "KTXz"),
                         [](const auto& packer) { return std::string(packer.param); });

// What does not depend on the frames.
class EngineInsertOnce : public EngineInsert {};

TEST_P(EngineInsertOnce, ChainsHoldTogether) {
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/first", "1");
    WriteWhole(fHouse.source + "/goes", "1");
    std::vector<std::map<std::string, std::string>> trees;
    std::vector<std::string> backups;
    const auto keep = [&](const std::string& backup) {
        trees.push_back(DescribeTree(fHouse.source));
        backups.push_back(backup);
    };
    keep(Save());
    WriteWhole(fHouse.source + "/first", "changed");
    fs::remove(fHouse.source + "/goes");
    fs::create_directories(fHouse.source + "/new/deep");
    WriteWhole(fHouse.source + "/new/deep/file", "new");
    keep(Save(JobType::Incremental));
    fs::remove_all(fHouse.source + "/new");
    WriteWhole(fHouse.source + "/new", "a file now");
    keep(Save(JobType::Incremental));
    WriteWhole(fHouse.source + "/last", "1");
    keep(Save(JobType::Differential));

    // Another set has the id meanwhile, and they come in another order.
    fHouse.ForgetAll();
    EXPECT_EQ(Insert({backups[2]}), JobEnd::Good) << fHouse.events.All();
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "must be inserted, too"));
    EXPECT_EQ(Insert({backups[3], backups[0], backups[1]}), JobEnd::Good) << fHouse.events.All();
    const int32_t set = Known(backups[0]).jobId;
    EXPECT_EQ(set, 1);
    for (size_t i = 0; i < backups.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(Known(backups[i]).baseId, i == 0 ? 0 : set);
        ExpectRestores(backups[i], trees[i]);
    }
    // Something can be built on it.
    WriteWhole(fHouse.source + "/after", "1");
    keep(Save(JobType::Incremental));
    ExpectRestores(backups.back(), trees.back());
    const auto rows = [&] {
        std::vector<std::string> all;
        for (const std::string& backup : backups)
            all.push_back(Tree(backup));
        return all;
    };
    const auto before = rows();

    // All of it from the media alone.
    fHouse.ForgetAll();
    for (const std::string& backup : backups)
        fs::remove(In(backup, "catalogue.db.zst"));
    EXPECT_EQ(Insert({backups[1]}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupMissing)) << fHouse.events.All();
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
    EXPECT_EQ(Insert(backups), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(rows(), before);
    for (size_t i = 0; i < backups.size(); ++i)
        EXPECT_EQ(Differences(trees[i], DescribeTree(Restored(backups[i]))), "") << i;

    // Without the list of what is gone that is still there, and told.
    fHouse.ForgetAll();
    fs::remove(In(backups[1], "gone.list"));
    EXPECT_EQ(Insert({backups[0], backups[1]}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "not known what was deleted"));
    EXPECT_TRUE(DescribeTree(Restored(backups[1])).contains("/goes"));
}

TEST_P(EngineInsertOnce, KeepsTheIdWhereItIsFree) {
    WriteWhole(fHouse.source + "/file", "1");
    const std::string full = Save();
    WriteWhole(fHouse.source + "/file", "22");
    const std::string incremental = Save(JobType::Incremental);
    fHouse.ForgetAll();
    // A backup of another set that has their ids.
    fs::copy(fHouse.target + "/" + full, fHouse.target + "/20200101T000000-00000001");
    Shell("cd " + fHouse.target + "/20200101T000000-00000001 && sed -i 's/" + full +
          "/20200101T000000-00000001/' backup.json && rm catalogue.db.zst");
    EXPECT_EQ(Insert({"20200101T000000-00000001"}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Known("20200101T000000-00000001").jobId, 1);
    EXPECT_EQ(Insert({incremental}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Insert({full}), JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Known(full).jobId, 5001);
    EXPECT_EQ(Known(incremental).baseId, 5001);
    EXPECT_EQ(Known(incremental).jobId, 2);
}

TEST_P(EngineInsertOnce, BelievesNoManifestThatCannotBe) {
    WriteWhole(fHouse.source + "/file", "1");
    const auto tree = DescribeTree(fHouse.source);
    const std::string backup = Save();
    const std::string json = ReadWhole(In(backup, "backup.json"));
    fHouse.ForgetAll();
    const auto replaced = [&](const std::string& from, const std::string& to) {
        std::string other = json;
        other.replace(other.find(from), from.size(), to);
        return other;
    };
    const std::string deep(100'000, '[');
    for (const std::string& bad :
         {std::string(), std::string("{}"), deep, json.substr(0, json.size() / 2),
          replaced(backup, "20200101T000000-00000001"), replaced(backup, "../../../../../etc"),
          replaced("\"0001.tar", "\"../0001.tar"), replaced("\"size\": ", "\"size\": -"),
          replaced("\"job_id\": 1", "\"job_id\": 99999999999")}) {
        SCOPED_TRACE(bad.substr(0, 300));
        WriteWhole(In(backup, "backup.json"), bad);
        EXPECT_EQ(Insert({backup}), JobEnd::Errors);
        // The media need it not.
        EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupHeaderUnreadable))
            << fHouse.events.All();
        EXPECT_EQ(Differences(tree, DescribeTree(Restored(backup))), "");
        fHouse.ForgetAll();
    }
    // A highest id would leave none for others.
    WriteWhole(In(backup, "backup.json"), replaced("\"job_id\": 1", "\"job_id\": 2147483647"));
    Insert({backup});
    EXPECT_EQ(Known(backup).jobId, 5001);
    fHouse.ForgetAll();
    WriteWhole(In(backup, "backup.json"),
               replaced("\"title\": \"A test\"", "\"title\": \"A\\u0000b\\u001b[2J\\nc\""));
    Insert({backup});
    EXPECT_EQ(Known(backup).title, "A b [2J c");
    fHouse.ForgetAll();
    WriteWhole(In(backup, "backup.json"), replaced("\"version\": 1", "\"version\": 2"));
    EXPECT_EQ(Insert({backup}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Detail, "later version")) << fHouse.events.All();
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
    for (const char* none : {"", "..", "nothing", "20200101T000000-00000001"})
        EXPECT_EQ(Insert({none}), JobEnd::Errors) << none;
    EXPECT_EQ(Insert({}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kNothingToInsert));
}

// Whatever somebody wrote into a catalogue, with the sums to fit: it is not taken over.
TEST_P(EngineInsertOnce, BelievesNoCatalogueThatCannotBe) {
    MakeNastyTree(fHouse.source);
    const auto tree = DescribeTree(fHouse.source);
    const std::string backup = Save();
    fHouse.ForgetAll();
    const std::string folder = fHouse.target + "/" + backup;
    ASSERT_EQ(Shell("cd " + folder + " && zstd -dqc catalogue.db.zst > ../plain.db"), "");
    const auto with = [&](const std::string& sql) {
        EXPECT_EQ(Shell("cd " + fHouse.target +
                        " && cp plain.db bad.db && sqlite3 "
                        "bad.db \"" +
                        sql + "\" && zstd -qfc bad.db > " + folder + "/catalogue.db.zst && cd " +
                        folder + " && sha256sum $(ls | grep -v SHA256SUMS) > SHA256SUMS"),
                  "");
    };
    if (Shell("sqlite3 -version").find("exit") != std::string::npos)
        GTEST_SKIP() << "no sqlite3 on this machine";
    const char* loop =
        "WITH RECURSIVE r(x) AS (SELECT 1 UNION ALL SELECT x FROM r) SELECT x AS version FROM r "
        "WHERE x = 2";
    for (const std::string& sql : std::vector<std::string>{
             "UPDATE entries SET name = CAST('..' AS BLOB) WHERE id = 3",
             "UPDATE entries SET name = CAST('a/b' AS BLOB) WHERE id = 3",
             "UPDATE entries SET name = x'6100' WHERE id = 3",
             "UPDATE entries SET name = (SELECT name FROM entries WHERE id = 3) WHERE id = 4",
             "UPDATE entries SET mode = 33188 WHERE id = 1",
             "UPDATE entries SET link = 1 WHERE id = 5",
             "UPDATE entries SET link = 1000000 WHERE id = 5",
             "UPDATE entries SET size = -1 WHERE id = 5",
             "UPDATE entries SET frame = 1000000 WHERE id = 5",
             "UPDATE entries SET id = 1000000 WHERE id = (SELECT max(id) FROM entries)",
             "DELETE FROM entries WHERE id = 3",
             "UPDATE directories SET first = 1 WHERE id = 1",
             "UPDATE directories SET count = 2147483647 WHERE id = 1",
             "UPDATE directories SET id = 2147483648 WHERE id = (SELECT max(id) FROM directories)",
             "DELETE FROM directories WHERE id = 0",
             "UPDATE frames SET source = 1",
             "UPDATE frames SET content = 1 << 60",
             "UPDATE frames SET medium = 0",
             "UPDATE chain SET name = '20200101T000000-00000001'",
             "INSERT INTO chain VALUES(-1, '20200101T000000-00000001')",
             "UPDATE selection SET rule = CAST('EVERYTHING' AS BLOB)",
             "INSERT INTO gone VALUES(x'610061')",
             "UPDATE catalogue SET version = 2",
             "DROP TABLE gone",
             "CREATE INDEX more ON entries(name)",
             "CREATE TRIGGER more AFTER INSERT ON entries BEGIN DELETE FROM entries; END",
             std::string("DROP TABLE catalogue; CREATE VIEW catalogue AS ") + loop,
         }) {
        SCOPED_TRACE(sql);
        with(sql);
        EXPECT_EQ(Insert({backup}), JobEnd::Good) << fHouse.events.All();
        EXPECT_FALSE(IsQuick());
        EXPECT_EQ(Known(backup).name, backup);
        fHouse.ForgetAll();
    }
    // Far more than any catalogue has.
    ASSERT_EQ(Shell("cd " + folder +
                    " && (zstd -dqc catalogue.db.zst; head -c 300000000 /dev/zero) | "
                    "zstd -qfc > x && mv x catalogue.db.zst && sha256sum $(ls | grep "
                    "-v SHA256SUMS) > SHA256SUMS"),
              "");
    EXPECT_EQ(Insert({backup}), JobEnd::Good);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Detail, "more than a catalogue"))
        << fHouse.events.All();
    fHouse.ForgetAll();
    with("PRAGMA user_version = 0");
    EXPECT_EQ(Insert({backup}), JobEnd::Good);
    EXPECT_TRUE(IsQuick()) << fHouse.events.All();
    ExpectRestores(backup, tree);
    EXPECT_EQ(Shell("ls " + fHouse.root + "/catalogues"), backup + ".db\n");
}

TEST_P(EngineInsertOnce, AProtectedOneIsListedAndOpensWithItsKey) {
    fHouse.Protect("sesame");
    MakeNastyTree(fHouse.source);
    WriteWhole(fHouse.source + "/noise", NoiseBytes(9'000'000));
    const auto first = DescribeTree(fHouse.source);
    const std::string full = Save();
    WriteWhole(fHouse.source + "/new", "1");
    const auto second = DescribeTree(fHouse.source);
    const std::string incremental = Save(JobType::Incremental);

    const auto isLocked = [&](const std::string& name) {
        const auto list = fHouse.catalogues->List("/" + name, 0);
        return list && list->Get<int32_t>("locked", 0) == 1 && list->Count("name") == 0;
    };
    const auto open = [&](const std::string& name) {
        fHouse.events.Clear();
        return OpenLockedBackup(name, fHouse.identity, fHouse.config, *fHouse.catalogues,
                                fHouse.events, fHouse.control);
    };
    for (const bool isQuick : {true, false}) {
        SCOPED_TRACE(isQuick);
        fHouse.ForgetAll();
        if (!isQuick) {
            fs::remove(In(full, "catalogue.db.zst.age"));
            Damage(In(incremental, "catalogue.db.zst.age"), 400);
        }
        EXPECT_EQ(Insert({full, incremental}), JobEnd::Good) << fHouse.events.All();
        EXPECT_TRUE(isLocked(full));
        EXPECT_TRUE(isLocked(incremental));
        fHouse.Restored(full);
        EXPECT_EQ(fHouse.end, JobEnd::Errors);
        {
            CatalogueStore again(fHouse.root + "/catalogues");
            ASSERT_TRUE(again.Open());
            EXPECT_TRUE(again.Find(full).value_or(BackupInfo()).isLocked);
        }
        EXPECT_TRUE(open(full)) << fHouse.events.All();
        EXPECT_EQ(IsQuick(), isQuick);
        EXPECT_TRUE(isLocked(incremental));
        EXPECT_TRUE(open(incremental)) << fHouse.events.All();
        EXPECT_FALSE(isLocked(full));
        EXPECT_EQ(Known(full).protection.recipient, fHouse.protection->recipient);
        EXPECT_EQ(Differences(first, DescribeTree(Restored(full))), "");
        EXPECT_EQ(Differences(second, DescribeTree(Restored(incremental))), "");
    }
    // Where its catalogue was lost nobody knows what it was to save, and that is said at once.
    fHouse.ForgetAll();
    EXPECT_EQ(Insert({full}), JobEnd::Good);
    EXPECT_TRUE(open(full));
    EXPECT_TRUE(fHouse.events.HasText(LineType::Heading, "Nothing can be built on"));
    fHouse.Save(JobType::Incremental, Known(full).jobId);
    EXPECT_EQ(fHouse.end, JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "nothing can be built on"))
        << fHouse.events.All();
    // Without its key it is nobody's any more.
    fHouse.ForgetAll();
    fs::remove(In(full, "key.age"));
    EXPECT_EQ(Insert({full}), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "its key is missing"));
    EXPECT_TRUE(fHouse.catalogues->Backups().empty());
}

INSTANTIATE_TEST_SUITE_P(Zstd, EngineInsertOnce, testing::Values("KTZstd"));

}  // namespace
}  // namespace server
