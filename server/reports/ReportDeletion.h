// The automatic deletion of old reports: its settings and its rule.
#pragma once

#include <cstdint>
#include <vector>

#include "kit/message/BMessage.h"
#include "server/reports/ReportInfo.h"

namespace server {

struct ReportDeletion {
    enum Mode : int32_t { Never = 0, ByAge = 1, ByCount = 2 };
    int32_t mode = Never;
    int32_t days = 0, count = 0;  // 0 deletes nothing
    bool withBackup = false;      // a backup's reports go when the backup goes

    BMessage ToMessage() const;  // 'rpDS'
    // Takes what the message has; other fields keep their value, nonsense becomes "never" and 0.
    void Update(const BMessage& message);
    // The reports to delete, of `reports` in order of their ids.
    std::vector<int32_t> Select(const std::vector<ReportInfo>& reports, int64_t now) const;
};

}  // namespace server
