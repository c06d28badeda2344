// KTBackupStartWin: asks for a job's description, an optional password (twice) and whether the job
// is to wait. The settings it hands back become the job's "start_info": "title", "passonoff",
// "password", "submitonhold".
#pragma once

#include "client/uikit/KTSetWindow.h"

class QCheckBox;
class QLabel;
class QLineEdit;

class KTBackupStartWin : public KTSetWindow {
    Q_OBJECT
public:
    KTBackupStartWin(const QString& title, QWidget* parentWindow, const BMessage& settings,
                     uint32_t replyCode, BMessenger target);
    ~KTBackupStartWin() override;

    // An incremental or differential backup has its base's title.
    void MakeTitleEditable(bool editable);
    bool IsTitleEditable() const;
    // It has its base's protection, too: no password is asked for, and whether the next full backup
    // gets one stays as it was.
    void MakePasswordEditable(bool editable);

    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;

private:
    // True when both passwords are the same; else the error dialog is up.
    bool CheckPW();
    void PasswordSwitched();
    void ShowHint();

    QLineEdit* fTitle;
    QCheckBox* fWithPassword;
    QLineEdit* fPassword;
    QLineEdit* fPassword2;
    QCheckBox* fOnHold;
    QLabel* fHint;
    QPointer<QWidget> fError;
    bool fPasswordEditable = true;
};
