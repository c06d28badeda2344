#include "ctl/Words.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "core/protocol/Codes.h"

namespace ctl {

namespace {

template <class... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 128> buffer;
    const int length = std::snprintf(buffer.data(), buffer.size(), format, values...);
    return {buffer.data(), std::min(buffer.size() - 1, static_cast<size_t>(std::max(0, length)))};
}

// Bytes of the well-formed character at the start, 0 where there is none.
size_t CharacterLength(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (length == 0 || length > text.size()) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    if (first == 0xE0 && byte(1) < 0xA0) return 0;
    if (first == 0xED && byte(1) >= 0xA0) return 0;
    if (first == 0xF0 && byte(1) < 0x90) return 0;
    if (first == 0xF4 && byte(1) >= 0x90) return 0;
    return length;
}

bool IsControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return (first < 0x20 && first != '\t') || first == 0x7F;
    return character.size() == 2 && first == 0xC2 &&
           static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string Printable(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        size_t length = CharacterLength(bytes);
        if (length > 0 && !IsControl(bytes.substr(0, length))) {
            text += bytes.substr(0, length);
        } else {
            length = std::max<size_t>(length, 1);
            for (const char c : bytes.substr(0, length)) {
                text += Format("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            }
        }
        bytes.remove_prefix(length);
    }
    return text;
}

size_t Columns(std::string_view printable) {
    size_t columns = 0;
    for (const char c : printable)
        columns += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return columns;
}

std::string CutFront(const std::string& printable, size_t columns) {
    size_t have = Columns(printable);
    if (have <= columns) return printable;
    if (columns == 0) return "";
    size_t at = 0;
    while (have > columns - 1) {
        do
            ++at;
        while ((static_cast<unsigned char>(printable[at]) & 0xC0) == 0x80);
        --have;
    }
    return "…" + printable.substr(at);
}

std::string SizeWords(int64_t bytes) {
    constexpr std::array units{"Bytes", "KB", "MB", "GB", "TB", "PB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    for (; value >= 1024 && unit + 1 < units.size(); ++unit)
        value /= 1024;
    return Format(unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
}

std::string TimeWords(int64_t seconds) {
    const auto all = static_cast<long long>(std::max<int64_t>(0, seconds));
    if (all < 3600) return Format("%lld:%02lld", all / 60, all % 60);
    return Format("%lld:%02lld:%02lld", all / 3600, all / 60 % 60, all % 60);
}

std::string DateWords(int64_t seconds) {
    if (seconds == 0) return "-";
    const time_t time = seconds;
    tm local{};
    if (!::localtime_r(&time, &local)) return "-";
    std::array<char, 64> buffer;
    return {buffer.data(), ::strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M", &local)};
}

std::string JobIdWords(int32_t id) {
    return Format("%08x", static_cast<unsigned>(id));
}

std::optional<int32_t> ParseJobId(const std::string& text) {
    int32_t id = 0;
    const char* end = text.data() + text.size();
    const auto [stop, problem] = std::from_chars(text.data(), end, id, text.size() == 8 ? 16 : 10);
    if (problem != std::errc() || stop != end || id <= 0) return std::nullopt;
    return id;
}

std::string Padded(const std::string& printable, size_t columns) {
    const size_t used = Columns(printable);
    return used < columns ? printable + std::string(columns - used, ' ') : printable;
}

std::string EntryLine(int64_t size, int64_t date, const std::string& name) {
    const std::string words = size < 0 ? "-" : SizeWords(size);
    return std::string(words.size() < 12 ? 12 - words.size() : 0, ' ') + words + "  " +
           Padded(DateWords(date), 16) + "  " + Printable(name) + (size < 0 ? "/" : "");
}

const char* EntryTypeWords(int32_t type) {
    constexpr std::array words{"backup", "file", "directory", "link", "volume"};
    return words[type >= -1 && type <= 3 ? static_cast<size_t>(type + 1) : 1];
}

const char* JobTypeWords(int32_t type) {
    if (type == static_cast<int32_t>(core::JobType::Verify)) return "Check";
    constexpr std::array words{
        "Unknown", "Full Backup", "Incremental Backup", "Differential Backup", "Restore",
        "Compare", "Insert"};
    return words[type >= 1 && type < static_cast<int32_t>(words.size()) ? static_cast<size_t>(type)
                                                                        : 0];
}

const char* JobStatusWords(int32_t status) {
    constexpr std::array words{"Unknown", "Waiting", "Running", "Pause", "Edit"};
    return words[status >= 1 && status < static_cast<int32_t>(words.size())
                     ? static_cast<size_t>(status)
                     : 0];
}

}  // namespace ctl
