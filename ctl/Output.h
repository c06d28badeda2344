// Printing what several commands print.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "core/report/Format.h"
#include "ctl/ExitCode.h"
#include "kit/message/BMessage.h"

namespace ctl {

// Pretty, one document on standard output; bytes that are no text become replacement characters.
void PrintJson(const nlohmann::ordered_json& document);
// "backupctl: words" on standard error.
ExitCode Fail(const std::string& words, ExitCode code = ExitCode::Failed);
// The same with a text of the table and its arguments.
template <class... Arguments>
ExitCode Fail(int32_t textId, const Arguments&... arguments) {
    return Fail(core::FormatTextOf(textId, arguments...));
}
// The command line cannot be meant so.
template <class... Arguments>
ExitCode WrongUse(int32_t textId, const Arguments&... arguments) {
    return Fail(core::FormatTextOf(textId, arguments...), ExitCode::Usage);
}
// The lines of a report. `details` false: headings, totals and errors only.
void PrintReport(const BMessage& report, bool details);
nlohmann::ordered_json ReportJson(const BMessage& report);

}  // namespace ctl
