#include "client/catalogue/KTRestoreStartWin.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>

#include "client/app/ClientCodes.h"
#include "client/catalogue/KTPasswordListView.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTElidedLabel.h"
#include "core/files/HeaderFile.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr uint32_t kBackups = "rssl"_code;
constexpr uint32_t kCellEdited = "clrn"_code;
constexpr char kAlertTitle[] = "RestoreStart";
constexpr char kWrongPassword[] = "Paßworteingabe nicht korrekt!";
constexpr int kFieldWidth = 280;

}  // namespace

KTRestoreStartWin::KTRestoreStartWin(const KTToolContext& context, const QString& title,
                                     QWidget* parentWindow, const BMessage& settings,
                                     uint32_t replyCode, BMessenger target)
    : KTSetWindow(title, parentWindow, core::WithoutPasswords(settings), replyCode, target),
      fInquiry(context.server) {
    using namespace core;
    fTitle = new QLineEdit(KTControl::Shown(settings.Get("title", std::string())));
    KTControl::Name(fTitle, "str_title");
    fTitle->setMinimumWidth(kFieldWidth);
    fLanding = new KTElidedLabel(Qt::ElideMiddle);
    KTControl::Name(fLanding, "str_landing");
    fLanding->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);  // no path widens the dialog
    fForm = new QFormLayout;
    fForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    fForm->addRow(KTControl::LabelText(text::kDescription), fTitle);
    fForm->addRow(KTControl::LabelText(kMoreFirstItemGoesTo), fLanding);
    fForm->setRowVisible(fLanding, false);

    const auto label = [](const char* name, const QString& text) {
        auto* made = new QLabel(text);
        KTControl::Name(made, name);
        made->setTextFormat(Qt::PlainText);
        made->setWordWrap(true);
        return made;
    };
    fPrompt = label("str_prompt", KTControl::LabelText(text::kTypePassword));
    fList = new KTPasswordListView(context.preferences, nullptr);
    fList->SetInvocationMessage(BMessage(), this);
    fNoneProtected = label("str_noneprotected", KTControl::Text(kMoreNoneProtected));
    fHint = label("str_hint", {});

    fOnHold = new QCheckBox(KTControl::LabelText(text::kSubmitOnHold));
    KTControl::Name(fOnHold, "chk_submitonhold");
    fOnHold->setChecked(settings.Get<int32_t>("submitonhold", 0) != 0);

    auto* layout = new QVBoxLayout(BkgView());
    layout->addLayout(fForm);
    layout->addWidget(fPrompt);
    layout->addWidget(fList, 1);
    layout->addWidget(fNoneProtected);
    layout->addWidget(fHint);
    layout->addWidget(fOnHold);
    layout->addStretch(0);

    ShowPWList();
    ShowInquiry();
    fTitle->setFocus();
    fTitle->selectAll();
}

void KTRestoreStartWin::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kBackups:
            SetPWList(message);
            break;
        case client::code::kRestoreLanding:
            ShowLanding(message);
            break;
        case kCellEdited:
            PasswordTyped(message);
            break;
        case kConfirm:
            // What is still being typed counts: it arrives before this comes round again.
            if (fList->FinishEditing())
                BMessenger(this).SendMessage(kConfirm);
            else
                Confirm();
            break;
        default:
            KTSetWindow::MessageReceived(message);
    }
}

void KTRestoreStartWin::Save(BMessage& settings) {
    settings.Set("title", KTControl::ToBytes(fTitle->text()));
    settings.Set("submitonhold", static_cast<int32_t>(fOnHold->isChecked()));
}

void KTRestoreStartWin::closeEvent(QCloseEvent* event) {
    KTSetWindow::closeEvent(event);
    fInquiry.Drop();
    fPasswords.Clear();
}

// --- questions to the server --------------------------------------------------------------------

void KTRestoreStartWin::Ask(BMessage question,
                            void (KTRestoreStartWin::*done)(const BMessage& answer)) {
    fInquiry.Ask(std::move(question), [this, done](const std::optional<BMessage>& answer) {
        fChecking = false;
        ShowInquiry();
        if (answer) return (this->*done)(*answer);
        fConfirmWhenListed = false;
        KTAlert(this, kAlertTitle, KTControl::Text(core::kMoreServerSilent),
                {KTControl::Text(core::text::kOk)}, KTAlertRequest::Kind::Warning);
    });
    ShowInquiry();
}

void KTRestoreStartWin::AskProtection() {
    fChecking = false;
    Ask(KTPasswordList::ProtectionQuestion(*fUnlisted), &KTRestoreStartWin::TakeList);
}

void KTRestoreStartWin::ShowInquiry() {
    const bool open = fInquiry.IsOpen();
    // With its button off the keyboard would be on "Cancel", a Return away from losing it all.
    if (open && (OkButton()->hasFocus() || (fChecking && fList->hasFocus()))) setFocus();
    OkButton()->setEnabled(!open);
    fList->setEnabled(!fChecking);
    fHint->setText(fChecking ? KTControl::Text(core::kMoreCheckingPassword) : QString());
}

// --- the list of passwords ----------------------------------------------------------------------

void KTRestoreStartWin::SetPWList(const BMessage& backups) {
    fConfirmWhenListed = false;
    fIsListed = true;
    if (backups.Has("name")) {
        fUnlisted = backups;
        return AskProtection();
    }
    fInquiry.Drop();
    fChecking = false;
    fUnlisted.reset();
    fPasswords.Clear();
    ShowPWList();
    ShowInquiry();
}

void KTRestoreStartWin::TakeList(const BMessage& answer) {
    fPasswords.Take(*fUnlisted, answer);
    fUnlisted.reset();
    ShowPWList();
    if (std::exchange(fConfirmWhenListed, false) && fPasswords.IsEmpty()) Confirm();
}

void KTRestoreStartWin::ShowPWList() {
    fList->FinishEditing();  // what is being typed finds its backup by name
    fList->ShowPWList(fPasswords);
    const bool some = !fPasswords.IsEmpty();
    const bool none = fIsListed && !some;
    if (fList->isVisibleTo(this) == some && fNoneProtected->isVisibleTo(this) == none) return;
    fPrompt->setVisible(some);
    fList->setVisible(some);
    fHint->setVisible(some);  // its place is kept while it says nothing
    fNoneProtected->setVisible(none);
    if (!isVisible()) return;
    layout()->activate();
    if (some)
        resize(size().expandedTo(sizeHint()));
    else
        adjustSize();
}

void KTRestoreStartWin::PasswordTyped(const BMessage& message) {
    const auto row = static_cast<KTRow>(message.Get<int64_t>("item", kNoRow));
    int32_t index = fList->Rows().Has(row) ? fList->Rows().IndexInParent(row) : -1;
    if (const auto name = message.FindString("name")) index = fPasswords.IndexOf(*name);
    if (index < 0) return;
    fPasswords.SetPassword(index, message.Get("text", std::string()));
    fList->ShowPassword(index, fPasswords.HasPassword(index));
}

// --- confirming ---------------------------------------------------------------------------------

void KTRestoreStartWin::Confirm() {
    if (fInquiry.IsOpen() || !CheckPWList()) return;
    BMessage confirmed(kConfirm);
    KTSetWindow::MessageReceived(confirmed);
}

bool KTRestoreStartWin::CheckPWList() {
    if (fUnlisted) {
        // Without knowing which backups are protected a job would leave them out without a word.
        fConfirmWhenListed = true;
        AskProtection();
        return false;
    }
    if (fPasswords.IsEmpty()) return true;
    fChecking = true;
    Ask(fPasswords.CheckQuestion(), &KTRestoreStartWin::TakeCheck);
    return false;
}

void KTRestoreStartWin::TakeCheck(const BMessage& answer) {
    const int32_t wrong = fPasswords.FirstWrong(answer);
    if (wrong < 0) {
        BMessage confirmed(kConfirm);
        KTSetWindow::MessageReceived(confirmed);
        return;
    }
    const QPointer<KTRestoreStartWin> alive(this);
    SelectRow(wrong);
    KTAlert(this, kAlertTitle, kWrongPassword, {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
    if (alive) fList->setFocus();
}

void KTRestoreStartWin::SelectRow(int32_t index) {
    const KTRow row = fList->RowAtIndex(index);
    fList->Select(row);
    fList->ScrollTo(row);
}

// --- where the first item goes ------------------------------------------------------------------

void KTRestoreStartWin::ShowLanding(const BMessage& message) {
    const std::string target = message.Get("target", std::string());
    const QString shown = target.empty() ? QStringLiteral("--") : KTControl::Shown(target);
    fLanding->setText(shown);
    fLanding->setAccessibleName(KTControl::Text(core::kMoreFirstItemGoesTo) + " " + shown);
    fForm->setRowVisible(fLanding, true);
}
