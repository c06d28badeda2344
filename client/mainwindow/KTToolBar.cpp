#include "client/mainwindow/KTToolBar.h"

#include <QAction>
#include <QFrame>
#include <QToolButton>

#include "client/app/ClientCodes.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTFlowLayout.h"

namespace {

using namespace client::code;

constexpr int kIconBeside = 20;
constexpr int kIconAlone = 28;

Qt::ToolButtonStyle StyleOf(uint32_t mode) {
    switch (mode) {
        case kToolBarIcons:
            return Qt::ToolButtonIconOnly;
        case kToolBarTexts:
            return Qt::ToolButtonTextOnly;
        case kToolBarAbove:
            return Qt::ToolButtonTextUnderIcon;
        default:
            return Qt::ToolButtonTextBesideIcon;
    }
}

}  // namespace

KTToolBar::KTToolBar(QWidget* parent) : QWidget(parent) {
    setObjectName("toolbar");
    auto* layout = new KTFlowLayout(this);
    layout->setContentsMargins(4, 3, 4, 3);
    layout->setSpacing(2);
    QSizePolicy policy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void KTToolBar::AddButton(QAction* action) {
    auto* button = new QToolButton(this);
    button->setDefaultAction(action);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::TabFocus);
    KTControl::Name(button, qPrintable("btn_" + action->objectName()), action->iconText());
    layout()->addWidget(button);
}

void KTToolBar::AddGap() {
    auto* gap = new QFrame(this);
    gap->setFixedWidth(10);
    layout()->addWidget(gap);
}

void KTToolBar::SetMode(uint32_t mode) {
    const Qt::ToolButtonStyle style = StyleOf(mode);
    const int extent = style == Qt::ToolButtonTextBesideIcon ? kIconBeside : kIconAlone;
    for (auto* button : findChildren<QToolButton*>()) {
        button->setToolButtonStyle(style);
        button->setIconSize({extent, extent});
    }
    setVisible(mode != kToolBarNone);
    updateGeometry();
}

bool KTToolBar::IsMode(uint32_t code) {
    return code == kToolBarNone || code == kToolBarIcons || code == kToolBarTexts ||
           code == kToolBarBeside || code == kToolBarAbove;
}
