#include "server/archive/Format.h"

#include <algorithm>
#include <charconv>
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

int64_t StartOfName(std::string_view name) {
    std::tm utc{};
    const std::string text(name.substr(0, 15));
    const char* end = ::strptime(text.c_str(), "%Y%m%dT%H%M%S", &utc);
    return end && *end == '\0' ? ::timegm(&utc) : 0;
}

int32_t JobOfName(std::string_view name) {
    if (!IsBackupName(name)) return 0;
    const std::string_view digits = name.substr(name.size() - 8);
    uint32_t id = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), id, 16);
    return id <= INT32_MAX ? static_cast<int32_t>(id) : 0;
}

int DiscOfFolder(std::string_view folder) {
    const size_t stem = BackupName(0, 0).size() + kPartSuffix.size();
    if (folder.size() <= stem || !IsBackupName(folder.substr(0, stem - kPartSuffix.size())) ||
        !folder.substr(0, stem).ends_with(kPartSuffix)) {
        return 0;
    }
    int disc = 0;
    const char* const end = folder.data() + folder.size();
    const auto read = std::from_chars(folder.data() + stem, end, disc);
    return read.ec == std::errc() && read.ptr == end && disc > 0 ? disc : 0;
}

std::optional<std::string_view> BackupOfFolder(std::string_view folder) {
    if (folder.ends_with(kPartialSuffix)) {
        folder.remove_suffix(kPartialSuffix.size());
    } else if (DiscOfFolder(folder) > 0) {
        folder = folder.substr(0, folder.rfind(kPartSuffix));
    }
    if (!IsBackupName(folder)) return std::nullopt;
    return folder;
}

std::string MediumFile(int number, std::string_view compressorSuffix) {
    char text[32];
    std::snprintf(text, sizeof(text), "%04d.tar", number);
    return text + std::string(compressorSuffix);
}

std::optional<MediumName> ParseMediumFile(std::string_view file) {
    constexpr std::string_view kTar = ".tar";
    constexpr size_t kMostDigits = 6;
    const size_t digits = std::min(file.find_first_not_of("0123456789"), file.size());
    if (digits < 4 || digits > kMostDigits || !file.substr(digits).starts_with(kTar))
        return std::nullopt;
    MediumName name;
    std::from_chars(file.data(), file.data() + digits, name.number);
    name.suffix = file.substr(digits + kTar.size());
    if (name.number < 1 || (!name.suffix.empty() && name.suffix[0] != '.')) return std::nullopt;
    return name;
}

}  // namespace server::archive
