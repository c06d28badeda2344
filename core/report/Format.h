// How sizes, times, dates and codes read, in windows, reports and on the terminal alike. Pure
// functions, any thread; those that answer with a text of the table take it in the current
// language.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/report/KTReportLine.h"

namespace core {

std::string SizeText(int64_t bytes);           // "1.0 MB", "1.50 KB", "512 Bytes"; "-" below 0
std::string SpeedText(double bytesPerSecond);  // "Speed: 1.0 MB/s"; "Speed: -" for 0 and below
std::string DurationText(int64_t seconds);     // "01:01:01"; below 0 as 0
std::string DateText(
    int64_t secondsSinceEpoch);  // "Sun Nov 22 20:15:30 2026", local time; "-" for 0
std::string IdText(int32_t id);  // "000000ff"

// Text ids of a job's type, status and end. Every code has one; those that nobody knows are
// "Unknown" and "abnormal job end".
int32_t JobTypeTextId(int32_t jobType);
int32_t JobStatusTextId(int32_t jobStatus);
int32_t JobEndTextId(int32_t endStatus);

// What to show of a line of type Volume of a running job. Its rendered text is a volume's name,
// and what such a job does with the volume is said; of text 325 it is a sentence and stays.
std::string VolumeLineText(int32_t jobType, int32_t textId, const std::string& rendered);

// The text of an id in the current language, "" when nobody has it.
std::string TextOf(int32_t id);

namespace detail {
template <class T>
void AddArgument(KTReportLine& line, const T& value) {
    if constexpr (std::is_floating_point_v<T>) {
        line.AddDouble(value);
    } else if constexpr (std::is_convertible_v<T, std::string_view>) {
        line.AddString(std::string_view(value));
    } else if constexpr (std::same_as<T, int8_t> || std::same_as<T, char>) {
        line.AddInt8(static_cast<int8_t>(value));
    } else if constexpr (sizeof(T) <= sizeof(int32_t)) {
        static_assert(std::is_integral_v<T>, "numbers and strings only");
        line.AddInt32(static_cast<int32_t>(value));
    } else {
        static_assert(std::is_integral_v<T>, "numbers and strings only");
        line.AddInt64(static_cast<int64_t>(value));
    }
}
}  // namespace detail

// A format with these arguments: what printf would make of it, safe with any format.
template <class... Arguments>
std::string FormatText(const char* format, const Arguments&... arguments) {
    KTReportLine line;
    (detail::AddArgument(line, arguments), ...);
    return line.Render(format, size_t{64} * 1024);
}
// The same with the text of an id.
template <class... Arguments>
std::string FormatTextOf(int32_t id, const Arguments&... arguments) {
    return FormatText(TextOf(id).c_str(), arguments...);
}

}  // namespace core
