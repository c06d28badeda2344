// Printing what several commands print.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "ctl/ExitCode.h"
#include "kit/message/BMessage.h"

namespace ctl {

// Pretty, one document on standard output; bytes that are no text become replacement characters.
void PrintJson(const nlohmann::ordered_json& document);
// "backupctl: words" on standard error.
ExitCode Fail(const std::string& words, ExitCode code = ExitCode::Failed);
// The lines of a report. `details` false: headings, totals and errors only.
void PrintReport(const BMessage& report, bool details);
nlohmann::ordered_json ReportJson(const BMessage& report);

}  // namespace ctl
