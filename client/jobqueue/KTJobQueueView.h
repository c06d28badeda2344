// KTJobQueueView: the job queue tool: what the server's jobs are and what may be done with the
// marked ones. A waiting or paused job is edited in a window with the tool that made it; as long as
// that is open the server holds the job back ("edit mark"). Main thread.
#pragma once

#include <QBasicTimer>
#include <map>
#include <optional>
#include <vector>

#include "client/uikit/KTToolView.h"

class KTJobListView;
class KTSetWindow;
class QLabel;
class QMenu;
class QPushButton;

class KTJobQueueView : public KTToolView {
    Q_OBJECT
public:
    explicit KTJobQueueView(KTToolContext context, QWidget* parent = nullptr,
                            const char* name = "jobqueue");
    ~KTJobQueueView() override;  // lets go of the jobs being edited

    void GetPref(BMessage* settings) override { *settings = fSettings; }
    using KTToolView::SetPref;
    void SetPref(const BMessage& settings) override;
    void MessageReceived(BMessage& message) override;

    KTJobListView* Jobs() const { return fJobs; }

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

private:
    struct Action;
    static std::span<const Action> Actions();

    void MakeControls();
    void Do(BMessage& message);  // one of the Actions
    bool Confirm(int32_t questionTextId, bool destroys);
    std::vector<int32_t> Qualifying(const Action& action) const;
    void SetButtonStatus(BMessage&);
    void TellNext();

    void EditJob(BMessage& message);
    void OpenEditWindow(const BMessage& job);
    void QuitEditJob(BMessage& message);
    void PostEditMark(int32_t jobId, bool edit);
    void RelayToEdits(const BMessage& notice);

    void OpenSettings(BMessage&);
    void SettingsAnswered(BMessage& message);
    void SelectAll(BMessage&);
    void ClearAll(BMessage&);
    void Notice(BMessage& message);
    void ServerBack(BMessage& message);

    BMessage fSettings;
    KTJobListView* fJobs;
    QLabel* fNext;
    QMenu* fPopUp;
    std::vector<QPushButton*> fButtons;  // as Actions()
    // Jobs with a window open, and what others have renamed them to meanwhile.
    std::map<int32_t, std::optional<std::string>> fEdited;
    QBasicTimer fMinute;  // what is said relative to now grows old
};
