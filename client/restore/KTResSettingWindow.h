// KTResSettingWindow: what a restore does with files that exist, with root and empty directories,
// and whether it goes to redirected places: the job's "restore" message ("overwrite",
// "askoverwrite", "createroot", "createemptydirs", "divert", all int32). "divert" takes effect
// while the dialog is open: each toggle, and a cancel, posts 'rsDV' with it to the target.
#pragma once

#include "client/uikit/KTSetWindow.h"

class QCheckBox;
class QComboBox;

class KTResSettingWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTResSettingWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                       uint32_t replyCode, BMessenger target);

    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void TellDivert(int32_t divert);

    BMessenger fTool;
    int32_t fDivertBefore;
    bool fClosed = false;
    QComboBox* fOverwrite;
    QCheckBox* fDivert;
};
