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

class EngineChain : public testing::Test {
protected:
    // A backup of that kind; its name, "" when there is none.
    std::string Save(JobType type = kIncremental, int32_t set = 1) {
        JobOrder order = fHouse.Order();
        order.type = type;
        if (type != kFull) {
            order.description.Remove("selection");
            order.description.Add("base_id", set);
        }
        fHouse.config.now = [this] { return fNow += 100; };
        fHouse.events.lines.clear();
        const auto before = fHouse.Folders();
        fEnd = fHouse.Run(order);
        const auto after = fHouse.Folders();
        return after.size() > before.size() ? after.back() : "";
    }
    JobEnd Restore(const std::string& backup, const std::string& to) {
        JobOrder order;
        order.id = 1000;
        order.type = JobType::Restore;
        BMessage selection, settings;
        selection.Add("SELECTION", "INCLUDE /" + backup + "/Source/*");
        selection.Add("source", "REDIREC /" + backup + "/Source/*");
        selection.Add("redirect", to);
        settings.Add("createemptydirs", int32_t{1});
        settings.Add("divert", int32_t{1});
        order.description.Add("selection", selection);
        order.description.Add("restore", settings);
        fHouse.events.lines.clear();
        return fHouse.Run(order);
    }
    // The tree as a tool that is not ours tells it: every entry with all that belongs to it.
    std::string Tell(const std::string& folder) const {
        return EngineHouse::Shell(
            "cd '" + folder +
            "' && find . -mindepth 1 -printf '%P\\0%y %m %U %G %T@ %l %n\\n' | LC_ALL=C sort && "
            "find . -type f -print0 | LC_ALL=C sort -z | xargs -0r sha256sum && "
            "find . -mindepth 1 -print0 | LC_ALL=C sort -z | xargs -0r getfattr -hd -m '^user' "
            "2>/dev/null");
    }
    // A copy of the source as it is now, to hold against later.
    std::string Keep() {
        const std::string kept = fHouse.root + "/kept" + std::to_string(fKept++);
        EngineHouse::Shell("cp -a '" + fHouse.source + "' '" + kept + "'");
        return kept;
    }
    void ExpectRestores(const std::string& backup, const std::string& kept) {
        const std::string to = fHouse.root + "/restored" + std::to_string(fKept++);
        fs::create_directory(to);
        EXPECT_EQ(Restore(backup, to), JobEnd::Good) << fHouse.events.All();
        EXPECT_EQ(Tell(to), Tell(kept));
    }
    // As README.txt says: each of the chain in turn, first what is gone, then what is new.
    void ExpectUnpacks(const std::vector<std::string>& chain, const std::string& kept) {
        const std::string to = fHouse.root + "/unpacked" + std::to_string(fKept++);
        fs::create_directory(to);
        for (const std::string& backup : chain) {
            const std::string printed =
                EngineHouse::Shell("cd '" + fHouse.target + "/" + backup +
                                   "' && sha256sum --quiet -c SHA256SUMS && "
                                   "if [ -e gone.list ]; then (cd '" +
                                   to +
                                   "' && xargs -0r rm -rf --) < gone.list; fi && "
                                   "cat $(ls -v *.tar.zst) | zstd -dc | tar -xpf - --acls --xattrs "
                                   "--xattrs-include='*' -C '" +
                                   to + "'");
            EXPECT_EQ(printed, "");
        }
        EXPECT_EQ(Tell(to + "/Source"), Tell(kept));
    }
    std::vector<std::string> Members(const std::string& backup) const {
        std::istringstream lines(EngineHouse::Shell("cd '" + fHouse.target + "/" + backup +
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
        std::ofstream(fHouse.source + "/" + name, std::ios::binary) << content;
    }
    std::string In(const std::string& name) const { return fHouse.source + "/" + name; }

    EngineHouse fHouse;
    JobEnd fEnd = JobEnd::Good;
    int64_t fNow = 1'795'378'530;
    int fKept = 0;
};

using Names = std::vector<std::string>;

TEST_F(EngineChain, HoldsOnlyWhatHasChanged) {
    fs::create_directories(In("docs/deep"));
    fs::create_directories(In("still/deep"));
    Write("docs/a", "1");
    Write("docs/b", "1");
    Write("docs/deep/c", "1");
    Write("still/deep/d", "1");
    Write("gone", "1");
    const std::string full = Save(kFull);
    const std::string first = Keep();
    Write("docs/a", "22");
    fs::remove(In("gone"));
    fs::remove(In("docs/deep/c"));
    const std::string second = Save();
    EXPECT_EQ(fEnd, JobEnd::Good) << fHouse.events.All();
    EXPECT_EQ(Members(second),
              (Names{"Source/", "Source/docs/", "Source/docs/a", "Source/docs/deep/"}));
    EXPECT_EQ(Gone(second), (Names{"Source/gone", "Source/docs/deep/c"}));
    EXPECT_TRUE(fHouse.events.Has(LineType::Heading, text::kBackupModeIs));
    const std::string kept = Keep();
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
    EngineHouse::Shell("touch -d '2001-02-03' '" + In("old") + "'");
    // As long as before, and with the same time.
    EngineHouse::Shell("cp -p '" + In("same size") + "' '" + fHouse.root +
                       "/t' && printf bbbb > '" + In("same size") + "' && touch -r '" +
                       fHouse.root + "/t' '" + In("same size") + "'");
    fs::permissions(In("mode"), fs::perms::owner_all);
    fs::remove(In("link"));
    fs::create_symlink("ther", In("link"));
    fs::remove(In("became"));
    fs::create_directory(In("became"));
    fs::remove_all(In("turns"));
    Write("turns", "a file now");
    const std::string second = Save();
    EXPECT_EQ(fEnd, JobEnd::Good) << fHouse.events.All();
    const std::string kept = Keep();
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
    ExpectRestores(Save(), Keep());  // all as it was
    EXPECT_EQ(fHouse.events.Texts(LineType::Error), Names{});
    fs::rename(In("a"), In("b"));  // the first names are new, the last ones are not
    Write("new", "n");
    const std::string third = Save();
    const std::string kept = Keep();
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
    const std::string to = fHouse.root + "/to";
    fs::create_directory(to);
    EXPECT_EQ(Restore(second, to), JobEnd::Errors);
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
    const auto check = [&] {
        JobOrder order;
        order.id = 2000;
        order.type = JobType::Verify;
        BMessage selection;
        selection.Add("SELECTION", "INCLUDE /" + second + "/*");
        order.description.Add("selection", selection);
        fHouse.events.lines.clear();
        return fHouse.Run(order);
    };
    EXPECT_EQ(check(), JobEnd::Good) << fHouse.events.All();
    {
        std::fstream medium(fHouse.target + "/" + full + "/0001.tar.zst",
                            std::ios::in | std::ios::out | std::ios::binary);
        medium.seekp(40);
        medium.put('X');
    }
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
    std::vector<std::pair<std::string, std::string>> states;  // backup, copy
    states.emplace_back(Save(kFull), Keep());
    for (int round = 0; round < 6; ++round) {
        for (int i = below(12); i >= 0; --i)
            change();
        const std::string backup = Save(below(4) == 0 ? kDifferential : kIncremental);
        ASSERT_NE(backup, "") << fHouse.events.All();
        states.emplace_back(backup, Keep());
    }
    for (const auto& [backup, copy] : states) {
        SCOPED_TRACE(backup);
        ExpectRestores(backup, copy);
        Names chain = fHouse.catalogues->Find(backup)->builtOn;
        chain.push_back(backup);
        ExpectUnpacks(chain, copy);
    }
}

}  // namespace
}  // namespace server
