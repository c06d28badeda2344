#include "client/uikit/KTFlowLayout.h"

#include <QStyle>
#include <QWidget>
#include <algorithm>

KTFlowLayout::KTFlowLayout(QWidget* parent, int beside, int below)
    : QLayout(parent), fBelow(below) {
    setSpacing(beside);
}

KTFlowLayout::~KTFlowLayout() = default;

void KTFlowLayout::addItem(QLayoutItem* item) {
    fItems.emplace_back(item);
}

QLayoutItem* KTFlowLayout::itemAt(int index) const {
    return index >= 0 && index < count() ? fItems[static_cast<size_t>(index)].get() : nullptr;
}

QLayoutItem* KTFlowLayout::takeAt(int index) {
    if (index < 0 || index >= count()) return nullptr;
    QLayoutItem* item = fItems[static_cast<size_t>(index)].release();
    fItems.erase(fItems.begin() + index);
    return item;
}

int KTFlowLayout::heightForWidth(int width) const {
    return Arrange(QRect(0, 0, width, 0), false);
}

QSize KTFlowLayout::sizeHint() const {
    int width = 0, height = 0;
    for (const auto& item : fItems) {
        width += item->sizeHint().width() + (width > 0 ? spacing() : 0);
        height = std::max(height, item->sizeHint().height());
    }
    const QMargins margins = contentsMargins();
    return {width + margins.left() + margins.right(), height + margins.top() + margins.bottom()};
}

QSize KTFlowLayout::minimumSize() const {
    QSize size;
    for (const auto& item : fItems)
        size = size.expandedTo(item->minimumSize());
    const QMargins margins = contentsMargins();
    return {size.width() + margins.left() + margins.right(),
            size.height() + margins.top() + margins.bottom()};
}

void KTFlowLayout::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    Arrange(rect, true);
}

int KTFlowLayout::Arrange(const QRect& rect, bool move) const {
    const QRect room = rect.marginsRemoved(contentsMargins());
    const auto direction = parentWidget() ? parentWidget()->layoutDirection() : Qt::LeftToRight;
    int x = room.left(), y = room.top(), rowHeight = 0;
    for (const auto& item : fItems) {
        QSize size = item->sizeHint();
        if (size.width() > room.width() && item->hasHeightForWidth())
            size = {room.width(), item->heightForWidth(room.width())};
        if (x > room.left() && x + size.width() > room.left() + room.width()) {
            x = room.left();
            y += rowHeight + fBelow;
            rowHeight = 0;
        }
        if (move) item->setGeometry(QStyle::visualRect(direction, room, QRect(QPoint(x, y), size)));
        x += size.width() + spacing();
        rowHeight = std::max(rowHeight, size.height());
    }
    const QMargins margins = contentsMargins();
    return y + rowHeight - rect.top() + margins.bottom();
}
