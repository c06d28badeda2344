// Report lines in messages: three parallel arrays, "reportline" (flattened 'ktrl'), "text_id" and
// "linetype", one index a line. docs/protocol.md describes them.
#pragma once

#include <string>

#include "core/protocol/LineTypes.h"
#include "core/report/KTReportLine.h"

namespace core {

inline constexpr char kReportLineField[] = "reportline";
inline constexpr char kTextIdField[] = "text_id";
inline constexpr char kLineTypeField[] = "linetype";
inline constexpr char kReadyTextField[] =
    "report";  // the words themselves, in place of a report line

// Appends one line.
void AddReportLine(BMessage& message, int32_t textId, LineType type, const KTReportLine& line = {});
// Words that have no text id, as the argument of text 279.
void AddReportWords(BMessage& message, LineType type, std::string_view words);

int32_t CountReportLines(const BMessage& message);
// The line at `index` in the current language; where the message has no "reportline" there, its
// ready text. "" when there is neither, or nobody has the text id.
std::string ReportLineText(const BMessage& message, int32_t index = 0, size_t limit = 1023);

}  // namespace core
