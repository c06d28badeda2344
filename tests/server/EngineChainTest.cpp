// Backups that build on others: what goes into them, and that each brings back the tree of its
// time, by the engine and by stock tools.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "core/protocol/Texts.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BackupJob.h"
#include "tests/server/EngineHouse.h"

namespace server {
namespace {

namespace fs = std::filesystem;
namespace text = core::text;
using core::JobEnd;
using core::JobType;
using core::LineType;

constexpr auto kFull = JobType::Full;
constexpr auto kIncremental = JobType::Incremental;
constexpr auto kDifferential = JobType::Differential;

using Names = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;

class EngineChain : public testing::Test {
protected:
    EngineChain() {
        fHouse.config.now = [this] { return fNow += 100; };
    }
    std::string Save(JobType type = kIncremental, int32_t set = 1) {
        return fHouse.Save(type, set);
    }
    Tree Now() const { return DescribeTree(fHouse.source); }
    void ExpectRestores(const std::string& backup, const Tree& tree) {
        const std::string to = fHouse.Restored(backup);
        EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
        EXPECT_EQ(Differences(tree, DescribeTree(to)), "");
    }
    // As README.txt says: each of the chain in turn, first what is gone, then what is new.
    void ExpectUnpacks(const std::vector<std::string>& chain, const Tree& tree) {
        EXPECT_EQ(Differences(tree, DescribeTree(fHouse.Unpack(chain) + "/Source")), "");
    }
    std::vector<std::string> Members(const std::string& backup) const {
        std::istringstream lines(Shell("cd '" + fHouse.target + "/" + backup +
                                       "' && zstd -dc 0001.tar.zst | tar -tf -"));
        std::vector<std::string> members;
        for (std::string line; std::getline(lines, line);)
            members.push_back(line);
        return members;
    }
    std::vector<std::string> Gone(const std::string& backup) const {
        std::ifstream in(fHouse.target + "/" + backup + "/gone.list", std::ios::binary);
        std::vector<std::string> paths;
        for (std::string path; std::getline(in, path, '\0');)
            paths.push_back(path);
        return paths;
    }
    void Write(const std::string& name, const std::string& content) const {
        WriteWhole(In(name), content);
    }
    std::string In(const std::string& name) const { return fHouse.source + "/" + name; }

    EngineHouse fHouse;
    int64_t fNow = 1'795'378'530;
};

TEST_F(EngineChain, HoldsOnlyWhatHasChanged) {
    fs::create_directories(In("docs/deep"));
    fs::create_directories(In("still/deep"));
    Write("docs/a", "1");
    Write("docs/b", "1");
    Write("docs/deep/c", "1");
    Write("still/deep/d", "1");
    Write("gone", "1");
    const std::string full = Save(kFull);
    const Tree first = Now();
    Write("docs/a", "22");
    fs::remove(In("gone"));
    fs::remove(In("docs/deep/c"));
    const std::string second = Save();
    EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Members(second),
              (Names{"Source/", "Source/docs/", "Source/docs/a", "Source/docs/deep/"}));
    EXPECT_EQ(Gone(second), (Names{"Source/gone", "Source/docs/deep/c"}));
    EXPECT_TRUE(fHouse.events.Has(LineType::Heading, text::kBackupModeIs));
    const Tree kept = Now();
    ExpectRestores(second, kept);
    ExpectUnpacks({full, second}, kept);
    ExpectRestores(full, first);

    const std::string nothing = Save();
    EXPECT_EQ(Members(nothing), Names{});
    EXPECT_EQ(Gone(nothing), Names{});
    ExpectRestores(nothing, kept);
    // An increment builds on the one before it, a differential one only on the full backup.
    const std::string differential = Save(kDifferential);
    EXPECT_EQ(fHouse.catalogues->Find(nothing)->builtOn, (Names{full, second}));
    EXPECT_EQ(fHouse.catalogues->Find(differential)->builtOn, (Names{full}));
    EXPECT_EQ(fHouse.catalogues->Find(differential)->baseId, 1);
    ExpectRestores(differential, kept);
}

TEST_F(EngineChain, SeesWhatTimesAloneDoNotTell) {
    fs::create_directories(In("dir/sub"));
    Write("dir/sub/file", "inside");
    Write("old", "new content");
    Write("same size", "aaaa");
    Write("mode", "m");
    fs::create_symlink("here", In("link"));
    Write("became", "a file");
    fs::create_directory(In("turns"));
    Write("turns/x", "x");
    const std::string full = Save(kFull);
    // A whole directory under another name; nothing in it was touched.
    fs::rename(In("dir"), In("moved"));
    // An older version put back, with its old time.
    Write("old", "old content");
    Shell("touch -d '2001-02-03' '" + In("old") + "'");
    // As long as before, and with the same time.
    Shell("cp -p '" + In("same size") + "' '" + fHouse.root + "/t' && printf bbbb > '" +
          In("same size") + "' && touch -r '" + fHouse.root + "/t' '" + In("same size") + "'");
    fs::permissions(In("mode"), fs::perms::owner_all);
    fs::remove(In("link"));
    fs::create_symlink("ther", In("link"));
    fs::remove(In("became"));
    fs::create_directory(In("became"));
    fs::remove_all(In("turns"));
    Write("turns", "a file now");
    const std::string second = Save();
    EXPECT_EQ(fHouse.end, JobEnd::Good) << fHouse.events.All();
    const Tree kept = Now();
    ExpectRestores(second, kept);
    ExpectUnpacks({full, second}, kept);
}

TEST_F(EngineChain, KeepsHardLinksTogether) {
    fs::create_directories(In("a"));
    fs::create_directories(In("z"));
    Write("a/one", "shared");
    fs::create_hard_link(In("a/one"), In("a/two"));
    fs::create_hard_link(In("a/one"), In("z/three"));
    Write("a/other", "first name moves");
    fs::create_hard_link(In("a/other"), In("z/other"));
    const std::string full = Save(kFull);
    ExpectRestores(Save(), Now());  // all as it was
    EXPECT_EQ(fHouse.events.Texts(LineType::Error), Names{});
    fs::rename(In("a"), In("b"));  // the first names are new, the last ones are not
    Write("new", "n");
    const std::string third = Save();
    const Tree kept = Now();
    ExpectRestores(third, kept);
    ExpectUnpacks({full, fHouse.Folders()[1], third}, kept);
}

TEST_F(EngineChain, AMissingBaseIsToldAndNothingElseBreaks) {
    Write("a", "1");
    EXPECT_EQ(Save(kIncremental, 77), "");
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupMissing));
    const std::string full = Save(kFull);
    Write("a", "22");
    const std::string second = Save(kIncremental, 2);
    ASSERT_NE(second, "") << fHouse.events.All();
    fHouse.Forget(full);
    const std::string to = fHouse.Restored(second);
    EXPECT_EQ(fHouse.end, JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupMissing));
    EXPECT_TRUE(fs::is_empty(to));
    EXPECT_EQ(Save(kIncremental, 2), "");
    EXPECT_TRUE(fHouse.events.Has(LineType::Error, text::kBackupMissing));
}

TEST_F(EngineChain, ACheckLooksAtTheWholeChain) {
    Write("a", std::string(10000, 'a'));
    const std::string full = Save(kFull);
    Write("b", std::string(10000, 'b'));
    const std::string second = Save();
    const auto check = [&] { return fHouse.Run(fHouse.ReadOrder(JobType::Verify, second)); };
    EXPECT_EQ(check(), JobEnd::Good) << fHouse.events.All();
    Damage(fHouse.target + "/" + full + "/0001.tar.zst", 40);
    EXPECT_EQ(check(), JobEnd::Errors);
    EXPECT_TRUE(fHouse.events.HasText(LineType::Error, "checksum")) << fHouse.events.All();
}

// Random changes and backups; every state is brought back and compared.
TEST_F(EngineChain, EveryStateOfARandomHistoryComesBack) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const auto any = [&](bool directory) -> std::string {
        std::vector<std::string> all;
        if (directory) all.push_back(fHouse.source);
        for (const auto& entry : fs::recursive_directory_iterator(fHouse.source))
            if (entry.symlink_status().type() ==
                (directory ? fs::file_type::directory : fs::file_type::regular))
                all.push_back(entry.path());
        std::ranges::sort(all);
        return all.empty() ? "" : all[static_cast<size_t>(below(static_cast<int>(all.size())))];
    };
    int names = 0;
    const auto change = [&] {
        const std::string directory = any(true), file = any(false);
        const std::string fresh = directory + "/n" + std::to_string(names++);
        std::error_code ignored;
        switch (below(9)) {
            case 0:
            case 1:
                std::ofstream(fresh) << std::string(static_cast<size_t>(below(100'000)),
                                                    static_cast<char>('a' + below(26)));
                break;
            case 2:
                fs::create_directory(fresh);
                break;
            case 3:
                if (!file.empty()) std::ofstream(file, std::ios::app) << "more";
                break;
            case 4:
                if (!file.empty()) fs::remove(file);
                break;
            case 5:
                if (directory != fHouse.source) fs::remove_all(directory);
                break;
            case 6:
                if (directory != fHouse.source && !fs::relative(fresh, directory).empty())
                    fs::rename(directory, any(true) + "/r" + std::to_string(names++), ignored);
                break;
            case 7:
                if (!file.empty()) fs::create_hard_link(file, fresh, ignored);
                break;
            default:
                if (!file.empty())
                    fs::permissions(file, static_cast<fs::perms>(0600 + below(0200)));
        }
    };
    for (int i = 0; i < 25; ++i)
        change();
    Write("never empty", "x");
    std::vector<std::pair<std::string, Tree>> states;
    states.emplace_back(Save(kFull), Now());
    for (int round = 0; round < 6; ++round) {
        for (int i = below(12); i >= 0; --i)
            change();
        const std::string backup = Save(below(4) == 0 ? kDifferential : kIncremental);
        ASSERT_NE(backup, "") << fHouse.events.All();
        states.emplace_back(backup, Now());
    }
    for (const auto& [backup, tree] : states) {
        SCOPED_TRACE(backup);
        ExpectRestores(backup, tree);
        Names chain = fHouse.catalogues->Find(backup)->builtOn;
        chain.push_back(backup);
        ExpectUnpacks(chain, tree);
    }
}

}  // namespace
}  // namespace server
