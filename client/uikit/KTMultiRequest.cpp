#include "client/uikit/KTMultiRequest.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

#include "client/uikit/KTControl.h"

KTMultiRequest::KTMultiRequest(const QString& title, QWidget* parentWindow,
                               const BMessage& settings, uint32_t replyCode, BMessenger target)
    : KTSetWindow(title, parentWindow, settings, replyCode, target) {
    fQuestion = new QLabel(BkgView());
    KTControl::Name(fQuestion, "str_question");
    fQuestion->setTextFormat(Qt::PlainText);
    fQuestion->setWordWrap(true);
    fText = new QPlainTextEdit(BkgView());
    KTControl::Name(fText, "tctrl_delete");
    fText->setReadOnly(true);
    fText->setTabChangesFocus(true);
    fText->setLineWrapMode(QPlainTextEdit::NoWrap);
    fQuestion->setBuddy(fText);
    // What it confirms cannot be undone, so Return alone does not do it.
    OkButton()->setDefault(false);
    OkButton()->setAutoDefault(false);
    CancelButton()->setDefault(true);

    auto* layout = new QVBoxLayout(BkgView());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(fQuestion);
    layout->addWidget(fText, 1);
}

void KTMultiRequest::SetQuestion(const QString& question) {
    fQuestion->setText(question);
    fText->setAccessibleName(question);
}

void KTMultiRequest::SetText(const QString& text) {
    fText->setPlainText(text);
}
