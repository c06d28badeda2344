#include "client/mainwindow/KTToolBar.h"

#include <QAction>
#include <QToolButton>

#include "client/app/ClientCodes.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTFlowLayout.h"

namespace {

using namespace client::code;

constexpr int kIconBeside = 20;
constexpr int kIconAlone = 28;
constexpr int kBetween = 2;
constexpr int kBetweenGroups = 12;

// Qt leaves room for two blanks behind a text that stands beside its icon, which look lopsided
// under a mark.
class Button : public QToolButton {
public:
    using QToolButton::QToolButton;
    QSize sizeHint() const override {
        QSize size = QToolButton::sizeHint();
        if (toolButtonStyle() == Qt::ToolButtonTextBesideIcon)
            size.rwidth() -= fontMetrics().horizontalAdvance(u' ') * 2;
        return size;
    }
    QSize minimumSizeHint() const override { return sizeHint(); }
};

void FollowWidth(QWidget* widget) {
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    widget->setSizePolicy(policy);
}

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
    (new KTFlowLayout(this, kBetweenGroups, kBetween))->setContentsMargins(4, 3, 4, 3);
    FollowWidth(this);
    BeginGroup();
}

void KTToolBar::BeginGroup() {
    fGroup = new QWidget(this);
    (new KTFlowLayout(fGroup, kBetween, kBetween))->setContentsMargins(0, 0, 0, 0);
    FollowWidth(fGroup);
    layout()->addWidget(fGroup);
}

void KTToolBar::AddButton(QAction* action) {
    auto* button = new Button(fGroup);
    button->setDefaultAction(action);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::TabFocus);
    KTControl::Name(button, qPrintable("btn_" + action->objectName()), action->iconText());
    fGroup->layout()->addWidget(button);
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
