// KTMultiRequest: a settings dialog that shows a question ("str_question") over a scrolling block
// of text
// ("tctrl_delete"): confirming a list of items.
#pragma once

#include "client/uikit/KTSetWindow.h"

class QLabel;
class QPlainTextEdit;

class KTMultiRequest : public KTSetWindow {
    Q_OBJECT
public:
    KTMultiRequest(const QString& title, QWidget* parentWindow, const BMessage& settings,
                   uint32_t replyCode, BMessenger target);
    void SetQuestion(const QString& question);
    void SetText(const QString& text);

private:
    QLabel* fQuestion;
    QPlainTextEdit* fText;
};
