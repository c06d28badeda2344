#include "client/uikit/KTSetWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QPushButton>
#include <algorithm>

#include "client/uikit/KTControl.h"
#include "client/uikit/KTGeometry.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr char kWindowPosition[] = "winpos";

// The focus comes to what the dialog is about before its buttons, which are made first, and starts
// there: on a button it would start with the desktop's leftmost one, and Return would press that.
void OrderFocus(QDialog* dialog, const QWidget* content, QWidget* ok, QWidget* cancel) {
    QList<QWidget*> inside;
    for (QWidget* next = dialog->nextInFocusChain(); next != dialog;
         next = next->nextInFocusChain()) {
        if (content->isAncestorOf(next) && (next->focusPolicy() & Qt::TabFocus)) inside << next;
    }
    if (!inside.isEmpty()) QWidget::setTabOrder(inside.back(), ok);
    QWidget::setTabOrder(ok, cancel);
    if (dialog->focusWidget()) return;
    const auto first = std::ranges::find_if(inside, [dialog](const QWidget* widget) {
        return widget->isEnabled() && widget->isVisibleTo(dialog);
    });
    (first == inside.end() ? ok : *first)->setFocus(Qt::TabFocusReason);
}

}  // namespace

KTSetWindow::KTSetWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                         uint32_t replyCode, BMessenger target)
    : QDialog(parentWindow ? parentWindow->window() : nullptr),
      fParentWindow(parentWindow ? parentWindow->window() : nullptr),
      fSettings(settings),
      fReplyCode(replyCode),
      fTarget(target) {
    WindowLooper()->AddHandler(this);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(title);

    fBkgView = new QWidget(this);
    fBkgView->setObjectName("bkg_view");
    auto* buttons = new QDialogButtonBox(this);
    fOk = buttons->addButton(KTControl::LabelText(core::text::kOk), QDialogButtonBox::AcceptRole);
    fCancel =
        buttons->addButton(KTControl::LabelText(core::text::kCancel), QDialogButtonBox::RejectRole);
    fOk->setDefault(true);
    KTControl::Name(fOk, "btn_ok");
    KTControl::Name(fCancel, "btn_cancel");
    KTControl::Bind(fOk, BMessage(kConfirm), this);
    KTControl::Bind(fCancel, BMessage(B_QUIT_REQUESTED), this);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(fBkgView, 1);
    layout->addWidget(buttons);
}

KTSetWindow::~KTSetWindow() = default;

void KTSetWindow::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kConfirm:
            fSettings.Set(kWindowPosition, KTGeometry::RelativeTo(this, fParentWindow));
            fResult = true;
            close();
            break;
        case B_QUIT_REQUESTED:
            close();
            break;
        default:
            BHandler::MessageReceived(message);
    }
}

void KTSetWindow::KeepReturn(QWidget* field) {
    field->installEventFilter(this);
}

void KTSetWindow::showEvent(QShowEvent* event) {
    if (!std::exchange(fPlaced, true)) {
        const auto offset = fSettings.Find<BRect>(kWindowPosition);
        if (!fUsualSize.isValid())
            adjustSize();
        else
            resize(offset ? KTGeometry::FromRect(*offset).size() : fUsualSize);
        if (offset)
            KTGeometry::PlaceRelativeTo(this, fParentWindow, *offset);
        else
            KTGeometry::PlaceOver(this, fParentWindow);
        OrderFocus(this, fBkgView, fOk, fCancel);
    }
    QDialog::showEvent(event);
}

QCheckBox* KTSetWindow::AddFlag(QBoxLayout* layout, const char* name, const char* key,
                                int32_t label, bool checked, uint32_t code) {
    auto* box = new QCheckBox(KTControl::LabelText(label));
    KTControl::Name(box, name);
    box->setChecked(checked);
    if (code != 0) KTControl::Bind(box, BMessage(code), this);
    layout->addWidget(box);
    fFlags.emplace_back(key, box);
    return box;
}

void KTSetWindow::SaveFlags(BMessage& settings) const {
    for (const auto& [key, box] : fFlags)
        settings.Set(key, static_cast<int32_t>(box->isChecked()));
}

void KTSetWindow::closeEvent(QCloseEvent* event) {
    event->accept();
    if (std::exchange(fAnswered, true)) return;
    Save(fSettings);
    if (!fParentWindow) return;
    BMessage answer(fReplyCode);
    answer.Add("result", fResult);
    answer.Add("settings", fSettings);
    fTarget.SendMessage(std::move(answer));
}

void KTSetWindow::reject() {
    close();
}

bool KTSetWindow::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::KeyPress) return QDialog::eventFilter(object, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key != Qt::Key_Return && key != Qt::Key_Enter) return QDialog::eventFilter(object, event);
    // The field finishes its edit as ever, but the dialog must not hear of the key.
    if (auto* line = qobject_cast<QLineEdit*>(object); line && line->hasAcceptableInput()) {
        emit line->returnPressed();
        emit line->editingFinished();
    }
    return true;
}
