#include "client/uikit/KTColumnListModel.h"

#include <QIcon>

#include "client/uikit/KTColumnListView.h"
#include "client/uikit/KTControl.h"

KTColumnListModel::KTColumnListModel(KTColumnListView* view)
    : QAbstractItemModel(view), fView(view), fRows(view->Rows()) {
    fRows.SetListener(this);
}

KTColumnListModel::~KTColumnListModel() {
    fRows.SetListener(nullptr);
}

QModelIndex KTColumnListModel::IndexOf(KTRow row, int column) const {
    return row == kNoRow ? QModelIndex()
                         : createIndex(fRows.IndexInParent(row), column, quintptr{row});
}

void KTColumnListModel::TellRow(KTRow row) {
    const QModelIndex first = IndexOf(row, 0);
    emit dataChanged(first, first.siblingAtColumn(fView->CountColumns() - 1));
}

void KTColumnListModel::TellEverything() {
    const int count = fRows.ChildCount(kNoRow);
    if (count == 0) return;
    emit dataChanged(index(0, 0), index(count - 1, fView->CountColumns() - 1));
}

// --- structure ----------------------------------------------------------------------------------

QModelIndex KTColumnListModel::index(int row, int column, const QModelIndex& parent) const {
    if (column < 0 || column >= fView->CountColumns() || parent.column() > 0) return {};
    const KTRow child = fRows.ChildAt(RowOf(parent), row);
    return child == kNoRow ? QModelIndex() : createIndex(row, column, quintptr{child});
}

QModelIndex KTColumnListModel::parent(const QModelIndex& child) const {
    return child.isValid() ? IndexOf(fRows.Superitem(RowOf(child)), 0) : QModelIndex();
}

int KTColumnListModel::rowCount(const QModelIndex& parent) const {
    return parent.column() > 0 ? 0 : fRows.ChildCount(RowOf(parent));
}

int KTColumnListModel::columnCount(const QModelIndex&) const {
    return fView->CountColumns();
}

bool KTColumnListModel::hasChildren(const QModelIndex& parent) const {
    if (!parent.isValid()) return fRows.ChildCount(kNoRow) > 0;
    return parent.column() == 0 && fRows.IsSuperItem(RowOf(parent));
}

Qt::ItemFlags KTColumnListModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return {};
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (!fRows.IsSuperItem(RowOf(index))) flags |= Qt::ItemNeverHasChildren;
    if (fView->Type() == KTColumnListView::ListType::Multiple) flags |= Qt::ItemIsUserCheckable;
    if (fView->ColumnAt(index.column()).editable) flags |= Qt::ItemIsEditable;
    return flags;
}

// --- cells --------------------------------------------------------------------------------------

QVariant KTColumnListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const KTRow row = RowOf(index);
    const KTColumn& column = fView->ColumnAt(index.column());
    switch (role) {
        case Qt::DisplayRole:
            if (column.kind == KTColumnKind::Icon) return {};
            // As many dots for every text: its length is nobody's business.
            if (column.typingHidden)
                return fRows.TextAt(row, index.column()).empty() ? QString()
                                                                 : QString(8, QChar(0x2022));
            return fView->CellText(row, index.column());
        case Qt::EditRole:
            // What was typed unseen is not handed out again, to an editor or to anybody else.
            if (column.kind != KTColumnKind::Text || column.typingHidden) return {};
            return KTControl::Shown(fRows.TextAt(row, index.column()));
        case Qt::DecorationRole:
            if (column.kind == KTColumnKind::Icon) return fView->CellIcon(row);
            return {};
        case Qt::ForegroundRole: {
            const QColor color = fView->CellColor(fRows.Color(row));
            if (!color.isValid()) return {};
            return KTColumnListView::Readable(color, fView->palette().color(QPalette::Base));
        }
        case Qt::TextAlignmentRole:
            return QVariant::fromValue(
                Qt::AlignVCenter |
                (column.kind == KTColumnKind::Number ? Qt::AlignRight : Qt::AlignLeft));
        case Qt::CheckStateRole:
            if (fView->Type() != KTColumnListView::ListType::Multiple) return {};
            switch (fView->CellMark(row)) {
                case KTRowStore::Mark::None:
                    return Qt::Unchecked;
                case KTRowStore::Mark::Part:
                    return Qt::PartiallyChecked;
                case KTRowStore::Mark::Whole:
                    return Qt::Checked;
            }
            return {};
        case Qt::ToolTipRole:
            return fView->RowToolTip(row);
        case Qt::AccessibleTextRole:
            if (index.column() == fView->NameColumn()) return fView->SpokenRow(row);
            return {};
        default:
            return {};
    }
}

QVariant KTColumnListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 || section >= fView->CountColumns()) return {};
    const KTColumn& column = fView->ColumnAt(section);
    if (role == Qt::DisplayRole) return column.label;
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(
            Qt::AlignVCenter |
            (column.kind == KTColumnKind::Number ? Qt::AlignRight : Qt::AlignLeft));
    return {};
}

bool KTColumnListModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid()) return false;
    const KTRow row = RowOf(index);
    if (role == Qt::CheckStateRole && fView->Type() == KTColumnListView::ListType::Multiple) {
        if (value.toInt() == Qt::Unchecked)
            fView->MultiDeselect(row);
        else
            fView->MultiSelect(row);
        return true;
    }
    if (role != Qt::EditRole || !fView->ColumnAt(index.column()).editable) return false;
    const QString text = value.toString();
    // Enough for an editor that was opened and left: an escaped name must not come back as its
    // text.
    if (!fView->ColumnAt(index.column()).typingHidden &&
        text == data(index, Qt::EditRole).toString())
        return true;
    fView->RenameColumnData(row, index.column(), text);
    return true;
}

// --- what the store tells -----------------------------------------------------------------------

void KTColumnListModel::AboutToInsert(KTRow parent, int32_t first, int32_t count) {
    beginInsertRows(IndexOf(parent, 0), first, first + count - 1);
}

void KTColumnListModel::Inserted() {
    endInsertRows();
}

void KTColumnListModel::AboutToRemove(KTRow parent, int32_t first, int32_t count) {
    fView->SetRemoving(true);
    beginRemoveRows(IndexOf(parent, 0), first, first + count - 1);
}

void KTColumnListModel::Removed() {
    endRemoveRows();
    fView->SetRemoving(false);
    fView->NoteChange(kNoRow, false);  // marks may have gone with them
}

void KTColumnListModel::AboutToMove(KTRow row, KTRow newParent) {
    const int at = fRows.IndexInParent(row);
    beginMoveRows(IndexOf(fRows.Superitem(row), 0), at, at, IndexOf(newParent, 0),
                  fRows.ChildCount(newParent));
}

void KTColumnListModel::Moved() {
    endMoveRows();
}

void KTColumnListModel::AboutToReset() {
    beginResetModel();
}

void KTColumnListModel::Reset() {
    endResetModel();
    fView->NoteChange(kNoRow, false);
}

void KTColumnListModel::Changed(KTRow row, bool subtree) {
    fView->NoteChange(row, subtree);
}
