#include "client/uikit/KTRequestWindow.h"

#include <QBoxLayout>
#include <QCloseEvent>
#include <QLabel>
#include <QPushButton>
#include <QStyle>

#include "client/uikit/KTControl.h"
#include "client/uikit/KTGeometry.h"
#include "client/uikit/KTWindowLooper.h"

namespace {

constexpr uint32_t kButtonCodes[] = {"btn0"_code, "btn1"_code, "btn2"_code};
constexpr int kMostButtons = 3;
constexpr int kTextWidth = 420;

}  // namespace

KTRequestWindow::KTRequestWindow(const QString& title, const QString& text, QWidget* parentWindow,
                                 BMessenger target, const BMessage& reply,
                                 const QStringList& buttons)
    : QDialog(parentWindow ? parentWindow->window() : nullptr), fReply(reply), fTarget(target) {
    WindowLooper()->AddHandler(this);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(title);

    auto* icon = new QLabel(this);
    const int extent = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
    icon->setPixmap(
        style()->standardIcon(QStyle::SP_MessageBoxQuestion, nullptr, this).pixmap(extent, extent));
    auto* label = new QLabel(this);
    KTControl::Name(label, "str_text");
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    label->setWordWrap(true);
    label->setMinimumWidth(kTextWidth);
    auto* question = new QHBoxLayout;
    question->addWidget(icon, 0, Qt::AlignTop);
    question->addWidget(label, 1);

    auto* row = new QHBoxLayout;
    row->addStretch(1);
    QPushButton* last = nullptr;
    for (int i = 0; i < buttons.size() && i < kMostButtons; ++i) {
        if (buttons[i].isEmpty()) continue;
        last = new QPushButton(QString(buttons[i]).replace('&', "&&"), this);
        KTControl::Name(last, qPrintable(QString("btn%1").arg(i)));
        KTControl::Bind(last, BMessage(kButtonCodes[i]), this);
        row->addWidget(last);
    }
    if (last) {
        last->setDefault(true);
        last->setFocus();
    }

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(question, 1);
    layout->addLayout(row);
}

void KTRequestWindow::MessageReceived(BMessage& message) {
    for (int32_t i = 0; i < kMostButtons; ++i) {
        if (message.what != kButtonCodes[i]) continue;
        fWhich = i;
        close();
        return;
    }
    if (message.what == B_QUIT_REQUESTED)
        close();
    else
        BHandler::MessageReceived(message);
}

void KTRequestWindow::showEvent(QShowEvent* event) {
    if (!std::exchange(fPlaced, true)) {
        adjustSize();
        KTGeometry::PlaceOver(this, parentWidget());
    }
    QDialog::showEvent(event);
}

void KTRequestWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    if (std::exchange(fAnswered, true)) return;
    fReply.Set("which", fWhich);
    fTarget.SendMessage(fReply);
}

void KTRequestWindow::reject() {
    close();
}
