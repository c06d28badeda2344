#include "core/report/Format.h"

#include <gtest/gtest.h>

#include <ctime>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"
#include "core/protocol/Texts.h"

using namespace core;

TEST(Format, Sizes) {
    EXPECT_EQ(SizeText(-1), "-");
    EXPECT_EQ(SizeText(0), "0 Bytes");
    EXPECT_EQ(SizeText(1024), "1024 Bytes");
    EXPECT_EQ(SizeText(1025), "1.00 KB");
    EXPECT_EQ(SizeText(1048576), "1024.00 KB");
    EXPECT_EQ(SizeText(1048577), "1.0 MB");
    EXPECT_EQ(SizeText(int64_t{5} << 40), "5242880.0 MB");
}

TEST(Format, SpeedsAndDurations) {
    EXPECT_EQ(SpeedText(0), "Speed: -");
    EXPECT_EQ(SpeedText(-3), "Speed: -");
    EXPECT_EQ(SpeedText(512.7), "Speed: 512 Bytes/s");
    EXPECT_EQ(SpeedText(1536), "Speed: 1.50 KB/s");
    EXPECT_EQ(SpeedText(1048576.0 * 80), "Speed: 80.0 MB/s");
    EXPECT_EQ(DurationText(-5), "00:00:00");
    EXPECT_EQ(DurationText(3661), "01:01:01");
    EXPECT_EQ(DurationText(100 * 3600), "100:00:00");
}

TEST(Format, DatesAreThoseOfTheCLibrary) {
    EXPECT_EQ(DateText(0), "-");
    for (const time_t time :
         {time_t{1}, time_t{951782400}, time_t{1795378530}, time_t{4294967295}}) {
        std::string expected = std::ctime(&time);
        expected.pop_back();
        EXPECT_EQ(DateText(time), expected);
    }
    EXPECT_FALSE(DateText(int64_t{1} << 62).empty()) << "a year no clock can show";
}

TEST(Format, CodesInWords) {
    KTLocale::GetInstance()->SetDefaultText(kTextTable.data(), kTextCount, "English");
    EXPECT_EQ(IdText(255), "000000ff");
    // Their tables begin with the first and end with the last code that there is.
    EXPECT_EQ(TextOf(JobTypeTextId(1)), "Full Backup");
    EXPECT_EQ(TextOf(JobTypeTextId(6)), "Insert");
    EXPECT_EQ(JobTypeTextId(1000), kMoreVerify);
    EXPECT_EQ(TextOf(JobStatusTextId(1)), "Waiting");
    EXPECT_EQ(TextOf(JobStatusTextId(4)), "Edit");
    EXPECT_EQ(TextOf(JobEndTextId(2)), "Job ended with errors! Please check Report.");
    for (const int32_t none : {-1, 0, 7, INT32_MAX}) {
        EXPECT_EQ(TextOf(JobTypeTextId(none)), "Unknown") << none;
        EXPECT_EQ(TextOf(JobStatusTextId(none)), "Unknown") << none;
    }
    for (const int32_t status : {-1, 3, 4})
        EXPECT_EQ(TextOf(JobEndTextId(status)), "abnormal job end");
    EXPECT_EQ(VolumeLineText(6, text::kLine, "Data"), "Insert data from volume 'Data'...");
    EXPECT_EQ(VolumeLineText(3, -1, "Data"), "Backup volume 'Data'...");
    EXPECT_EQ(VolumeLineText(9, text::kLine, "Data"), "Work on volume 'Data'...");
    EXPECT_EQ(VolumeLineText(4, text::kBackupLoaded, "Backup 'X' loaded"), "Backup 'X' loaded");
}
