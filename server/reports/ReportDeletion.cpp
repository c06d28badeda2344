#include "server/reports/ReportDeletion.h"

#include <algorithm>

#include "core/protocol/Codes.h"

namespace server {

BMessage ReportDeletion::ToMessage() const {
    BMessage message(core::code::kReportDeletion);
    message.Add("mode", mode);
    message.Add("days", days);
    message.Add("count", count);
    message.Add("overwrite", int32_t{withBackup});
    return message;
}

void ReportDeletion::Update(const BMessage& message) {
    mode = message.Get("mode", mode);
    if (mode < Never || mode > ByCount) mode = Never;
    days = std::max(0, message.Get("days", days));
    count = std::max(0, message.Get("count", count));
    withBackup = message.Get("overwrite", int32_t{withBackup}) != 0;
}

std::vector<int32_t> ReportDeletion::Select(const std::vector<ReportInfo>& reports,
                                            int64_t now) const {
    std::vector<int32_t> old;
    if (mode == ByAge && days > 0) {
        const int64_t oldest = now - int64_t{days} * 24 * 60 * 60;
        for (const auto& report : reports) {
            if (report.date < oldest) old.push_back(report.id);
        }
    }
    if (mode == ByCount && count > 0 && reports.size() > static_cast<size_t>(count)) {
        const size_t more = reports.size() - static_cast<size_t>(count);
        for (size_t i = 0; i < more; ++i)
            old.push_back(reports[i].id);
    }
    return old;
}

}  // namespace server
