// KTReportListView: the reports that the server keeps, the newest on top. It fetches them ('rpGL')
// and follows the server's notices ('rpIN', 'rpRM'). Main thread.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "client/uikit/KTColumnListView.h"

class Preferences;
class ServerLink;

class KTReportListView : public KTColumnListView {
    Q_OBJECT
public:
    enum Column { kTitle, kType, kDate, kId, kJobType };  // the last is not shown

    // `server` and `preferences` outlive it.
    KTReportListView(ServerLink* server, Preferences* preferences, QWidget* parent);

    // Fetches the whole list; marked reports stay marked. False when the server gave no answer: the
    // list stays as it was.
    bool GetReportListFromServer();
    bool IsFetched() const { return fFetched; }
    void ForgetFetched() { fFetched = false; }

    int32_t ReportId(KTRow row) const;
    KTRow RowOfReport(int32_t reportId) const;  // kNoRow when it is not listed
    std::vector<int32_t> MarkedReports() const;
    // "Home, Full Backup, Sun Nov 22 20:15:30 2026"
    QString Description(KTRow row) const;

    // Rows are added, or changed where they are known: 'rpIN'.
    void Insert(const BMessage& message);
    // The reports of 'rpRM' that were listed are gone from the list.
    void RemoveReports(const BMessage& message);

    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    ServerLink* fServer;
    Preferences* fPreferences;
    bool fFetched = false;
    std::unordered_map<int32_t, KTRow> fRowOfReport;
};
