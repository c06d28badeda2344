#include "server/archive/Format.h"

#include <cstdio>
#include <ctime>

namespace server::archive {

std::string BackupName(int64_t start, int32_t jobId) {
    const std::time_t seconds = start;
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[64];
    size_t length = std::strftime(text, sizeof(text), "%Y%m%dT%H%M%S", &utc);
    std::snprintf(text + length, sizeof(text) - length, "-%08x", static_cast<unsigned>(jobId));
    return text;
}

bool IsBackupName(std::string_view folder) {
    constexpr std::string_view kShape = "ddddddddTdddddd-xxxxxxxx";
    if (folder.size() != kShape.size()) return false;
    for (size_t i = 0; i < kShape.size(); ++i) {
        const char c = folder[i];
        const bool digit = c >= '0' && c <= '9';
        const bool fits = kShape[i] == 'd'   ? digit
                          : kShape[i] == 'x' ? digit || (c >= 'a' && c <= 'f')
                                             : c == kShape[i];
        if (!fits) return false;
    }
    return true;
}

std::string PartFolder(const std::string& name, int disc) {
    return name + std::string(kPartSuffix) + std::to_string(disc);
}

std::optional<std::string_view> BackupOfFolder(std::string_view folder) {
    if (folder.ends_with(kPartialSuffix)) folder.remove_suffix(kPartialSuffix.size());
    const size_t digits = folder.find_last_not_of("0123456789");
    if (digits != std::string_view::npos && digits + 1 < folder.size()) {
        const std::string_view stem = folder.substr(0, digits + 1);
        if (stem.ends_with(kPartSuffix)) folder = stem.substr(0, stem.size() - kPartSuffix.size());
    }
    if (!IsBackupName(folder)) return std::nullopt;
    return folder;
}

std::string MediumFile(int number, std::string_view compressorSuffix) {
    char text[32];
    std::snprintf(text, sizeof(text), "%04d.tar", number);
    return text + std::string(compressorSuffix);
}

}  // namespace server::archive
