#include "ctl/BackupJob.h"

#include <gtest/gtest.h>
#include "ctl/ProgressLine.h"
#include "ctl/Words.h"
#include "tests/TemporaryFolder.h"

namespace ctl {
namespace {

class MapSourcesTest : public testing::Test {
protected:
    MapSourcesTest() {
        std::filesystem::create_directories(folder + "/dir/sub");
        std::ofstream(folder + "/file \xff") << "x";
        std::filesystem::create_directory_symlink("dir", folder + "/link");
        volumes.push_back(Volume("System", "/", true));
    }
    static BVolume Volume(const std::string& name, const std::string& mountPoint,
                          bool boot = false) {
        BVolume volume;
        volume.name = name;
        volume.mountPoint = mountPoint;
        volume.isBoot = boot;
        return volume;
    }
    std::vector<std::string> Rules(const std::vector<std::string>& paths) {
        auto sources = MapSources(paths, volumes);
        if (!sources) return {sources.error().Text()};
        notes = sources->notes;
        return sources->rules;
    }
    using Texts = std::vector<std::string>;

    const TemporaryFolder temporary;
    const std::string folder = std::filesystem::canonical(temporary.Path()).string();
    std::vector<BVolume> volumes;
    Texts notes;
};

TEST_F(MapSourcesTest, FoldersFilesAndNamesThatAreNoText) {
    const Texts wanted{"INCLUDE /System" + folder + "/dir/*",
                       "INCLUDE /System" + folder + "/file \xff", "EXCLUDE /System/var/*"};
    EXPECT_EQ(Rules({folder + "/dir", folder + "/file \xff"}), wanted);
    EXPECT_EQ(Rules({folder + "/dir/", folder + "/dir/../file \xff"}), wanted);
    EXPECT_TRUE(notes.empty());

    const auto former = std::filesystem::current_path();
    std::filesystem::current_path(folder + "/dir/sub");
    EXPECT_EQ(Rules({".."})[0], "INCLUDE /System" + folder + "/dir/*");
    EXPECT_EQ(Rules({"../../dir"})[0], "INCLUDE /System" + folder + "/dir/*");
    std::filesystem::current_path(folder);
    EXPECT_EQ(Rules({"dir"})[0], "INCLUDE /System" + folder + "/dir/*");
    std::filesystem::current_path(former);
    EXPECT_EQ(Rules({"/"})[0], "INCLUDE /System/*");
}

TEST_F(MapSourcesTest, ALinkStaysALinkButLinksOnTheWayAreFollowed) {
    EXPECT_EQ(Rules({folder + "/link"})[0], "INCLUDE /System" + folder + "/link");
    EXPECT_EQ(notes.size(), 1u);
    EXPECT_EQ(Rules({folder + "/link/"})[0], "INCLUDE /System" + folder + "/dir/*");
    EXPECT_EQ(Rules({folder + "/link/sub"})[0], "INCLUDE /System" + folder + "/dir/sub/*");
    EXPECT_TRUE(notes.empty());
}

TEST_F(MapSourcesTest, OtherVolumesAreNamedAndNotedBelow) {
    volumes.push_back(Volume("Data", folder + "/dir"));
    EXPECT_EQ(Rules({folder + "/dir/sub"})[0], "INCLUDE /Data/sub/*");
    EXPECT_EQ(Rules({folder + "/dir"})[0], "INCLUDE /Data/*");
    EXPECT_TRUE(notes.empty());
    EXPECT_EQ(Rules({folder})[0], "INCLUDE /System" + folder + "/*");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_NE(notes[0].find(folder + "/dir"), std::string::npos);
}

TEST_F(MapSourcesTest, VariableDataOnlyWhenNamed) {
    EXPECT_EQ(Rules({"/var"}), Texts{"INCLUDE /System/var/*"});
    EXPECT_EQ(notes.size(), 1u);
    EXPECT_EQ(Rules({"/var/tmp", "/etc"}), (Texts{"INCLUDE /System/etc/*", "EXCLUDE /System/var/*",
                                                  "INCLUDE /System/var/tmp/*"}));
    volumes[0].isBoot = false;
    EXPECT_EQ(Rules({"/etc"}), Texts{"INCLUDE /System/etc/*"});
}

TEST_F(MapSourcesTest, WhatIsNotThere) {
    EXPECT_FALSE(MapSources({folder + "/missing"}, volumes).ok());
    EXPECT_FALSE(MapSources({""}, volumes).ok());
    EXPECT_FALSE(MapSources({folder}, {}).ok());
}

TEST(ParseCompression, KindsAndLevels) {
    const struct {
        const char* words;
        const char* addon;
        int32_t level;
    } kRight[] = {{"zstd", "KTZstd", 3},   {"zstd:19", "KTZstd", 19}, {"lz4", "KTLz4", 1},
                  {"lz4:12", "KTLz4", 12}, {"xz", "KTXz", 3},         {"xz:0", "KTXz", 0}};
    for (const auto& [words, addon, level] : kRight) {
        EXPECT_EQ(ParseCompression(words)->addon, addon) << words;
        EXPECT_EQ(ParseCompression(words)->level, level) << words;
    }
    EXPECT_EQ(ParseCompression("none")->addon, "KTNone");
    for (const char* wrong : {"", "zstd:", "zstd:0", "zstd:20", "zstd:3x", "zstd:-1", "gzip",
                              "none:0", "lz4:0", "lz4:13", "xz:10", "xz:-1", "x", "xzz", ":3"}) {
        EXPECT_FALSE(ParseCompression(wrong).ok()) << wrong;
    }
}

TEST(Words, HarmlessOnATerminal) {
    EXPECT_EQ(Printable("plain ü € 😀\ttab"), "plain ü € 😀\ttab");
    EXPECT_EQ(Printable("a\x1b[31mb\nc\x7f"), "a\\x1b[31mb\\x0ac\\x7f");
    EXPECT_EQ(Printable("\xff\xc3"), "\\xff\\xc3");
    EXPECT_EQ(Printable("\xc2\x9b"), "\\xc2\\x9b");           // a control character of two bytes
    EXPECT_EQ(Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");  // half a surrogate pair
    EXPECT_EQ(Printable("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(CutFront("größer", 6), "größer");
    EXPECT_EQ(CutFront("größer", 4), "…ßer");
    EXPECT_EQ(CutFront("größer", 0), "");
    EXPECT_EQ(SizeWords(1023), "1023 Bytes");
    EXPECT_EQ(SizeWords(1536), "1.5 KB");
    EXPECT_EQ(TimeWords(3661), "1:01:01");
    EXPECT_EQ(TimeWords(-5), "0:00");
}

TEST(ProgressLine, FitsAnyWidthAndAnyValues) {
    BMessage progress;
    progress.Add<int64_t>("size", 50);
    progress.Add<int64_t>("maxsize", 100);
    progress.Add<int32_t>("count", 1);
    progress.Add<int32_t>("maxcount", 4);
    progress.Add("report", "/Data/a/very/long/path/to/some/file.txt");
    EXPECT_EQ(ProgressLine::Text(progress, 71),
              "[##########..........] 50%  50 Bytes of 100 Bytes  1/4 files  …file.txt");
    for (size_t columns = 0; columns < 120; ++columns) {
        EXPECT_LE(Columns(ProgressLine::Text(progress, columns)), columns);
    }
    progress.Set<int64_t>("maxsize", 0);
    EXPECT_NE(ProgressLine::Text(progress, 200).find(" 25%"), std::string::npos);
    progress.Set<int64_t>("maxsize", 10);  // more was read than was counted
    EXPECT_NE(ProgressLine::Text(progress, 200).find("100%"), std::string::npos);
    EXPECT_NE(ProgressLine::Text(BMessage(), 200).find(" 0%"), std::string::npos);
}

}  // namespace
}  // namespace ctl
