// KTJQWindow: the frame of a window that edits a waiting job: the tool that made the job, filled
// from it and without its start button, below a menu of the tool's own commands. Confirmed, it
// hands back the whole job as "settings", with its "job_id". What each kind of job has is one small
// class (KTJQBackupWindow, KTJQRestoreWindow, KTJQCompareWindow). Main thread.
#pragma once

#include "client/uikit/KTSetWindow.h"

class KTJobTool;

class KTJQWindow : public KTSetWindow {
    Q_OBJECT
public:
    void MessageReceived(BMessage& message) override;
    // Notices that the tool would get in the main window.
    void Relay(const BMessage& notice);

protected:
    // `settings`: the job as the server gave it, and "winpos" where there is one.
    KTJQWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
               uint32_t replyCode, BMessenger target);
    // The tool's view, made by the subclass with BkgView() as its parent.
    void Embed(KTJobTool* view, const BMessage& job);
    void Save(BMessage& settings) override;

private:
    void MakeMenus();

    const int32_t fJobId;
    KTJobTool* fView = nullptr;
};
