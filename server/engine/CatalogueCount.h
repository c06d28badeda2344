// Tells how much there is to do of a backup, while it is being done.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

#include "server/engine/CatalogueWalk.h"
#include "server/engine/JobReport.h"

namespace server {

// Bytes of data that the stream has of an entry.
inline int64_t DataSize(const CatalogueEntry& entry) {
    return entry.link == 0 && S_ISREG(entry.mode) ? entry.size : 0;
}

class CatalogueCount : public CatalogueVisitor {
public:
    CatalogueCount(JobReport& report, std::function<bool()> mayGoOn)
        : fReport(report), fMayGoOn(std::move(mayGoOn)) {}
    bool Enter(const std::string&, const CatalogueEntry&, const CatalogueDirectory&,
               bool) override {
        return true;
    }
    void Entry(const std::string&, const CatalogueEntry& entry) override {
        fReport.AddTotals(1, DataSize(entry));
    }
    bool MayGoOn() override { return fMayGoOn(); }

private:
    JobReport& fReport;
    const std::function<bool()> fMayGoOn;
};

}  // namespace server
