// What every job says at its end: how much, how long, how fast, in the texts of its kind.
#pragma once

#include <cstdint>
#include <string>

#include "server/engine/JobReport.h"

namespace server {

struct TotalsTexts {
    int32_t files, megabytes, kilobytes, bytes;
};
extern const TotalsTexts kBackupTexts, kRestoreTexts, kCompareTexts, kInsertTexts;

void TellTotals(JobReport& report, int64_t files, int64_t bytes, const TotalsTexts& texts);

// The only argument of many texts; what does not fit is cut to the most there is.
KTReportLine Number(int64_t value);
std::string LocalTimeText(int64_t seconds);

}  // namespace server
