#include "ctl/Output.h"

#include <cstdio>

#include "core/protocol/LineTypes.h"
#include "core/report/ReportLines.h"
#include "ctl/Words.h"

namespace ctl {

using nlohmann::ordered_json;

void PrintJson(const ordered_json& document) {
    const std::string text = document.dump(2, ' ', false, ordered_json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
}

ExitCode Fail(const std::string& words, ExitCode code) {
    std::fflush(stdout);
    std::fprintf(stderr, "backupctl: %s\n", Printable(words).c_str());
    return code;
}

void PrintReport(const BMessage& report, bool details) {
    for (int32_t i = 0; i < core::CountReportLines(report); ++i) {
        const auto type = report.Get<int32_t>(core::kLineTypeField, 0, i);
        if (!details && type > static_cast<int32_t>(core::LineType::Error)) continue;
        std::printf("%s\n", Printable(core::ReportLineText(report, i)).c_str());
    }
}

ordered_json ReportJson(const BMessage& report) {
    auto lines = ordered_json::array();
    for (int32_t i = 0; i < core::CountReportLines(report); ++i) {
        lines.push_back({{"linetype", report.Get<int32_t>(core::kLineTypeField, 0, i)},
                         {"text_id", report.Get<int32_t>(core::kTextIdField, 0, i)},
                         {"text", core::ReportLineText(report, i)}});
    }
    return lines;
}

}  // namespace ctl
