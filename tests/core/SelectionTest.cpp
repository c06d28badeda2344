#include "core/selection/KTSelection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <random>

using core::SelectionMatcher;
using core::SelectionRule;
using testing::ElementsAre;

namespace {

std::vector<std::string> Texts(const BMessage& selection) {
    std::vector<std::string> texts;
    for (int32_t i = 0; i < selection.Count("SELECTION"); ++i) {
        texts.emplace_back(*selection.FindString("SELECTION", i));
    }
    return texts;
}

SelectionMatcher Matcher(const std::vector<std::string>& texts) {
    std::vector<SelectionRule> rules;
    for (const auto& text : texts)
        rules.push_back(SelectionRule::Parse(text).value());
    return SelectionMatcher(std::move(rules));
}

// What the words say: rules in order, the last that covers an entry decides.
bool Naive(const std::vector<SelectionRule>& rules, std::string_view path) {
    bool taken = false;
    for (const auto& rule : rules) {
        if (rule.Covers(path)) taken = rule.include;
    }
    return taken;
}

}  // namespace

TEST(SelectionRule, Parse) {
    auto rule = SelectionRule::Parse("INCLUDE /Disk/home/*");
    ASSERT_TRUE(rule);
    EXPECT_TRUE(rule->include && rule->subtree);
    EXPECT_EQ(rule->path, "/Disk/home");
    EXPECT_EQ(rule->Text(), "INCLUDE /Disk/home/*");
    rule = SelectionRule::Parse("EXCLUDE /Disk/a*b \xff");
    ASSERT_TRUE(rule);
    EXPECT_FALSE(rule->include || rule->subtree);
    EXPECT_EQ(rule->path, "/Disk/a*b \xff") << "bytes, and no other wild card";

    for (const char* bad :
         {"", "INCLUDE", "INCLUDE ", "INCLUDE /", "INCLUDE /*", "EXCLUDE //*", "INCLUDE Disk/*",
          "INCLUDE /Disk//a", "INCLUDE /Disk/a/", "INCLUDE /Disk/*/", "INCLUDE /Disk/../etc/*",
          "INCLUDE /./*", "include /Disk/*", "INCLUDE/Disk/*", "REDIREC /Disk/*"}) {
        EXPECT_FALSE(SelectionRule::Parse(bad)) << bad;
    }
}

TEST(SelectionRule, Covers) {
    const auto tree = SelectionRule::Parse("INCLUDE /Disk/home/*").value();
    for (const char* path : {"/Disk/home", "/Disk/home/a", "/Disk/home/a/b"}) {
        EXPECT_TRUE(tree.Covers(path)) << path;
    }
    for (const char* path : {"/Disk", "/Disk/home2", "/Disk/hom", "/disk/home"}) {
        EXPECT_FALSE(tree.Covers(path)) << path;
    }
    const auto entry = SelectionRule::Parse("INCLUDE /Disk/a").value();
    EXPECT_TRUE(entry.Covers("/Disk/a"));
    EXPECT_FALSE(entry.Covers("/Disk/a/b"));
}

TEST(SelectionRecord, ReplacesWhatItCovers) {
    BMessage selection;
    using core::selection::Record;
    Record(selection, true, "/Disk/home", true);
    Record(selection, false, "/Disk/home/tmp", true);
    EXPECT_THAT(Texts(selection), ElementsAre("INCLUDE /Disk/home/*", "EXCLUDE /Disk/home/tmp/*"));
    Record(selection, true, "/Disk/home2", true);
    Record(selection, true, "/Disk/home", true);
    EXPECT_THAT(Texts(selection), ElementsAre("INCLUDE /Disk/home2/*", "INCLUDE /Disk/home/*"));

    BMessage files;
    Record(files, true, "/Disk/ab", false);
    Record(files, true, "/Disk/b", false);
    Record(files, true, "/Disk/a", false);
    EXPECT_THAT(Texts(files), ElementsAre("INCLUDE /Disk/b", "INCLUDE /Disk/a"));

    BMessage foreign;
    foreign.Add("SELECTION", int32_t{5});
    Record(foreign, true, "/Disk", true);
    EXPECT_THAT(Texts(foreign), ElementsAre("INCLUDE /Disk/*"));
}

TEST(SelectionRecord, EnsureLast) {
    BMessage selection;
    const std::string rule = "EXCLUDE /System/var/*";
    core::selection::EnsureLast(selection, rule);
    core::selection::EnsureLast(selection, rule);
    EXPECT_THAT(Texts(selection), ElementsAre(rule));
    selection.Add("SELECTION", "INCLUDE /System/*");
    core::selection::EnsureLast(selection, rule);
    EXPECT_THAT(Texts(selection), ElementsAre("INCLUDE /System/*", rule));
}

TEST(SelectionRecord, RulesCountWhatTheyRefuse) {
    BMessage selection;
    for (const char* text :
         {"INCLUDE /A/*", "nonsense", "REDIREC /A/b", "CLEAR   /A/b", "EXCLUDE /*"}) {
        selection.Add("SELECTION", text);
    }
    int refused = -1;
    EXPECT_EQ(core::selection::Rules(selection, &refused).size(), 1U);
    EXPECT_EQ(refused, 2);
}

TEST(SelectionMatcher, WalksOnlyWhereSomethingIs) {
    const auto matcher = Matcher({"INCLUDE /Disk/home/*", "EXCLUDE /Disk/home/tmp/*",
                                  "INCLUDE /Disk/home/tmp/keep", "INCLUDE /Disk/etc/fstab"});
    EXPECT_TRUE(matcher.Includes("/Disk/home"));
    EXPECT_TRUE(matcher.Includes("/Disk/home/x/y"));
    EXPECT_FALSE(matcher.Includes("/Disk/home/tmp"));
    EXPECT_TRUE(matcher.Includes("/Disk/home/tmp/keep"));
    EXPECT_FALSE(matcher.Includes("/Disk/home/tmp/keep/below"));
    EXPECT_FALSE(matcher.Includes("/Disk"));

    for (const char* path :
         {"/", "/Disk", "/Disk/home", "/Disk/home/tmp", "/Disk/etc", "/Disk/home/x"}) {
        EXPECT_TRUE(matcher.MayInclude(path)) << path;
    }
    for (const char* path :
         {"/Other", "/Disk/etc/ssh", "/Disk/home/tmp/x", "/Disk/hom", "/Disk/home-2"}) {
        EXPECT_FALSE(matcher.MayInclude(path)) << path;
    }
    EXPECT_TRUE(matcher.IsUniform("/Disk/home/x"));
    EXPECT_TRUE(matcher.IsUniform("/Other"));
    EXPECT_FALSE(matcher.IsUniform("/Disk/home"));
    EXPECT_FALSE(matcher.IsUniform("/Disk/home/tmp/keep")) << "taken itself, what is below is not";

    const auto empty = Matcher({});
    EXPECT_FALSE(empty.Includes("/Disk"));
    EXPECT_FALSE(empty.MayInclude("/Disk"));
    EXPECT_TRUE(empty.IsUniform("/Disk"));
}

TEST(SelectionMatcher, RulesThatLaterOnesCoverSayNothing) {
    const auto matcher =
        Matcher({"INCLUDE /D/a/b/*", "EXCLUDE /D/a/*", "EXCLUDE /D/c", "INCLUDE /D/c/*"});
    EXPECT_FALSE(matcher.MayInclude("/D/a"));
    EXPECT_TRUE(matcher.IsUniform("/D/a"));
    EXPECT_TRUE(matcher.Includes("/D/c"));
    EXPECT_TRUE(matcher.IsUniform("/D/c"));
}

// Random rules over a small tree, checked entry by entry against what the words say.
TEST(SelectionMatcher, AgreesWithTheWords) {
    const std::vector<std::string> names{"a", "ab", "a-", "b", "\xff", "a b"};
    std::vector<std::string> tree;
    for (const auto& x : names) {
        tree.push_back("/" + x);
        for (const auto& y : names) {
            tree.push_back("/" + x + "/" + y);
            for (const auto& z : names)
                tree.push_back("/" + x + "/" + y + "/" + z);
        }
    }
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        std::vector<SelectionRule> rules(random() % 12);
        for (auto& rule : rules) {
            rule = {random() % 2 == 0, random() % 2 == 0, tree[random() % tree.size()]};
        }
        const SelectionMatcher matcher(rules);
        for (const auto& path : tree) {
            const bool taken = Naive(rules, path);
            ASSERT_EQ(matcher.Includes(path), taken) << path;
            bool some = taken;
            bool uniform = true;
            // One invented level more, because rules also speak about what has no rule of its own.
            auto below = [&](const std::string& entry) {
                const bool other = Naive(rules, entry);
                some |= other;
                uniform &= other == taken;
            };
            for (const auto& entry : tree) {
                if (entry.size() > path.size() && entry.starts_with(path + "/")) {
                    below(entry);
                    below(entry + "/new");
                }
            }
            below(path + "/new");
            ASSERT_EQ(matcher.MayInclude(path), some) << path;
            ASSERT_EQ(matcher.IsUniform(path), uniform) << path;
        }
    }
}

TEST(SelectionMatcher, ManyRules) {
    std::vector<SelectionRule> rules{{true, true, "/Disk"}};
    for (int i = 0; i < 50'000; ++i) {
        rules.push_back({i % 2 == 0, i % 3 == 0,
                         "/Disk/dir" + std::to_string(i % 500) + "/file" + std::to_string(i)});
    }
    std::string deep = "/Disk";
    for (int i = 0; i < 2'000; ++i) {
        deep += "/d";
        rules.push_back({i % 2 == 0, true, deep});
    }
    const auto begin = std::chrono::steady_clock::now();
    const SelectionMatcher matcher(rules);
    int taken = 0;
    for (int i = 0; i < 50'000; ++i) {
        taken +=
            matcher.Includes("/Disk/dir" + std::to_string(i % 500) + "/file" + std::to_string(i));
    }
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(taken, 25'000);
    EXPECT_FALSE(matcher.Includes(deep + "/x"));
    // A search over all rules for each entry would take minutes.
    EXPECT_LT(took, std::chrono::seconds(10));
}
