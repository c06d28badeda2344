// KTJobTool: a tool that makes jobs. What all of them do alike is here: settings and job files with
// their panels and drops, and the schedule's controls. Main thread.
#pragma once

#include <QTimer>

#include "client/job/KTJob.h"
#include "client/uikit/KTToolView.h"

class KTElidedLabel;
class QComboBox;
class QHBoxLayout;
class QMimeData;
class QPushButton;

class KTJobTool : public KTToolView {
    Q_OBJECT
public:
    void GetPref(BMessage* settings) override;
    void SetPref(const BMessage& settings) override;
    // A job file, or a selection file, which fills only the selection. What it is its magic tells.
    void SetPref(const entry_ref& file) override;
    bool HasJob() const override { return true; }
    const BMessage& Job() const { return OwnJob().Data(); }

    // Whether the job is complete and valid; unless `quiet` the user is told what is missing.
    virtual bool CheckStart(bool quiet = false) = 0;
    // The whole job as it is sent, with what the controls and marks say now.
    virtual BMessage FinishedJob() = 0;
    // Asked once before a job that an editing window holds is given back; false: it stays open.
    virtual bool ConfirmEdit() { return CheckStart(); }
    // In a window that edits a waiting job: nothing is started from here, and nothing of the job is
    // lost because it is not there just now.
    virtual void HideStart() = 0;

    // 0: good; else the number of the failing step (core/files/HeaderFile.h).
    int32_t SaveJobData(const BMessage& panelAnswer);
    int32_t LoadJobData(const entry_ref& file, BMessage* job) const;

    void MessageReceived(BMessage& message) override;

protected:
    KTJobTool(const char* name, KTToolContext context, QWidget* parent);

    virtual KTJob& OwnJob() = 0;
    const KTJob& OwnJob() const { return const_cast<KTJobTool*>(this)->OwnJob(); }
    virtual QString AlertTitle() const = 0;
    virtual void InitControls() = 0;   // all of them, from the job
    virtual void SaveSelection() = 0;  // what is marked, into the job
    virtual void InitSelection() = 0;  // marks what the job says

    // --- the schedule ---------------------------------------------------------------------------
    struct ScheduleControls {
        QComboBox* menu = nullptr;  // "None", "Scheduler"
        QPushButton* button = nullptr;
        KTElidedLabel* words = nullptr;  // when the job starts
    };
    struct ScheduleNames {
        const char *menu, *button, *words;
        uint32_t buttonCode;
        QString noTime;  // said when there is none
    };
    // A tool that has no use for it does not make it.
    ScheduleControls MakeSchedule(const ScheduleNames& names);
    // The controls in one row behind their label.
    static QHBoxLayout* RowOf(const ScheduleControls& schedule);
    void InitScheduler();
    void SaveScheduler();

    // --- words ----------------------------------------------------------------------------------
    void Alert(int32_t textId);
    void FileProblem(int32_t textId, const std::string& path);

    // Shows a secondary window that is remembered under `key`.
    void Present(const char* key, QWidget* window);

    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void OpenSavePanel(BMessage&);
    void OpenLoadPanel(BMessage&);
    void SavePanelAnswered(BMessage& message);
    void LoadPanelAnswered(BMessage& message);
    void PanelCancelled(BMessage& message);
    void ShowSchedule();
    void SchedulerChosen(BMessage& message);
    void OpenScheduler();
    void SchedulerAnswered(BMessage& message);
    std::optional<std::string> DroppedFile(const QMimeData* data) const;

    ScheduleControls fSchedule;
    uint32_t fScheduleCode = 0;
    QString fNoTime;
    QTimer fTick;  // "in 5 minutes" does not stay true
};
