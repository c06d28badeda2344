// The job of the restore tool: what is restored, where to and how; and in it the settings of the
// insert job that is started from there. A plain value; one thread at a time.
#pragma once

#include "client/job/KTJob.h"

class KTRestoreJob : public KTJob {
public:
    KTRestoreJob();

    void Replace(const BMessage& job) override;

    // "overwrite", "askoverwrite", "createroot", "createemptydirs", "divert".
    BMessage Settings() const { return fJob.Get("restore", BMessage()); }
    void SetSettings(const BMessage& settings) { fJob.Set("restore", settings); }
    // Whether it goes to redirected places.
    bool Divert() const { return Settings().Get<int32_t>("divert", 0) != 0; }
    void SetDivert(bool divert);

    BMessage DeleteSettings() const { return fJob.Get("res_delete", BMessage()); }
    void SetDeleteSettings(const BMessage& settings) { fJob.Set("res_delete", settings); }
    bool DeletesData() const { return DeleteSettings().Get<int32_t>("deletedata", 0) != 0; }

    // What the insert window was left with; see there.
    BMessage InsertSettings() const { return fJob.Get("res_insert", BMessage()); }
    void SetInsertSettings(const BMessage& settings) { fJob.Set("res_insert", settings); }
    BMessage InsertStartInfo() const;
    void SetInsertStartInfo(const BMessage& info);
    // The insert job that is posted, to start at once; `now` in seconds since the epoch.
    BMessage InsertJob(int64_t now);
};
