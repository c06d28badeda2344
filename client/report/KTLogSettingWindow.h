// KTLogSettingWindow: how reports are shown, and when the server deletes old ones by itself. What
// is chosen above is shown at once in the report ('RFON' 'RFSZ' 'RFLT' to the target) and taken
// back when the dialog is cancelled. Keys: "logtextfamily", "logtextstyle" (string), "logtextsize",
// "logfilter" (int32). What is below belongs to the server: fetched ('rpDG') when the dialog opens,
// sent ('rpDS') on OK. Main thread.
#pragma once

#include "client/app/Inquiry.h"
#include "client/uikit/KTSetWindow.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QRadioButton;

class KTLogSettingWindow : public KTSetWindow {
    Q_OBJECT
public:
    // `settings` has the four keys as they are used now; `target` is the report view; `server`
    // outlives the window.
    KTLogSettingWindow(QWidget* parentWindow, const BMessage& settings, uint32_t replyCode,
                       const BMessenger& target, ServerLink* server);

    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;

private:
    enum Mode : int32_t { kKeep, kByAge, kByCount };
    QWidget* MakeTextBox();
    QWidget* MakeDeletionBox();
    void FillFonts();
    void FillSizes();
    void ShowDeletion(const BMessage& deletion);
    void UpdateDeleteStatus();
    void SetMode(Mode mode);
    // True when the field holds digits only; else the user is told.
    bool CheckNumber(const QLineEdit* field);
    bool CheckBeforeOk();
    void TakeBack();
    void SendDeletion();

    const BMessage fFormer;  // the settings when the dialog opened
    const BMessenger fReport;
    ServerLink* fServer;
    client::Inquiry fInquiry;
    bool fDeletionKnown = false;
    bool fComplaining = false;
    Mode fMode = kKeep;
    QComboBox* fFonts;
    QComboBox* fSizes;
    QComboBox* fFilters;
    QGroupBox* fDeletionBox;
    QRadioButton* fModes[3];
    QLineEdit* fDays;
    QLineEdit* fCount;
    QCheckBox* fOverwrite;
};
