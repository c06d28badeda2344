#include "core/report/Format.h"

#include <array>
#include <ctime>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace core {

namespace {
constexpr int64_t kMegabyte = 1048576;
constexpr int64_t kKilobyte = 1024;
constexpr std::array kDayNames{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array kMonthNames{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int32_t VolumeTextId(int32_t jobType) {
    switch (static_cast<JobType>(jobType)) {
        case JobType::Full:
        case JobType::Incremental:
        case JobType::Differential:
            return text::kBackupVolume;
        case JobType::Restore:
            return text::kRestoreVolume;
        case JobType::Compare:
            return text::kCompareVolume;
        case JobType::Insert:
            return text::kInsertVolume;
        case JobType::Verify:
            break;
    }
    return text::kWorkOnVolume;
}
}  // namespace

std::string SizeText(int64_t bytes) {
    const auto real = static_cast<double>(bytes);
    if (bytes > kMegabyte) return FormatText("%.1f MB", real / kMegabyte);
    if (bytes > kKilobyte) return FormatText("%.2f KB", real / kKilobyte);
    if (bytes >= 0) return FormatText("%ld Bytes", bytes);
    return "-";
}

std::string SpeedText(double bytesPerSecond) {
    if (bytesPerSecond > kMegabyte) {
        return FormatText("Speed: %.1f MB/s", bytesPerSecond / kMegabyte);
    }
    if (bytesPerSecond > kKilobyte) {
        return FormatText("Speed: %.2f KB/s", bytesPerSecond / kKilobyte);
    }
    if (bytesPerSecond > 0) {
        return FormatText("Speed: %ld Bytes/s", static_cast<int32_t>(bytesPerSecond));
    }
    return "Speed: -";
}

std::string DurationText(int64_t seconds) {
    if (seconds < 0) seconds = 0;
    const auto part = [](int64_t value) { return static_cast<int16_t>(value); };
    return FormatText("%02d:%02d:%02d", part(seconds / 3600), part(seconds % 3600 / 60),
                      part(seconds % 60));
}

std::string DateText(int64_t secondsSinceEpoch) {
    const auto time = static_cast<time_t>(secondsSinceEpoch);
    struct tm local {};
    if (time == 0 || !::localtime_r(&time, &local)) return "-";
    return FormatText("%.3s %.3s%3d %.2d:%.2d:%.2d %d",
                      kDayNames.at(static_cast<size_t>(local.tm_wday)),
                      kMonthNames.at(static_cast<size_t>(local.tm_mon)), local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec, int64_t{1900} + local.tm_year);
}

std::string IdText(int32_t id) {
    return FormatText("%08lx", id);
}

int32_t JobTypeTextId(int32_t jobType) {
    switch (static_cast<JobType>(jobType)) {
        case JobType::Full:
            return text::kFullBackup;
        case JobType::Incremental:
            return text::kIncrementalBackup;
        case JobType::Differential:
            return text::kDifferentialBackup;
        case JobType::Restore:
            return text::kRestore;
        case JobType::Compare:
            return text::kCompare;
        case JobType::Insert:
            return text::kInsert;
        case JobType::Verify:
            return kMoreVerify;
    }
    return text::kUnknown;
}

int32_t JobStatusTextId(int32_t jobStatus) {
    switch (static_cast<JobStatus>(jobStatus)) {
        case JobStatus::Waiting:
            return text::kWaiting;
        case JobStatus::Running:
            return text::kRunning;
        case JobStatus::Paused:
            return text::kPause;
        case JobStatus::Edited:
            return text::kEdit;
    }
    return text::kUnknown;
}

int32_t JobEndTextId(int32_t endStatus) {
    switch (static_cast<JobEnd>(endStatus)) {
        case JobEnd::Good:
            return text::kJobSuccessful;
        case JobEnd::Aborted:
            return text::kJobCanceled;
        case JobEnd::Errors:
            return text::kJobEndedWithErrors;
        case JobEnd::Abnormal:
            break;
    }
    return text::kJobAbnormalEnd;
}

std::string VolumeLineText(int32_t jobType, int32_t textId, const std::string& rendered) {
    return textId == text::kBackupLoaded ? rendered : FormatTextOf(VolumeTextId(jobType), rendered);
}

std::string TextOf(int32_t id) {
    const char* text = KTLocale::GetInstance()->Text(id);
    return text ? text : "";
}

}  // namespace core
