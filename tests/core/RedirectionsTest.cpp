#include "core/selection/Redirections.h"

#include <gtest/gtest.h>

#include "core/selection/RestorePlaces.h"

namespace {

using core::Redirections;
using core::RestorePlaces;
using Pairs = std::vector<std::pair<std::string, std::string>>;

BMessage Selection(const Pairs& pairs) {
    BMessage message;
    for (const auto& [source, target] : pairs) {
        message.Add("source", source);
        message.Add("redirect", target);
    }
    return message;
}

Pairs PairsIn(const BMessage& message) {
    Pairs pairs;
    for (int32_t i = 0; i < message.Count("source"); ++i)
        pairs.emplace_back(message.Get("source", std::string(), i),
                           message.Get("redirect", std::string(), i));
    return pairs;
}

std::vector<BVolume> Volumes() {
    BVolume root, disk;
    root.name = "System";
    root.mountPoint = "/";
    disk.name = "Disk";
    disk.mountPoint = "/mnt/disk";
    return {root, disk};
}

std::string PathOf(const RestorePlaces& places, std::string_view path) {
    const auto place = places.Of(path);
    return place ? place->Path() : "none";
}

TEST(Redirections, RecordsPairsAndClearsThoseAtAndBelow) {
    BMessage message;
    Redirections::Record(message, "/B/Disk/a", true, "/one");
    Redirections::Record(message, "/B/Disk/a/sub", true, "/two");
    Redirections::Record(message, "/B/Disk/ab", false, "/three");
    Redirections::RecordClear(message, "/B/Disk/a", true);
    EXPECT_EQ(PairsIn(message),
              (Pairs{{"REDIREC /B/Disk/ab", "/three"}, {"CLEAR   /B/Disk/a/*", " "}}));
    // Of a file the path is a plain prefix.
    Redirections::RecordClear(message, "/B/Disk/a", false);
    EXPECT_EQ(PairsIn(message), (Pairs{{"CLEAR   /B/Disk/a", " "}}));
}

TEST(Redirections, TheLastRecordThatCoversDecides) {
    const Redirections all(Selection({{"REDIREC /B/Disk/a/*", "/one/"},
                                      {"REDIREC /B/Disk/a/sub/*", "/two"},
                                      {"CLEAR   /B/Disk/a/sub/deep/*", " "},
                                      {"REDIREC /B/Disk/a/file", "/three"}}));
    EXPECT_EQ(all.Refused(), 0);
    EXPECT_EQ(all.Of("/B/Disk/a/x")->target, "/one");
    EXPECT_EQ(all.Of("/B/Disk/a/sub/x")->target, "/two");
    EXPECT_EQ(all.Of("/B/Disk/a/sub/deep/x"), nullptr);
    EXPECT_EQ(all.Of("/B/Disk/a/file")->target, "/three");
    EXPECT_EQ(all.Of("/B/Disk/a/file/x")->target, "/one");
    EXPECT_EQ(all.Of("/B/Disk/ab"), nullptr);
}

TEST(Redirections, WhatCannotBeUnderstoodIsCountedAndLeftOut) {
    const Redirections none(Selection({{"REDIREC /B/../x/*", "/t"},
                                       {"REDIREC /B/x/*", "relative"},
                                       {"REDIREC /B/x/*", "/t/../u"},
                                       {"REDIREC ", "/t"},
                                       {"", ""},
                                       {"SOMEHOW /B/x", "/t"}}));
    EXPECT_TRUE(none.IsEmpty());
    EXPECT_EQ(none.Refused(), 6);
}

TEST(RestorePlaces, GoesToTheOldPlaceOrToTheTarget) {
    const BMessage selection =
        Selection({{"REDIREC /B/Disk/home/*", "/t"}, {"REDIREC /B/System/f", "/"}});
    const RestorePlaces into(selection, true, false, Volumes());
    EXPECT_EQ(PathOf(into, "/B/Disk/home/x/y"), "/t/x/y");
    EXPECT_EQ(PathOf(into, "/B/Disk/home"), "/t");
    EXPECT_EQ(PathOf(into, "/B/Disk/other"), "/mnt/disk/other");
    EXPECT_EQ(PathOf(into, "/B/System/f"), "/f");
    EXPECT_EQ(PathOf(into, "/B/System/etc"), "/etc");
    EXPECT_EQ(PathOf(into, "/B/Gone/x"), "none");
    EXPECT_EQ(PathOf(into, "/B"), "none");
    const RestorePlaces below(selection, true, true, Volumes());
    EXPECT_EQ(PathOf(below, "/B/Disk/home/x"), "/t/home/x");
    const RestorePlaces back(selection, false, false, Volumes());
    EXPECT_EQ(PathOf(back, "/B/Disk/home/x"), "/mnt/disk/home/x");
}

}  // namespace
