#include "server/reports/ReportWriter.h"

namespace server {

void ReportWriter::Add(core::LineType type, int32_t textId, const KTReportLine& arguments) {
    if (type == core::LineType::Progress) return;
    BMessage full;
    {
        std::lock_guard lock(fMutex);
        const auto now = std::chrono::steady_clock::now();
        if (fLines.Count() == 0) fOldest = now;
        fLines.Add(type, textId, arguments);
        const bool isFull = fLines.Count() >= kMostLines || fLines.Size() >= kMostBytes ||
                            now - fOldest >= kMostAge;
        if (!isFull) return;
        full = fLines.Take();
    }
    fStore(std::move(full));
}

BMessage ReportWriter::TakeRest() {
    std::lock_guard lock(fMutex);
    return fLines.Take();
}

}  // namespace server
