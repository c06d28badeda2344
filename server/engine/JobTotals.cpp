#include "server/engine/JobTotals.h"

#include <algorithm>
#include <ctime>

#include "core/protocol/Texts.h"

namespace server {

using core::LineType;
namespace text = core::text;

namespace {

constexpr int64_t kMegabyte = 1048576;
constexpr int64_t kKilobyte = 1024;

KTReportLine Real(double value) {
    KTReportLine line;
    line.AddDouble(value);
    return line;
}

int32_t Clamped(int64_t value) {
    return static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

// A size or speed in the unit that the rule of all windows gives it.
void TellSize(JobReport& report, int64_t value, int32_t megabytes, int32_t kilobytes,
              int32_t bytes) {
    if (value > kMegabyte) {
        report.Line(LineType::Totals, megabytes, Real(static_cast<double>(value) / kMegabyte));
    } else if (value > kKilobyte) {
        report.Line(LineType::Totals, kilobytes, Real(static_cast<double>(value) / kKilobyte));
    } else {
        report.Line(LineType::Totals, bytes, Number(value));
    }
}

}  // namespace

const TotalsTexts kBackupTexts{text::kFilesSaved, text::kMegabytesSaved, text::kKilobytesSaved,
                               text::kBytesSaved};
const TotalsTexts kRestoreTexts{text::kFilesRestored, text::kMegabytesRestored,
                                text::kKilobytesRestored, text::kBytesRestored};
const TotalsTexts kCompareTexts{text::kFilesCompared, text::kMegabytesCompared,
                                text::kKilobytesCompared, text::kBytesCompared};
const TotalsTexts kInsertTexts{text::kFilesInserted, text::kMegabytesInserted,
                               text::kKilobytesInserted, text::kBytesInserted};

KTReportLine Number(int64_t value) {
    KTReportLine line;
    line.AddInt32(Clamped(value));
    return line;
}

void TellTotals(JobReport& report, int64_t files, int64_t bytes, const TotalsTexts& texts) {
    const double seconds = report.SecondsExact();
    const int64_t whole = report.Seconds();
    report.Line(LineType::Totals, texts.files, Number(files));
    TellSize(report, bytes, texts.megabytes, texts.kilobytes, texts.bytes);
    KTReportLine time;
    time.AddInt32(Clamped(whole / 3600));
    time.AddInt32(static_cast<int32_t>(whole % 3600 / 60));
    time.AddInt32(static_cast<int32_t>(whole % 60));
    report.Line(LineType::Totals, text::kTimeTaken, std::move(time));
    const double speed = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    TellSize(report, static_cast<int64_t>(speed), text::kSpeedMegabytes, text::kSpeedKilobytes,
             text::kSpeedBytes);
}

std::string LocalTimeText(int64_t seconds) {
    const std::time_t time = seconds;
    std::tm local{};
    ::localtime_r(&time, &local);
    char words[64];
    std::strftime(words, sizeof(words), "%Y-%m-%d %H:%M:%S", &local);
    return words;
}

}  // namespace server
