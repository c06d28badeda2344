// KTJobListView: the server's jobs as a list. It fetches them ('KTJL') and follows the server's
// notices. The job queue shows the jobs that wait or run; the backup tool shows the full backups
// that another backup can be built on. Main thread.
#pragma once

#include <string>
#include <vector>

#include "client/uikit/KTColumnListView.h"

class Preferences;
class ServerLink;

class KTJobListView : public KTColumnListView {
    Q_OBJECT
public:
    enum class Show { Queue, Bases };
    enum Column {
        kIcon,
        kTitle,
        kStatus,
        kType,
        kDate,
        kId,
        kStatusCode
    };  // the last is not shown

    // `server` and `preferences` outlive it.
    KTJobListView(Show show, ListType type, ServerLink* server, Preferences* preferences,
                  QWidget* parent);

    // Fetches the whole list; marked jobs stay marked. False when the server gave no answer: the
    // list stays as it was.
    bool GetJobListFromServer();
    bool IsFetched() const { return fFetched; }

    int32_t JobId(KTRow row) const;
    int32_t JobStatus(KTRow row) const;
    int32_t JobType(KTRow row) const;
    std::string JobTitle(KTRow row) const;
    KTRow RowOfJob(int32_t jobId) const;  // kNoRow when it is not listed

    // 'KTJI' 'KTJR' 'KTjc' from the server ('KTLi' 'KTLr' too where bases are shown), 'clrn' for a
    // title edited in place ("job_id", "text").
    void MessageReceived(BMessage& message) override;
    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    bool TestRenameColumnData(KTRow row, int column) override;
    void RenameColumnData(KTRow row, int column, const QString& text) override;

protected:
    void keyPressEvent(QKeyEvent* event) override;

signals:
    // The whole list has come anew.
    void Fetched();

private:
    struct Job {
        int32_t id = 0;
        std::string title;
        int32_t status = 0, type = 0;
        int64_t date = 0;
        bool base = false;
    };
    static std::vector<Job> JobsIn(const BMessage& message);
    bool Shows(const Job& job) const;
    void Insert(const std::vector<Job>& jobs);
    void SetStatus(KTRow row, int32_t status);
    void SetType(KTRow row, int32_t type);
    void RemoveJob(const BMessage& message);
    void ChangeJob(const BMessage& message);
    void RenameJob(int32_t jobId, std::string_view title);
    // What can be a base follows from the catalogue, not from the queue: the list is fetched anew,
    // once for a burst of notices, and only while somebody looks.
    void FetchSoon();

    const Show fShow;
    ServerLink* fServer;
    Preferences* fPreferences;
    bool fFetched = false;
    bool fFetchPosted = false;
};
