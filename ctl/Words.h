// How values look in a terminal. Names and texts come from disks and messages: what goes to a
// terminal is made harmless first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ctl {

// Valid UTF-8 without control characters: those, and bytes that are no text, as "\xNN". Tabs stay.
std::string Printable(std::string_view bytes);
// Cut to at most `columns` characters, with "…" in front where something is missing.
std::string CutFront(const std::string& printable, size_t columns);
size_t Columns(std::string_view printable);

std::string SizeWords(int64_t bytes);    // "1.2 GB"
std::string TimeWords(int64_t seconds);  // "1:02:03", "2:03"
std::string DateWords(int64_t seconds);  // "2026-11-22 20:15", local; "-" for 0
std::string JobIdWords(int32_t id);      // as the client shows it: "0000001a"
// Eight digits are a job's number as lists show it, in base 16; anything else is a plain number.
std::optional<int32_t> ParseJobId(const std::string& text);
// Filled up with blanks to so many characters.
std::string Padded(const std::string& printable, size_t columns);
// An entry of a backup for a list: "      1.2 MB  2026-11-22 20:15  name". A size of -1: it holds
// others.
std::string EntryLine(int64_t size, int64_t date, const std::string& name);
// For programs: English in every language.
const char* JobTypeWords(int32_t type);
const char* JobStatusWords(int32_t status);
const char* EntryTypeWords(int32_t type);

}  // namespace ctl
