// KTReportView: the report tool: the list of reports, below it the one that is open, and what is
// done with them. The server sends a report as lines without words ('rpRP'); they are put into
// words here, in the user's language, also those of old reports. Main thread.
#pragma once

#include <QBasicTimer>

#include "client/report/KTReportText.h"
#include "client/uikit/KTToolView.h"

class KTElidedLabel;
class KTReportListView;
class KTReportPrinter;
class KTReportTextView;
class QAction;
class QLineEdit;
class QMenu;
class QPushButton;
class QToolButton;

class KTReportView : public KTToolView {
    Q_OBJECT
public:
    explicit KTReportView(KTToolContext context, QWidget* parent = nullptr,
                          const char* name = "report");
    ~KTReportView() override;

    void GetPref(BMessage* settings) override;
    using KTToolView::SetPref;
    void SetPref(const BMessage& settings) override;

    // The server's 'rpIN' 'rpRM' 'rpRP', client::code::kShowReport ("report_id"), and what its own
    // controls and dialogs say.
    void MessageReceived(BMessage& message) override;

    int32_t ShownReport() const { return fShown; }  // 0: none

protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    void MakeControls();
    QWidget* MakeReportPane();
    void MakeMenu();
    void MakeKeys();

    // The list
    void FetchList();
    void ReportsAdded(BMessage& message);
    void ReportsRemoved(BMessage& message);
    void ServerGone(BMessage& message);
    void ServerBack(BMessage& message);
    void SelectAllRows(BMessage& message);
    void ClearAllRows(BMessage& message);
    void SelectionChanged(BMessage& message);

    // The open report
    void OpenRow(BMessage& message);
    void ShowReport(BMessage& message);
    void OpenReport(int32_t id);
    void TextCame(BMessage& message);
    void ShowText(KTReportText text);
    void ForgetReport(int32_t emptyText);
    void SetEmptyText(int32_t text);  // what stands where no line is
    void UpdateHeading();
    void UpdateButtons();
    void ShowProblemCount();
    void GoToProblem(bool forward);
    void FindWords(bool forward);
    void SearchOn();

    // What is done with it
    void SaveReport(BMessage& message);
    void SavePanelAnswered(BMessage& message);
    void PanelCancelled(BMessage& message);
    void PrintReport(BMessage& message);
    void PageSetup(BMessage& message);
    void Printed(bool good);

    void OpenSettings(BMessage& message);
    void SettingsAnswered(BMessage& message);
    void FontChosen(BMessage& message);
    void SizeChosen(BMessage& message);
    void FilterChosen(BMessage& message);
    void ApplyFont();
    int32_t Filter() const;

    void DeleteReports(BMessage& message);
    void DeleteAnswered(BMessage& message);

    void Alert(int32_t title, const QString& text);
    void ToServer(uint32_t code, int32_t reportId);  // with "user", this view

    BMessage fSettings;  // the group "report"
    int32_t fEmptyText = 0;
    int32_t fShown = 0;   // the report whose text is shown
    int32_t fOpened = 0;  // the one that was asked for last
    bool fWaiting = false;
    std::vector<int32_t> fToDelete;  // what the open question is about
    KTReportPrinter* fPrinting = nullptr;
    std::optional<KTReportSearch> fSearch;  // that goes on
    QBasicTimer fSearching;

    KTReportListView* fList;
    KTElidedLabel* fHeading;
    KTElidedLabel* fState;
    KTReportTextView* fText;
    QLineEdit* fFind;
    QToolButton* fPrevious;
    QToolButton* fNext;
    QPushButton* fSave;
    QPushButton* fPrint;
    QPushButton* fSettingsButton;
    QPushButton* fDelete;
    QMenu* fMenu;
};
