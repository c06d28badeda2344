#include "client/catalogue/KTUnlockWindow.h"

#include <QBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr int32_t kNoHint = -1;
constexpr int kWidth = 400;

QString WhichBackup(const BMessage& settings) {
    const QString title = KTControl::Shown(settings.Get("title", std::string()));
    const QString date = KTControl::Shown(settings.Get("date", std::string()));
    const QString shown = title.isEmpty() ? KTControl::Text(core::text::kNoTitle) : title;
    return date.isEmpty() ? shown : shown + ", " + date;
}

}  // namespace

KTUnlockWindow::KTUnlockWindow(const KTToolContext& context, QWidget* parentWindow,
                               const BMessage& settings, uint32_t replyCode, BMessenger target)
    : KTSetWindow(KTControl::Text(core::text::kPassword), parentWindow, settings, replyCode,
                  target),
      fBackup(settings.Get("name", std::string())),
      fInquiry(context.server) {
    const auto label = [](const char* name) {
        auto* made = new QLabel;
        KTControl::Name(made, name);
        made->setTextFormat(Qt::PlainText);
        made->setWordWrap(true);
        made->setMinimumWidth(kWidth);
        return made;
    };
    auto* prompt = label("str_prompt");
    prompt->setText(KTControl::Text(core::kMoreUnlockPrompt).replace("%s", WhichBackup(settings)));
    fPassword = new QLineEdit;
    KTControl::Name(fPassword, "str_password", KTControl::Text(core::text::kPassword));
    fPassword->setEchoMode(QLineEdit::Password);
    connect(fPassword, &QLineEdit::textChanged, this, [this] { ShowState(kNoHint); });
    fHint = label("str_hint");
    fHint->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    fHint->setMinimumHeight(2 * fHint->fontMetrics().lineSpacing());  // its place is kept

    auto* layout = new QVBoxLayout(BkgView());
    layout->addWidget(prompt);
    layout->addWidget(fPassword);
    layout->addWidget(fHint);
    layout->addStretch(1);
    ShowState(kNoHint);
    fPassword->setFocus();
}

void KTUnlockWindow::MessageReceived(BMessage& message) {
    if (message.what == kConfirm)
        Check();
    else
        KTSetWindow::MessageReceived(message);
}

void KTUnlockWindow::Check() {
    if (fInquiry.IsOpen() || fPassword->text().isEmpty()) return;
    BMessage question(core::code::kPassword);
    question.Add("name", fBackup);
    question.Add("pw", KTControl::ToBytes(fPassword->text()));
    fInquiry.Ask(std::move(question), [this](const std::optional<BMessage>& answer) {
        if (answer && answer->Get<int32_t>("result", 0) == 1) {
            BMessage confirmed(kConfirm);
            return KTSetWindow::MessageReceived(confirmed);
        }
        ShowState(answer ? core::text::kPasswordProblem : core::kMoreServerSilent);
        fPassword->setFocus();
        fPassword->selectAll();
    });
    ShowState(core::kMoreCheckingPassword);
}

void KTUnlockWindow::ShowState(int32_t hint) {
    // With its button off the keyboard would be on "Cancel", a Return away from losing it all.
    if (fInquiry.IsOpen()) setFocus();
    fPassword->setEnabled(!fInquiry.IsOpen());
    OkButton()->setEnabled(!fInquiry.IsOpen() && !fPassword->text().isEmpty());
    fHint->setText(hint == kNoHint ? QString() : KTControl::Text(hint));
}

void KTUnlockWindow::closeEvent(QCloseEvent* event) {
    KTSetWindow::closeEvent(event);
    fInquiry.Drop();
    fPassword->clear();
}
