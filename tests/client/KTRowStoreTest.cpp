#include "client/uikit/KTRowStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

namespace {

using Mark = KTRowStore::Mark;

class KTRowStoreTest : public ::testing::Test {
protected:
    KTRow Add(KTRow parent, std::string_view name, bool super = false, int32_t index = -1) {
        const std::string_view texts[] = {name};
        const int64_t numbers[] = {3, -1, 1700000000};
        return store.AddUnder(parent, {texts, numbers, super, false, 0}, index);
    }
    // Every row's name, indented, a "+" before whole and a "~" before part marks.
    std::string Drawn() const {
        std::string text;
        for (KTRow row = store.First(); row != kNoRow; row = store.Next(row)) {
            text += std::string(store.Level(row), ' ');
            if (store.MarkOf(row) != Mark::None)
                text += store.MarkOf(row) == Mark::Whole ? '+' : '~';
            text += std::string(store.TextAt(row, 1)) + "\n";
        }
        return text;
    }

    KTRowStore store{
        {KTColumnKind::Icon, KTColumnKind::Text, KTColumnKind::Number, KTColumnKind::Time}};
};

TEST_F(KTRowStoreTest, KeepsRowsInDisplayOrderWithTheirValues) {
    const KTRow disk = Add(kNoRow, "Disk", true);
    const KTRow home = Add(disk, "home", true);
    Add(disk, "zip");
    Add(kNoRow, "Other", true);
    Add(home, "b");
    Add(home, "a", false, 0);
    EXPECT_EQ(Drawn(), "Disk\n home\n  a\n  b\n zip\nOther\n");
    EXPECT_EQ(store.NumberAt(home, 0), 3);
    EXPECT_EQ(store.NumberAt(home, 2), -1);
    EXPECT_EQ(store.NumberAt(home, 3), 1700000000);
    EXPECT_EQ(store.NextAfterSubtree(home), store.ChildAt(disk, 1));
    EXPECT_EQ(store.ChildByText(disk, 1, "zip"), store.ChildAt(disk, 1));
    EXPECT_EQ(store.ChildByText(disk, 1, "a"), kNoRow);

    store.Move(home, store.ChildAt(kNoRow, 1));
    EXPECT_EQ(Drawn(), "Disk\n zip\nOther\n home\n  a\n  b\n");
    store.Move(store.ChildAt(kNoRow, 1), home);  // below itself: refused
    EXPECT_TRUE(store.IsConsistent());
    store.Remove(store.ChildAt(kNoRow, 1));
    EXPECT_EQ(Drawn(), "Disk\n zip\n");
    EXPECT_FALSE(store.Has(home));
    EXPECT_EQ(store.Count(), 2);
    EXPECT_TRUE(store.IsConsistent());
}

TEST_F(KTRowStoreTest, TextsAreBytesAndLongOnesAreCut) {
    const std::string odd("\xff\xfe\0x", 4);
    const KTRow row = Add(kNoRow, odd);
    EXPECT_EQ(store.TextAt(row, 1), odd);
    for (const size_t length : {254U, 255U, 256U, 65535U}) {
        store.SetText(row, 1, std::string(length, 'a'));
        EXPECT_EQ(store.TextAt(row, 1).size(), length);
    }
    store.SetText(row, 1, std::string(70000, 'a'));
    EXPECT_EQ(store.TextAt(row, 1).size(), 65535U);
    store.SetText(row, 1, store.TextAt(row, 1).substr(65530));  // a part of itself
    EXPECT_EQ(store.TextAt(row, 1), "aaaaa");
}

TEST_F(KTRowStoreTest, SpaceOfChangedTextsIsUsedAgain) {
    const KTRow row = Add(kNoRow, "start");
    const KTRow other = Add(kNoRow, "stays");
    // 200 MB of text in all: an arena that only grows would show in any memory limit, and break
    // the 32 bits of a reference at twenty times that.
    for (int i = 0; i < 4000; ++i)
        store.SetText(row, 1, std::string(50000, static_cast<char>('a' + i % 26)));
    EXPECT_EQ(store.TextAt(other, 1), "stays");
    EXPECT_EQ(store.TextAt(row, 1)[0], 'a' + 3999 % 26);
}

TEST_F(KTRowStoreTest, MarkingTakesTheSubtreeAndTheAncestors) {
    const KTRow disk = Add(kNoRow, "Disk", true);
    const KTRow home = Add(disk, "home", true);
    const KTRow tmp = Add(home, "tmp", true);
    Add(tmp, "deep");
    Add(home, "file");
    Add(disk, "other");

    store.MultiSelect(home);
    EXPECT_EQ(Drawn(), "~Disk\n +home\n  +tmp\n   +deep\n  +file\n other\n");
    store.MultiDeselect(tmp);
    EXPECT_EQ(Drawn(), "~Disk\n ~home\n  tmp\n   deep\n  +file\n other\n");
    // The last mark below takes the ancestors with it.
    store.MultiDeselect(store.ChildByText(home, 1, "file"));
    EXPECT_EQ(Drawn(), "Disk\n home\n  tmp\n   deep\n  file\n other\n");
    EXPECT_FALSE(store.HasMarks());

    store.MultiSelect(store.ChildAt(tmp, 0));
    EXPECT_EQ(Drawn(), "~Disk\n ~home\n  +tmp\n   +deep\n  file\n other\n");
    EXPECT_EQ(store.MarkedRows().size(), 4U);
    Add(tmp, "late");  // an unmarked newcomer makes the whole a part
    EXPECT_EQ(store.MarkOf(tmp), Mark::Part);
    store.Remove(store.ChildByText(tmp, 1, "late"));
    EXPECT_EQ(store.MarkOf(tmp), Mark::Whole);
    store.MultiSelect(disk);
    EXPECT_EQ(store.MarkOf(disk), Mark::Whole);
    store.ClearMarks();
    EXPECT_TRUE(store.MarkedRows().empty());
    EXPECT_TRUE(store.IsConsistent());
}

TEST_F(KTRowStoreTest, MarkGenerationTellsOfChangesOnly) {
    const KTRow row = Add(kNoRow, "a");
    uint64_t last = store.MarkGeneration();
    auto changed = [&] { return std::exchange(last, store.MarkGeneration()) != last; };
    store.SetText(row, 1, "b");
    EXPECT_FALSE(changed());
    store.SetMarked(row, true);
    EXPECT_TRUE(changed());
    store.SetMarked(row, true);
    EXPECT_FALSE(changed());
    store.Remove(row);  // a mark goes with its row
    EXPECT_TRUE(changed());
}

// A long list with everything done to it in random order, beside a plain list of the same names.
TEST_F(KTRowStoreTest, StaysRightUnderRandomChanges) {
    std::mt19937 random(7);
    const KTRow parent = Add(kNoRow, "parent", true);
    std::vector<std::string> names;
    for (int i = 0; i < 3000; ++i) {
        names.push_back("n" + std::to_string(i));
        Add(parent, names.back());
    }
    for (int step = 0; step < 6000; ++step) {
        const auto at = static_cast<int32_t>(random() % (names.size() + 1));
        switch (random() % 5) {
            case 0:
            case 1:
                names.insert(names.begin() + at, "new" + std::to_string(step));
                Add(parent, names[static_cast<size_t>(at)], false, at);
                break;
            case 2:
            case 3: {
                const auto count = static_cast<int32_t>(1 + random() % 3);
                const auto end = std::min<size_t>(names.size(), static_cast<size_t>(at + count));
                store.RemoveRange(parent, at, count);
                names.erase(names.begin() + at, names.begin() + static_cast<ptrdiff_t>(end));
                break;
            }
            default: {
                if (names.empty()) break;
                const auto& name = names[static_cast<size_t>(at) % names.size()];
                const KTRow row = store.ChildByText(parent, 1, name);
                ASSERT_NE(row, kNoRow) << name;
                EXPECT_EQ(store.IndexInParent(row), static_cast<int32_t>(at % names.size()));
                if (random() % 2)
                    store.MultiSelect(row);
                else
                    store.MultiDeselect(row);
            }
        }
        if (step % 500 == 0) {
            ASSERT_TRUE(store.IsConsistent()) << step;
        }
    }
    ASSERT_EQ(store.ChildCount(parent), static_cast<int32_t>(names.size()));
    for (size_t i = 0; i < names.size(); ++i)
        ASSERT_EQ(store.TextAt(store.ChildAt(parent, static_cast<int32_t>(i)), 1), names[i]);
    EXPECT_TRUE(store.IsConsistent());
}

TEST_F(KTRowStoreTest, FindsTheFirstOfEqualTextsInALongList) {
    for (int i = 0; i < 200; ++i)
        Add(kNoRow, "same");
    EXPECT_EQ(store.ChildByText(kNoRow, 1, "same"), store.First());
    const KTRow first = Add(kNoRow, "same", false, 0);
    EXPECT_EQ(store.ChildByText(kNoRow, 1, "same"), first);
    store.SetText(first, 1, "other");
    EXPECT_EQ(store.ChildByText(kNoRow, 1, "other"), first);
    EXPECT_EQ(store.ChildByText(kNoRow, 1, "same"), store.ChildAt(kNoRow, 1));
    store.MakeEmpty();
    EXPECT_EQ(store.ChildByText(kNoRow, 1, "same"), kNoRow);
    EXPECT_EQ(store.Count(), 0);
}

}  // namespace
