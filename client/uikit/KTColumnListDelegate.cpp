#include "client/uikit/KTColumnListDelegate.h"

#include <QLineEdit>
#include <QPainter>

#include "client/uikit/KTColumnListView.h"

namespace {

// For a row that stands out in a colour of its own: the picture on the ground of the list, on which
// every icon can be seen.
QIcon OnGround(const QIcon& icon, const QStyleOptionViewItem& option, qreal ratio) {
    QPixmap picture(option.decorationSize * ratio);
    picture.setDevicePixelRatio(ratio);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(option.palette.base());
    const QRect all(QPoint(), option.decorationSize);
    painter.drawRoundedRect(all, 3, 3);
    icon.paint(&painter, all.adjusted(1, 1, -1, -1));
    painter.end();
    QIcon made(picture);
    made.addPixmap(picture, QIcon::Selected);  // the style would tint it
    return made;
}

}  // namespace

KTColumnListDelegate::KTColumnListDelegate(KTColumnListView* view)
    : QStyledItemDelegate(view), fView(view) {}

QSize KTColumnListDelegate::sizeHint(const QStyleOptionViewItem& option,
                                     const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(fHeight);
    return size;
}

void KTColumnListDelegate::initStyleOption(QStyleOptionViewItem* option,
                                           const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    // Every cell of a marked row says so to a screen reader, but one box is drawn.
    if (!fView->IsOutline() || index.column() != fView->NameColumn())
        option->features &= ~QStyleOptionViewItem::HasCheckIndicator;
    if ((option->state & QStyle::State_Selected) && !option->icon.isNull())
        option->icon = OnGround(option->icon, *option, fView->devicePixelRatioF());
    option->textElideMode =
        index.column() == fView->NameColumn() ? Qt::ElideMiddle : Qt::ElideRight;
}

QWidget* KTColumnListDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&,
                                            const QModelIndex& index) const {
    auto* field = new QLineEdit(parent);
    field->setObjectName("str_cell");
    field->setFrame(false);
    field->setAccessibleName(fView->ColumnAt(index.column()).label);
    if (fView->ColumnAt(index.column()).typingHidden) {
        field->setEchoMode(QLineEdit::Password);
        field->setInputMethodHints(Qt::ImhHiddenText | Qt::ImhNoPredictiveText |
                                   Qt::ImhNoAutoUppercase | Qt::ImhSensitiveData);
    }
    return field;
}

void KTColumnListDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    auto* field = static_cast<QLineEdit*>(editor);
    if (field->isModified()) return;  // the row changed below somebody who is typing
    field->setText(index.data(Qt::EditRole).toString());
    field->selectAll();
}

void KTColumnListDelegate::setModelData(QWidget* editor, QAbstractItemModel* model,
                                        const QModelIndex& index) const {
    const auto* field = static_cast<QLineEdit*>(editor);
    // An editor of hidden typing opens empty; left untouched it changes nothing.
    if (fView->ColumnAt(index.column()).typingHidden && !field->isModified()) return;
    model->setData(index, field->text(), Qt::EditRole);
}
