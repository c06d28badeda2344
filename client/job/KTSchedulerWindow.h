// KTSchedulerWindow: sets when a job runs: date and time, how often again, and on which days of the
// week it does not. The settings are the job's schedule record (client/job/ScheduleFields.h); a
// line in words tells what comes of it while one types. Main thread.
#pragma once

#include <QTimer>
#include <array>
#include <ctime>
#include <functional>

#include "client/job/ScheduleFields.h"
#include "client/uikit/KTSetWindow.h"

class QCheckBox;
class QLabel;
class QLineEdit;

// What it asks for the time.
struct KTSchedulerClock {
    core::Zone zone = core::Zone::OfSystem();
    std::function<int64_t()> now = [] { return static_cast<int64_t>(std::time(nullptr)); };
};

class KTSchedulerWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTSchedulerWindow(const QString& title, QWidget* parentWindow, const BMessage& record,
                      uint32_t replyCode, BMessenger target, KTSchedulerClock clock = {});

    // Shows a record; what was typed is lost.
    void SetScheduler(const BMessage& record);

    // 'TIME' 'DATE' 'REPE' 'EXCL' of the controls, with "source" (pointer): one that holds what
    // cannot be right is told, and keeps it.
    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;

private:
    void MakeControls();
    QLineEdit* MakeField(const char* name, uint32_t code);
    QLineEdit* SourceOf(const BMessage& message) const;  // null when it is none of the fields
    void Warn(const char* title, int32_t textId);
    client::ScheduleFields Typed() const;
    void ShowNextRun();

    const KTSchedulerClock fClock;
    int64_t fShownAt = 0;  // seconds since the epoch; what an empty record was shown as
    QLineEdit* fTime;
    QLineEdit* fDate;
    std::array<QLineEdit*, client::kIntervals.size()> fIntervals;
    std::array<QCheckBox*, client::kWeekdays.size()> fDays;
    QLabel* fNextRun;
    QTimer fTick;  // "in 5 minutes" does not stay true
};
