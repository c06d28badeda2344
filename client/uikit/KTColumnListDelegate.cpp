#include "client/uikit/KTColumnListDelegate.h"

#include <QLineEdit>

#include "client/uikit/KTColumnListView.h"

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
