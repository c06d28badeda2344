#include "client/selection/KTSourceSelectionView.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QAbstractItemModelTester>
#include <QElapsedTimer>
#include <QTest>
#include <filesystem>
#include <mutex>

#include "client/settings/Preferences.h"
#include "client/uikit/KTControl.h"
#include "kit/app/BLooper.h"
#include "tests/client/BackupTesting.h"

namespace fs = std::filesystem;
using backup_testing::Selection;
using client_testing::WaitFor;

namespace {

// Folders that pass for mounted volumes; their last part is their name.
class Folders : public kit::MountSource {
public:
    std::vector<Mount> Mounts() override {
        const std::lock_guard lock(fMutex);
        return fMounts;
    }
    std::string Label(const Mount&) override { return {}; }
    bool IsRemovable(const Mount&) override { return false; }
    std::optional<Space> SpaceOf(const Mount& mount) override {
        struct stat status {};
        if (::stat(mount.mountPoint.c_str(), &status) != 0) return std::nullopt;
        return Space{1000, 400, status.st_dev};
    }
    void Set(const std::vector<std::string>& points, const char* type = "ext4") {
        const std::lock_guard lock(fMutex);
        fMounts.clear();
        for (const std::string& point : points)
            fMounts.push_back({point, point, type, "/dev/test", 0, false});
    }

private:
    std::mutex fMutex;
    std::vector<Mount> fMounts;
};

using Rules = client_testing::Texts;

struct stat StatusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status;
}

class KTSourceSelectionViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"Disk", "Other", "Third"})
            fs::create_directories(folder / name);
        fs::create_directories(folder / "Disk/home/tmp/deep");
        folder.Write("Disk/home/tmp/deep/file", "x");
        folder.Write("Disk/home/b.txt", "12345");
        folder.Write("Disk/a", "1");
        folder.Write("Disk/ab", "2");
        mounts->Set({folder / "Disk", folder / "Other", folder / "Third"});
    }
    void TearDown() override {
        tester.reset();
        view.reset();
    }
    // The view, before it has looked anywhere.
    void Make(Preferences* preferences = nullptr) {
        view = std::make_unique<KTSourceSelectionView>(preferences, nullptr, mounts,
                                                       folder / "Disk/boot/var");
        tester = std::make_unique<QAbstractItemModelTester>(
            view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        view->resize(700, 400);
        view->show();
    }
    void Start() {
        Make();
        Settle();
    }
    void Settle() {
        ASSERT_TRUE(QTest::qWaitFor([&] { return view->IsIdle(); }, 20000));
    }
    // The row of "Disk/home/tmp", kNoRow when it is not there.
    KTRow Row(const std::string& path) {
        KTRow row = kNoRow;
        for (const fs::path& part : fs::path(path)) {
            row = view->Rows().ChildByText(row, KTSourceSelectionView::kName, part.string());
            if (row == kNoRow) return kNoRow;
        }
        return row;
    }
    void Expand(const std::string& path) {
        const KTRow row = Row(path);
        ASSERT_NE(row, kNoRow) << path;
        view->Expand(row);
        Settle();
    }
    // Many entries, quickly: links to one file.
    void Fill(const std::string& directory, int count) {
        const fs::path file = folder.Write(directory + "/0", "");
        for (int i = 1; i < count; ++i)
            fs::create_hard_link(file, file.parent_path() / std::to_string(i));
    }
    Rules Recorded() {
        BMessage message;
        view->GetSelection(&message);
        return Strings(message, "SELECTION");
    }
    void Send(BMessage message) { view->MessageReceived(message); }
    KTRowStore::Mark Mark(const std::string& path) { return view->CellMark(Row(path)); }
    std::string Names(const std::string& path) {
        std::string names;
        const KTRow row = Row(path);
        for (int32_t i = 0; i < view->Rows().ChildCount(row); ++i)
            names += std::string(view->Rows().TextAt(view->Rows().ChildAt(row, i), 1)) + " ";
        return names;
    }

    static constexpr auto None = KTRowStore::Mark::None;
    static constexpr auto Part = KTRowStore::Mark::Part;
    static constexpr auto Whole = KTRowStore::Mark::Whole;

    TemporaryFolder folder;
    std::shared_ptr<Folders> mounts = std::make_shared<Folders>();
    std::unique_ptr<KTSourceSelectionView> view;
    std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST_F(KTSourceSelectionViewTest, KeepsTheWidthsOfItsColumns) {
    Preferences preferences((folder / "prefs").c_str(), "KTBACKUP");
    preferences.Set("FCOLWIDT", 300.0F);
    preferences.Set("SCOLWIDT", 12.0F);
    Make(&preferences);
    const float widths[] = {20, 300, 20, 20, 150, 70};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(view->ColumnAt(i).width, widths[i]) << i;
        view->ColumnWidthChanged(i, 100.0F + static_cast<float>(i));
    }
    EXPECT_EQ(preferences.GetFloat("FCOLWIDT", 0), 101);
    EXPECT_EQ(preferences.GetFloat("SCOLWIDT", 0), 102);  // not that of "AttrSize"
    EXPECT_EQ(preferences.GetFloat("FDATWIDT", 0), 104);
    EXPECT_EQ(preferences.GetFloat("NODEWIDT", 0), 105);
}

TEST_F(KTSourceSelectionViewTest, ReadsDirectoriesWhenTheyAreExpanded) {
    fs::create_directories(folder / "Disk/boot/var");
    fs::create_directories(folder / "Disk/home/var");
    fs::create_symlink("home", folder / "Disk/link");
    folder.Write("Disk/file10", "");
    folder.Write("Disk/file9", "");
    ASSERT_EQ(::mkfifo((folder / "Disk/pipe").c_str(), 0600), 0);
    ASSERT_EQ(::setxattr((folder / "Disk/a").c_str(), "user.ab", "12345", 5, 0), 0);
    Start();
    EXPECT_EQ(Names(""), "Disk Other Third ");
    EXPECT_EQ(view->Rows().UserFlag(Row("Disk")), 0U);
    Expand("Disk");
    // Directories first, numbers as people count; no pipes.
    EXPECT_EQ(Names("Disk"), "boot home a ab file9 file10 link ");
    EXPECT_EQ(view->Rows().UserFlag(Row("Disk")), 1U);
    auto number = [&](const char* path, int column) {
        return view->Rows().NumberAt(Row(path), column);
    };
    EXPECT_EQ(number("Disk/a", KTSourceSelectionView::kSize), 1);
    EXPECT_EQ(number("Disk/a", KTSourceSelectionView::kAttributes), 7);
    EXPECT_EQ(number("Disk/home", KTSourceSelectionView::kSize), -1);
    EXPECT_EQ(number("Disk/link", KTSourceSelectionView::kSize), 0);
    EXPECT_FALSE(view->Rows().IsSuperItem(Row("Disk/link")));
    const struct stat status = StatusOf((folder / "Disk/a"));
    EXPECT_EQ(number("Disk/a", KTSourceSelectionView::kNode), static_cast<int64_t>(status.st_ino));
    EXPECT_EQ(view->CellText(Row("Disk/a"), 4).toStdString() + "\n", ::ctime(&status.st_mtime));
    Expand("Disk/boot");
    EXPECT_EQ(Names("Disk/boot"), "");  // the system's data is never offered
    Expand("Disk/home");
    EXPECT_EQ(Names("Disk/home"), "tmp var b.txt ");  // another "var" is
}

TEST_F(KTSourceSelectionViewTest, RecordsWhatIsMarked) {
    Start();
    Expand("Disk");
    Expand("Disk/home");
    view->MultiSelect(Row("Disk/home"));
    view->MultiDeselect(Row("Disk/home/tmp"));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*", "EXCLUDE /Disk/home/tmp/*"}));
    EXPECT_EQ(Mark("Disk"), Part);
    view->MultiSelect(Row("Disk/home"));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*"}));
    view->MultiSelect(Row("Disk/ab"));
    view->MultiSelect(Row("Disk/a"));  // a plain prefix: takes the other's rule away
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*", "INCLUDE /Disk/a"}));
    view->MultiSelectAll(true);
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/*", "INCLUDE /Other/*", "INCLUDE /Third/*"}));
    view->MultiSelectAll(false);
    EXPECT_EQ(Recorded(), Rules{});
    EXPECT_FALSE(view->HasSelection());
}

TEST_F(KTSourceSelectionViewTest, AMarkedDirectoryIsRecordedAnewWhenItIsRead) {
    Start();
    view->MultiSelect(Row("Disk"));
    Expand("Disk");
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/*"}));
    EXPECT_EQ(Mark("Disk/home"), Whole);
    Expand("Disk/home");
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/*", "INCLUDE /Disk/home/*"}));
    EXPECT_EQ(Mark("Disk/home/tmp"), Whole);
    EXPECT_EQ(Mark("Disk"), Whole);
}

TEST_F(KTSourceSelectionViewTest, ALoadedSelectionCountsAtOnceAndIsSettledAsRowsCome) {
    Make();  // not even the volumes are known
    const Rules rules{"INCLUDE /Disk/home/*", "EXCLUDE /Disk/home/tmp/deep/*", "INCLUDE /Other/*"};
    view->SetSelection(Selection(rules), true);
    EXPECT_EQ(Recorded(), rules);
    EXPECT_TRUE(view->HasSelection());
    Settle();
    EXPECT_EQ(Recorded(), rules);
    EXPECT_EQ(Mark("Disk"), Part);
    EXPECT_EQ(Mark("Disk/home"), Part);
    EXPECT_EQ(Mark("Disk/home/b.txt"), Whole);
    EXPECT_EQ(Mark("Disk/home/tmp"), None);  // its only entry is left out
    EXPECT_EQ(Mark("Disk/home/tmp/deep"), None);
    EXPECT_EQ(Mark("Other"), Whole);
    EXPECT_EQ(Mark("Disk/a"), None);
    EXPECT_FALSE(view->Rows().IsExpanded(Row("Disk")));  // read, not opened
}

TEST_F(KTSourceSelectionViewTest, RulesOfWhatIsNotThereAreSkipped) {
    Start();
    view->SetSelection(
        Selection({"INCLUDE /Disk/gone/sub/*", "INCLUDE /Nowhere/*", "INCLUDE /Disk/a/below",
                   "INCLUDE /*", "INCLUDE", "INCLUDE /Disk/home/b.txt"}),
        true);
    Settle();
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/b.txt"}));
    EXPECT_EQ(Mark("Disk/home"), Part);
    view->MultiSelectAll(false);
    view->SetSelection(Selection({"INCLUDE /Disk/home/gone"}), true);
    Settle();
    EXPECT_EQ(Recorded(), Rules{});
    EXPECT_FALSE(view->Rows().HasMarks());
}

TEST_F(KTSourceSelectionViewTest, RulesOfUnreadDirectoriesWaitForThem) {
    Start();
    view->SetSelection(Selection({"INCLUDE /Disk/*", "EXCLUDE /Disk/home/tmp/*"}), false);
    EXPECT_EQ(view->Rows().ChildCount(Row("Disk")), 0);
    EXPECT_EQ(Mark("Disk"), Part);  // although nothing of it is there
    Expand("Disk");                 // must not replace the rule below
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/*", "EXCLUDE /Disk/home/tmp/*"}));
    EXPECT_EQ(Mark("Disk/home"), Part);
    EXPECT_EQ(Mark("Disk/a"), Whole);
    Expand("Disk/home");
    EXPECT_EQ(Mark("Disk/home/tmp"), None);
    EXPECT_EQ(Mark("Disk/home/b.txt"), Whole);
    // A mark above replaces what was below, waiting or not.
    view->MultiSelect(Row("Disk"));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/*"}));
    EXPECT_EQ(Mark("Disk"), Whole);
}

TEST_F(KTSourceSelectionViewTest, ARuleFollowsItsEntryFromFileToDirectory) {
    Start();
    view->SetSelection(Selection({"INCLUDE /Disk/home/tmp", "INCLUDE /Disk/a/*"}), true);
    Settle();
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/tmp/*", "INCLUDE /Disk/a"}));
    EXPECT_EQ(Mark("Disk/home/tmp"), Whole);
}

TEST_F(KTSourceSelectionViewTest, NamesAreBytes) {
    const std::string odd = "caf\xe9";
    folder.Write("Other/" + odd, "x");
    folder.Write("Other/*", "x");
    folder.Write("Other/x*", "x");
    Start();
    Expand("Other");
    view->MultiSelect(Row("Other/" + odd));
    view->MultiSelect(Row("Other/x*"));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Other/" + odd, "INCLUDE /Other/x*"}));
    EXPECT_EQ(view->CellText(Row("Other/" + odd), 1), "caf\\xE9");
    const Rules before = Recorded();
    // Its rule would be one about everything beside it.
    view->MultiSelect(Row("Other/*"));
    EXPECT_EQ(Recorded(), before);
    view->MultiSelectAll(false);
    view->SetSelection(Selection(before), true);
    EXPECT_EQ(Recorded(), before);
}

TEST_F(KTSourceSelectionViewTest, FollowsEntriesThatComeAndGo) {
    Start();
    Expand("Disk");
    Expand("Disk/home");
    view->MultiSelect(Row("Disk/home"));
    folder.Write("Disk/home/new", "123");
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/home/new") != kNoRow; }));
    EXPECT_EQ(Mark("Disk/home/new"), Whole);
    EXPECT_EQ(Mark("Disk/home"), Whole);
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*"}));

    fs::remove(folder / "Disk/home/new");
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/home/new") == kNoRow; }));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*", "EXCLUDE /Disk/home/new"}));
    // Back again, it is what it was.
    folder.Write("Disk/home/new", "1");
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/home/new") != kNoRow; }));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Disk/home/*"}));
    EXPECT_EQ(Mark("Disk/home"), Whole);

    fs::rename(folder / "Disk/home/tmp", folder / "Disk/moved");
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/moved") != kNoRow; }));
    EXPECT_EQ(Row("Disk/home/tmp"), kNoRow);
    EXPECT_EQ(Mark("Disk/moved"), None);
    Expand("Disk/moved");
    EXPECT_EQ(Names("Disk/moved"), "deep ");
}

TEST_F(KTSourceSelectionViewTest, SavingAFileAnewKeepsItsMark) {
    Start();
    Expand("Disk");
    Expand("Disk/home");
    view->MultiSelect(Row("Disk/home/b.txt"));
    const Rules before = Recorded();
    const KTRow row = Row("Disk/home/b.txt");
    // As editors do: written beside, and renamed over it.
    fs::rename(folder.Write("Disk/home/.b.txt.new", "1234567890"), folder / "Disk/home/b.txt");
    ASSERT_TRUE(
        WaitFor([&] { return view->Rows().NumberAt(row, KTSourceSelectionView::kSize) == 10; }));
    EXPECT_EQ(Mark("Disk/home/b.txt"), Whole);
    EXPECT_EQ(Recorded(), before);
    // The old one kept under another name.
    fs::rename(folder / "Disk/home/b.txt", folder / "Disk/home/b.txt~");
    folder.Write("Disk/home/b.txt", "123");
    ASSERT_TRUE(WaitFor([&] {
        const KTRow now = Row("Disk/home/b.txt");
        return now != kNoRow && view->Rows().NumberAt(now, KTSourceSelectionView::kSize) == 3;
    }));
    EXPECT_EQ(Mark("Disk/home/b.txt"), Whole);
    EXPECT_EQ(Recorded(), before);
}

TEST_F(KTSourceSelectionViewTest, AnswersEventsThatOnlyTellTheNode) {
    Start();
    Expand("Disk");
    view->MultiSelect(Row("Disk/a"));
    const struct stat status = StatusOf((folder / "Disk/a"));
    Send(Made(B_NODE_MONITOR, {{"opcode", 2},
                               {"device", static_cast<int64_t>(status.st_dev)},
                               {"node", static_cast<int64_t>(status.st_ino)}}));
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/a") == kNoRow; }));
    EXPECT_EQ(Recorded(), (Rules{"EXCLUDE /Disk/a"}));
    EXPECT_EQ(Mark("Disk"), None);
}

TEST_F(KTSourceSelectionViewTest, LostEventsAreMadeUpForByLookingAgain) {
    Start();
    Expand("Disk");
    Expand("Disk/home");
    const KTRow kept = Row("Disk/home");
    // Nobody tells of these: the directory is not the one that is watched.
    view->Rows().SetText(Row("Disk/a"), KTSourceSelectionView::kName, "vanished");
    Send(Made(B_NODE_MONITOR, {{"opcode", 100}}));
    ASSERT_TRUE(WaitFor([&] { return Row("Disk/a") != kNoRow && view->IsIdle(); }));
    EXPECT_EQ(Row("Disk/vanished"), kNoRow);
    EXPECT_EQ(Row("Disk/home"), kept);
    EXPECT_TRUE(view->Rows().IsExpanded(kept));
}

TEST_F(KTSourceSelectionViewTest, VolumesComeAndGo) {
    Start();
    view->SetSelection(Selection({"INCLUDE /Other/*", "INCLUDE /Disk/*"}), true);
    Settle();
    mounts->Set({folder / "Disk"});
    Send(Made(B_NODE_MONITOR, {{"opcode", 7}}));
    ASSERT_TRUE(WaitFor([&] { return view->Rows().ChildCount(kNoRow) == 1; }));
    EXPECT_EQ(Recorded(), (Rules{"INCLUDE /Other/*", "INCLUDE /Disk/*"}));
    mounts->Set({folder / "Disk", folder / "Other"});
    const struct stat status = StatusOf((folder / "Other"));
    BMessage mounted =
        Made(B_NODE_MONITOR, {{"opcode", 6}, {"new device", static_cast<int64_t>(status.st_dev)}});
    view->MessageReceived(mounted);
    ASSERT_TRUE(WaitFor([&] { return Row("Other") != kNoRow; }));
    EXPECT_EQ(Mark("Other"), Whole);  // its rule had stayed
}

TEST_F(KTSourceSelectionViewTest, KeepsSelectionFiles) {
    Start();
    BMessage request = Made({{"directory", entry_ref{folder.Path()}}, {"name", "sel"}});
    BMessage selection;
    BMessage empty = request;
    EXPECT_EQ(view->SaveSelection(empty, selection), 4);
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_FALSE(fs::exists(folder / "sel"));

    view->MultiSelect(Row("Disk"));
    view->GetSelection(&selection);
    EXPECT_EQ(view->SaveSelection(request, selection), 0);
    BMessage file = Made({{"refs", entry_ref{folder / "sel"}}});
    BMessage loaded = Made(0x12345678U, {{"old", 1}});
    EXPECT_EQ(view->LoadSelection(file, &loaded), 0);
    EXPECT_EQ(loaded.FindString("SELECTION"), "INCLUDE /Disk/*");

    folder.Write("sel", "KTSELECX" + std::string(200, '\0'));
    BMessage untouched = loaded;
    EXPECT_EQ(view->LoadSelection(file, &loaded), 3);
    folder.Write("sel", "KTSELECT");
    EXPECT_EQ(view->LoadSelection(file, &loaded), 2);
    folder.Write("sel", "KTSELECT" + std::string(92, '\0') + "rubbish");
    EXPECT_EQ(view->LoadSelection(file, &loaded), 4);
    fs::remove(folder / "sel");
    EXPECT_EQ(view->LoadSelection(file, &loaded), 1);
    EXPECT_EQ(loaded, untouched);
}

TEST_F(KTSourceSelectionViewTest, ALongDirectoryComesInPiecesAndCanBeGivenUp) {
    constexpr int kFiles = 30000;  // beyond what is sorted first
    Fill("Third", kFiles);
    Start();
    const KTRow row = Row("Third");
    view->MultiSelect(row);
    view->Expand(row);
    ASSERT_TRUE(WaitFor([&] { return view->Rows().ChildCount(row) > 0; }));
    EXPECT_LT(view->Rows().ChildCount(row), kFiles);
    EXPECT_TRUE(view->IsReading(row));
    EXPECT_TRUE(view->CellText(row, 1).endsWith(QChar(0x2026)));
    EXPECT_NE(view->SpokenRow(row), "Third");
    // Unmarking what has come counts for what comes.
    view->MultiDeselect(row);
    view->Collapse(row);
    EXPECT_FALSE(view->IsReading(row));
    EXPECT_EQ(view->Rows().UserFlag(row), 0U);
    view->Expand(row);
    Settle();
    EXPECT_EQ(view->Rows().ChildCount(row), kFiles);
    EXPECT_FALSE(view->Rows().HasMarks());
    EXPECT_TRUE(view->Rows().IsConsistent());
}

TEST_F(KTSourceSelectionViewTest, MarksMadeWhileReadingHoldForWhatComes) {
    constexpr int kFiles = 25000;
    Fill("Third", kFiles);
    Start();
    const KTRow row = Row("Third");
    view->Expand(row);
    ASSERT_TRUE(WaitFor([&] { return view->Rows().ChildCount(row) > 0; }));
    view->MultiSelect(row);
    const KTRow first = view->Rows().ChildAt(row, 0);
    view->MultiDeselect(first);
    // An entry that comes and one that goes while it is being read.
    folder.Write("Third/new", "");
    fs::remove(folder / "Third/77");
    Settle();
    ASSERT_TRUE(WaitFor([&] { return Row("Third/new") != kNoRow && Row("Third/77") == kNoRow; }));
    EXPECT_EQ(view->Rows().ChildCount(row), kFiles);
    EXPECT_FALSE(view->Rows().IsMarked(first));
    EXPECT_EQ(view->Rows().MarkedRows().size(), size_t{kFiles});  // all but one, and the volume
}

}  // namespace
