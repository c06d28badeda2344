// The job of the compare tool: what of which backups is compared with the disk, and in which
// things. A plain value; one thread at a time.
#pragma once

#include "client/job/KTJob.h"

class KTCompareJob : public KTJob {
public:
    KTCompareJob();

    void Replace(const BMessage& job) override;

    // The items that the user chose, each int32 0 or 1 (KTCmpSettingWindow.h). They are the first
    // "compare" message; the server goes by that one.
    BMessage Settings() const { return fJob.Get("compare", BMessage()); }
    void SetSettings(const BMessage& settings) { fJob.Set("compare", settings); }
    // Adds a "compare" message that asks for all. Each start adds one more: what the job files
    // hold.
    void InitSettings();
};
