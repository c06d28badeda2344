// What the tests of the report tool share: lists and lines as the server sends them.
#pragma once

#include "core/report/ReportLines.h"
#include "tests/client/BackupTesting.h"

namespace report_testing {

using namespace backup_testing;

inline void AddReport(BMessage& list, int32_t id, const char* title, int32_t type = 1,
                      uint32_t date = 0) {
    list.Add("report_id", id);
    list.Add("title", title);
    list.Add("job_type", type);
    list.Add("date", BTime{date});
}

inline void AddLine(BMessage& text, int32_t type, int32_t textId, const KTReportLine& line = {}) {
    core::AddReportLine(text, textId, static_cast<core::LineType>(type), line);
}

// One line of each type, 7 down to 1, with its type as the words.
inline BMessage OneOfEach(int32_t id) {
    BMessage text = Made("rpRP"_code, {{"report_id", id}});
    for (int32_t type = 7; type > 0; --type)
        core::AddReportWords(text, static_cast<core::LineType>(type), std::to_string(type));
    return text;
}

}  // namespace report_testing
