#include "client/backup/KTBackupStartWin.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

#include "client/uikit/KTControl.h"
#include "client/uikit/KTRequestWindow.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/files/HeaderFile.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr uint32_t kPasswordSwitched = "rsav"_code;
constexpr uint32_t kFirstPasswordDone = "bsp1"_code;
constexpr uint32_t kSecondPasswordDone = "bsp2"_code;
constexpr uint32_t kErrorClosed = "pweq"_code;
constexpr int kFieldWidth = 280;

}  // namespace

KTBackupStartWin::KTBackupStartWin(const QString& title, QWidget* parentWindow,
                                   const BMessage& settings, uint32_t replyCode, BMessenger target)
    : KTSetWindow(title, parentWindow, core::WithoutPasswords(settings), replyCode, target) {
    using namespace core;
    auto* form = new QFormLayout(BkgView());
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setRowWrapPolicy(QFormLayout::WrapLongRows);

    fTitle = new QLineEdit(KTControl::Shown(settings.Get("title", std::string())));
    KTControl::Name(fTitle, "str_title");
    fTitle->setMinimumWidth(kFieldWidth);
    form->addRow(KTControl::LabelText(text::kDescription), fTitle);

    fWithPassword = new QCheckBox(KTControl::LabelText(text::kPassword));
    KTControl::Name(fWithPassword, "chk_password");
    fWithPassword->setChecked(settings.Get<int32_t>("passonoff", 0) != 0);
    KTControl::Bind(fWithPassword, BMessage(kPasswordSwitched), this);
    const auto passwordField = [this](const char* name, int32_t spoken, uint32_t done) {
        auto* field = new QLineEdit;
        field->setEchoMode(QLineEdit::Password);
        KTControl::Name(field, name, KTControl::Text(spoken));
        field->setPlaceholderText(KTControl::Text(spoken));
        KeepReturn(field);
        QObject::connect(field, &QLineEdit::returnPressed, this,
                         [this, done] { WindowLooper()->PostMessage(done, this); });
        QObject::connect(field, &QLineEdit::textChanged, this, [this] { ShowHint(); });
        return field;
    };
    fPassword = passwordField("str_password", text::kPassword, kFirstPasswordDone);
    fPassword2 = passwordField("str_password2", kMoreRepeatPassword, kSecondPasswordDone);
    form->addRow(fWithPassword, fPassword);
    form->addRow(QString(), fPassword2);
    fHint = new QLabel;
    KTControl::Name(fHint, "str_hint");
    fHint->setWordWrap(true);
    fHint->setTextFormat(Qt::PlainText);
    form->addRow(QString(), fHint);
    // Its place is kept while it says nothing, so that switching the box does not move the dialog.
    fHint->setMinimumHeight(2 * fHint->fontMetrics().lineSpacing());

    fOnHold = new QCheckBox(KTControl::LabelText(text::kSubmitOnHold));
    KTControl::Name(fOnHold, "chk_submitonhold");
    fOnHold->setChecked(settings.Get<int32_t>("submitonhold", 0) != 0);
    form->addRow(fOnHold);

    PasswordSwitched();
    fTitle->setFocus();
    fTitle->selectAll();
}

KTBackupStartWin::~KTBackupStartWin() {
    delete fError;
}

void KTBackupStartWin::MakeTitleEditable(bool editable) {
    fTitle->setEnabled(editable);
}

bool KTBackupStartWin::IsTitleEditable() const {
    return fTitle->isEnabled();
}

void KTBackupStartWin::MakePasswordEditable(bool editable) {
    fPasswordEditable = editable;
    fWithPassword->setEnabled(editable);
    if (!editable) fWithPassword->setChecked(false);
    PasswordSwitched();
}

void KTBackupStartWin::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kPasswordSwitched:
            PasswordSwitched();
            if (fWithPassword->isChecked()) fPassword->setFocus();
            break;
        case kFirstPasswordDone:
            fPassword2->setFocus();
            break;
        case kSecondPasswordDone:
            CheckPW();
            break;
        case kErrorClosed:
            activateWindow();
            fPassword->setFocus();
            fPassword->selectAll();
            break;
        case kConfirm:
            if (fWithPassword->isChecked() && !CheckPW()) break;
            KTSetWindow::MessageReceived(message);
            break;
        default:
            KTSetWindow::MessageReceived(message);
    }
}

void KTBackupStartWin::Save(BMessage& settings) {
    const int32_t withPassword = fPasswordEditable
                                     ? static_cast<int32_t>(fWithPassword->isChecked())
                                     : settings.Get<int32_t>("passonoff", 0);
    settings.Remove("password");
    settings.Remove("passonoff");
    settings.Add("passonoff", withPassword);
    settings.Add("password", KTControl::ToBytes(fPassword->text()));
    settings.Set("title", KTControl::ToBytes(fTitle->text()));
    settings.Set("submitonhold", static_cast<int32_t>(fOnHold->isChecked()));
    if (fError) fError->close();
}

bool KTBackupStartWin::CheckPW() {
    if (fPassword->text() == fPassword2->text()) return true;
    if (!fError) {
        fError = new KTRequestWindow(KTControl::Text(core::kMorePasswordError),
                                     KTControl::Text(core::text::kPasswordProblem), this,
                                     BMessenger(this), BMessage(kErrorClosed),
                                     {KTControl::Text(core::text::kOk)});
    }
    fError->show();
    fError->raise();
    fError->activateWindow();
    return false;
}

void KTBackupStartWin::PasswordSwitched() {
    const bool on = fWithPassword->isChecked();
    for (QLineEdit* field : {fPassword, fPassword2}) {
        if (!on) field->clearFocus();
        field->setEnabled(on);
    }
    ShowHint();
}

void KTBackupStartWin::ShowHint() {
    QString hint;
    if (!fPasswordEditable) {
        hint = KTControl::Text(core::kMorePasswordOfBase);
    } else if (fWithPassword->isChecked()) {
        const bool none = fPassword->text().isEmpty() && fPassword2->text().isEmpty();
        hint = KTControl::Text(none ? core::kMoreNoPasswordYet : core::kMoreKeepPassword);
    }
    fHint->setText(hint);
}
