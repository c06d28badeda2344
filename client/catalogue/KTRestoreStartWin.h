// KTRestoreStartWin: asks for a restore's or compare's description, whether it is to wait, and for
// the passwords of the protected backups among those it reads. The settings it hands back become
// the job's "start_info": "title", "submitonhold". Passwords are checked with the server, which
// then has them; they are in no settings, and go when the dialog closes.
#pragma once

#include "client/app/Inquiry.h"
#include "client/catalogue/KTPasswordList.h"
#include "client/uikit/KTSetWindow.h"
#include "client/uikit/KTToolView.h"

class KTElidedLabel;
class KTPasswordListView;
class QCheckBox;
class QFormLayout;
class QLabel;
class QLineEdit;

class KTRestoreStartWin : public KTSetWindow {
    Q_OBJECT
public:
    KTRestoreStartWin(const KTToolContext& context, const QString& title, QWidget* parentWindow,
                      const BMessage& settings, uint32_t replyCode, BMessenger target);

    // The backups that the job reads: "title", "name", "date" for each; as 'rssl' does. Those that
    // the server calls protected come into the list, with the passwords typed before.
    void SetPWList(const BMessage& backups);

    // 'rssl'; code::kRestoreLanding; 'clrn' of the list; ' ok ' checks the passwords before it
    // confirms.
    void MessageReceived(BMessage& message) override;

    void SetPatience(std::chrono::milliseconds patience) { fInquiry.SetPatience(patience); }

protected:
    void Save(BMessage& settings) override;
    void closeEvent(QCloseEvent* event) override;

private:
    // Asks the server; the dialog goes on but cannot be confirmed until `done`.
    void Ask(BMessage question, void (KTRestoreStartWin::*done)(const BMessage& answer));
    void AskProtection();
    void TakeList(const BMessage& answer);
    void TakeCheck(const BMessage& answer);

    void Confirm();
    // True when there is nothing to ask the server about; else its answer decides.
    bool CheckPWList();
    void PasswordTyped(const BMessage& message);
    void ShowLanding(const BMessage& message);
    void ShowPWList();
    void ShowInquiry();
    void SelectRow(int32_t index);

    client::Inquiry fInquiry;
    KTPasswordList fPasswords;
    std::optional<BMessage> fUnlisted;  // backups of which the server has not said yet
    bool fIsListed = false;             // else nothing is said about passwords
    bool fConfirmWhenListed = false;
    bool fChecking = false;

    QLineEdit* fTitle;
    QFormLayout* fForm;
    KTElidedLabel* fLanding;
    QLabel* fPrompt;
    KTPasswordListView* fList;
    QLabel* fNoneProtected;
    QLabel* fHint;
    QCheckBox* fOnHold;
};
