// What a job's panel says, without any window.
#include "client/status/KTStatusText.h"

#include <gtest/gtest.h>

#include "core/report/KTReportLine.h"
#include "tests/support/MadeMessage.h"

namespace {

BMessage Start(int32_t type, const char* title = nullptr) {
    BMessage start = Made("KTJS"_code, {{"job_id", 7}, {"job_type", type}});
    if (title) start.Add("title", title);
    return start;
}

BMessage Line(int32_t lineType, const char* report) {
    BMessage line = Made("KTJF"_code, {{"linetype", lineType}, {"report", report}});
    return line;
}

BMessage Progress(int64_t size, int64_t maxSize, int32_t count, int32_t maxCount, float speed,
                  const char* path) {
    BMessage progress = Line(100, path);
    progress.Add("size", size);
    progress.Add("maxsize", maxSize);
    progress.Add("count", count);
    progress.Add("maxcount", maxCount);
    progress.Add("elapsed", int32_t{3661});
    progress.Add("remain", int32_t{-5});
    progress.Add("speed", speed);
    return progress;
}

TEST(KTStatusText, WordsFollowTheJobType) {
    struct {
        int32_t type;
        const char *box, *files, *bytes, *volume;
    } cases[] = {
        {1, "Backup", "Files read:", "Bytes read:", "Backup volume 'Data'..."},
        {3, "Backup", "Files read:", "Bytes read:", "Backup volume 'Data'..."},
        {4, "Restore", "Files restored:", "Bytes restored:", "Restore volume 'Data'..."},
        {5, "Compare", "Files compared:", "Bytes compared:", "Compare volume 'Data'..."},
        {6, "Process", "Files processed:", "Bytes processed:", "Insert data from volume 'Data'..."},
        {99, "Process", "Files processed:", "Bytes processed:", "Work on volume 'Data'..."},
    };
    for (const auto& [type, box, files, bytes, volume] : cases) {
        KTStatusText text(Start(type));
        EXPECT_EQ(text.BoxTitle(), box) << type;
        EXPECT_EQ(text.FilesLabel(), files) << type;
        EXPECT_EQ(text.BytesLabel(), bytes) << type;
        EXPECT_EQ(text.Title(), "- no title -") << type;
        EXPECT_EQ(text.StatusLine(), "Scanning directories...") << type;
        text.Update(Line(4, "Data"));
        EXPECT_EQ(text.StatusLine(), volume) << type;
    }
    BMessage own = Start(1, "Home");
    own.Add("filesstr", "Mails:");
    own.Add("bytesstr", "Weight:");
    const KTStatusText text(own);
    EXPECT_EQ(text.Title(), "Home");
    EXPECT_EQ(text.FilesLabel(), "Mails:");
    EXPECT_EQ(text.BytesLabel(), "Weight:");
}

TEST(KTStatusText, ProgressFillsEveryField) {
    KTStatusText text(Start(1));
    EXPECT_EQ(text.BytesDone(), "-");
    EXPECT_EQ(text.BytesTotal(), "-");
    EXPECT_EQ(text.Elapsed(), "00:00:00");
    text.Update(Progress(1048576, 1048577, 12, 34, 512.7f, "/System/home/me/letter.txt"));
    EXPECT_EQ(text.BytesDone(), "1024.00 KB");
    EXPECT_EQ(text.BytesTotal(), "1.0 MB");
    EXPECT_EQ(text.FilesDone(), "12");
    EXPECT_EQ(text.FilesTotal(), "34");
    EXPECT_EQ(text.Elapsed(), "01:01:01");
    EXPECT_EQ(text.Remain(), "00:00:00");
    EXPECT_EQ(text.Speed(), "Speed: 512 Bytes/s");
    EXPECT_EQ(text.FileName(), " letter.txt");
    EXPECT_EQ(text.BarMaximum(), 1048577);
    EXPECT_EQ(text.BarValue(), 1048576);
    EXPECT_EQ(text.StatusLine(), "Scanning directories...") << "progress leaves the status line";

    text.Update(Progress(1024, -1, 1, 4, 0, "plain"));
    EXPECT_EQ(text.BytesDone(), "1024 Bytes");
    EXPECT_EQ(text.BytesTotal(), "-");
    EXPECT_EQ(text.Speed(), "Speed: -");
    EXPECT_EQ(text.FileName(), " plain");
    EXPECT_EQ(text.BarMaximum(), 4) << "without bytes the bar counts files";
    EXPECT_EQ(text.BarValue(), 1);
    // Totals that become known later.
    text.Update(Progress(2000, 5000, 1, 4, 0, "plain"));
    EXPECT_EQ(text.BarMaximum(), 5000);
    EXPECT_EQ(text.BarValue(), 2000);
}

TEST(KTStatusText, MissingFieldsKeepWhatWasThere) {
    KTStatusText text(Start(1));
    text.Update(Progress(100, 200, 3, 4, 2048, "/a"));
    text.Update(Line(100, "/b"));
    EXPECT_EQ(text.BytesDone(), "100 Bytes");
    EXPECT_EQ(text.FilesTotal(), "4");
    EXPECT_EQ(text.Speed(), "Speed: 2.00 KB/s");
    EXPECT_EQ(text.FileName(), " b");
    BMessage wrongTypes = Line(100, "/c");
    wrongTypes.Add("size", "many");
    text.Update(wrongTypes);
    EXPECT_EQ(text.BytesDone(), "100 Bytes");
}

TEST(KTStatusText, LinesAreRenderedAndPutOnOneLine) {
    KTStatusText text(Start(1));
    KTReportLine arguments;
    arguments.AddInt32(42);
    BMessage line = Line(2, "not this");
    arguments.AddTo(line, "reportline");
    line.Add("text_id", int32_t{9});  // "Files saved:\t\t%ld"
    text.Update(line);
    EXPECT_EQ(text.StatusLine(), "Files saved: 42");
    for (const int32_t type : {0, -1}) {
        text.Update(Line(type, "hidden"));
        EXPECT_EQ(text.StatusLine(), "Files saved: 42") << type;
    }
    text.Update(Line(3, "ERROR: no"));
    EXPECT_EQ(text.StatusLine(), "ERROR: no");
    BMessage unknown = Line(1, "");
    arguments.AddTo(unknown, "reportline");
    unknown.Add("text_id", int32_t{99999});
    text.Update(unknown);
    EXPECT_EQ(text.StatusLine(), "");
}

TEST(KTStatusText, EndsAreWordsAndStay) {
    using Outcome = KTStatusText::Outcome;
    struct {
        int32_t status;
        Outcome outcome;
        const char* words;
    } cases[] = {{0, Outcome::Good, "Job successful"},
                 {1, Outcome::Canceled, "Job canceled"},
                 {2, Outcome::Errors, "Job ended with errors! Please check Report."},
                 {3, Outcome::Abnormal, "abnormal job end"},
                 {-1, Outcome::Abnormal, "abnormal job end"}};
    for (const auto& [status, outcome, words] : cases) {
        KTStatusText text(Start(1));
        text.Finish(status);
        EXPECT_EQ(text.Ended(), outcome) << status;
        EXPECT_EQ(text.StatusLine(), words) << status;
        text.Update(Line(5, "late"));
        text.Finish(status == 0 ? 3 : 0);
        EXPECT_EQ(text.StatusLine(), words) << status;
    }
}

}  // namespace
