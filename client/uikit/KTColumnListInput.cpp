// How a KTColumnListView answers to mouse and keyboard.
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QStyleHints>

#include "client/uikit/KTColumnListView.h"

// --- mouse --------------------------------------------------------------------------------------

bool KTColumnListView::IsOnExpander(KTRow row, const QPoint& point) const {
    if (!fOutline || !fRows->IsSuperItem(row)) return false;
    const QRect cell = visualRect(IndexOf(row, fNameColumn));
    const int section = header()->sectionViewportPosition(fNameColumn);
    if (isRightToLeft()) {
        const int start = cell.right() + 1;
        return point.x() >= start && point.x() < start + indentation() &&
               point.x() < section + columnWidth(fNameColumn);
    }
    return point.x() < cell.left() && point.x() >= cell.left() - indentation() &&
           point.x() >= section;
}

void KTColumnListView::Press(KTRow row, const QPoint& point, Qt::KeyboardModifiers modifiers) {
    if (IsOnExpander(row, point)) {
        if (fRows->IsExpanded(row))
            Collapse(row);
        else
            Expand(row);
        return;
    }
    const int column = std::max(header()->logicalIndexAt(point.x()), 0);
    if (!(modifiers & (Qt::ShiftModifier | Qt::ControlModifier)) && EditCell(row, column)) return;

    if (fType == ListType::Single) {
        Select(row);
    } else {
        SetCurrentRow(row);
        if ((modifiers & Qt::ShiftModifier) && fRows->Has(fAnchor))
            MarkRange(fAnchor, row);
        else
            Toggle(row);
    }
}

void KTColumnListView::mousePressEvent(QMouseEvent* event) {
    const QPoint point = event->position().toPoint();
    const KTRow row = RowAt(point);
    event->accept();
    if (row == kNoRow) return;
    if (event->button() == Qt::RightButton) {
        // The menu is about this row.
        if (fType == ListType::Single) return Select(row);
        SetCurrentRow(row);
        if (!fOutline && !fRows->HasMarks()) Toggle(row);
        return;
    }
    if (event->button() != Qt::LeftButton) return;
    viewport()->setUpdatesEnabled(false);
    Press(row, point, event->modifiers());
    viewport()->setUpdatesEnabled(true);
}

void KTColumnListView::mouseDoubleClickEvent(QMouseEvent* event) {
    const KTRow row = RowAt(event->position().toPoint());
    if (row == kNoRow || event->button() != Qt::LeftButton ||
        IsOnExpander(row, event->position().toPoint()))
        return mousePressEvent(event);
    event->accept();
    if (state() == EditingState) return;  // the first press was for it
    // A mark that the first press set is taken back.
    if (fType == ListType::Multiple) Toggle(row);
    Invoke(row);
}

void KTColumnListView::mouseMoveEvent(QMouseEvent* event) {
    // With a button held Qt would begin a selection or a drag of its own.
    if (event->buttons() == Qt::NoButton) QTreeView::mouseMoveEvent(event);
}

void KTColumnListView::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
}

void KTColumnListView::contextMenuEvent(QContextMenuEvent* event) {
    if (!fMenu) return event->ignore();
    QPoint at = event->globalPos();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        if (CurrentRow() != kNoRow) ScrollTo(CurrentRow());
        at = viewport()->mapToGlobal(visualRect(IndexOf(CurrentRow(), fNameColumn)).center());
    }
    fMenu->popup(at);
    event->accept();
}

// --- keyboard -----------------------------------------------------------------------------------

bool KTColumnListView::HierarchyKey(KTRow row, int key) {
    if (isRightToLeft() && (key == Qt::Key_Left || key == Qt::Key_Right))
        key = key == Qt::Key_Left ? Qt::Key_Right : Qt::Key_Left;
    const bool super = fRows->IsSuperItem(row);
    switch (key) {
        case Qt::Key_Asterisk:
            ExpandKnown(row);
            return true;
        case Qt::Key_Plus:
            if (super) Expand(row);
            return true;
        case Qt::Key_Minus:
            if (super) Collapse(row);
            return true;
        case Qt::Key_Right:
            if (super && !fRows->IsExpanded(row)) {
                Expand(row);
                return true;
            }
            if (fRows->ChildCount(row) == 0) return false;  // scrolls
            SetCurrentRow(fRows->ChildAt(row, 0));
            return true;
        case Qt::Key_Left:
            if (super && fRows->IsExpanded(row)) {
                Collapse(row);
                return true;
            }
            if (fRows->Superitem(row) == kNoRow) return false;
            SetCurrentRow(fRows->Superitem(row));
            return true;
        default:
            return false;
    }
}

void KTColumnListView::keyPressEvent(QKeyEvent* event) {
    // The Return that ends editing comes by here, too.
    if (state() == EditingState) return event->accept();
    const KTRow row = CurrentRow();
    const int key = event->key();
    const bool plain = !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier));
    if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
        return;
    }
    if (row != kNoRow && plain) {
        if (fOutline && HierarchyKey(row, key)) return;
        if (key == Qt::Key_Space) {
            if (fType == ListType::Single)
                Select(row);
            else if ((event->modifiers() & Qt::ShiftModifier) && fRows->Has(fAnchor))
                MarkRange(fAnchor, row);
            else
                Toggle(row);
            return;
        }
        if (key == Qt::Key_F2) {
            for (int column = 0; column < CountColumns(); ++column)
                if (EditCell(row, column)) return;
        }
    }
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        // Without a use here it is the default button's.
        if (fInvocationMessage.what == 0 || row == kNoRow) return event->ignore();
        return Invoke(row);
    }
    if (key == Qt::Key_Escape) return event->ignore();

    QTreeView::keyPressEvent(event);
    if (fType != ListType::Multiple || CurrentRow() == row || CurrentRow() == kNoRow) return;
    if ((event->modifiers() & Qt::ShiftModifier) && plain && event->text().isEmpty()) {
        MarkRange(fRows->Has(fAnchor) ? fAnchor : row, CurrentRow());
    } else {
        fAnchor = CurrentRow();
        fAnchorMarks = true;
    }
}

void KTColumnListView::keyboardSearch(const QString& search) {
    // Looks at the shown rows only, from the current one on, once round.
    if (fRows->Count() == 0 || search.isEmpty()) return;
    const bool going = fTypedAt.isValid() &&
                       !fTypedAt.hasExpired(QGuiApplication::styleHints()->keyboardInputInterval());
    fTypedAt.start();
    // The same letter again means the next one that starts with it.
    const bool repeated = going && fTyped == search;
    if (!repeated) fTyped = going ? fTyped + search : search;

    const KTRow first = fRows->First();
    const KTRow current = CurrentRow() == kNoRow ? first : CurrentRow();
    const bool here = fTyped.size() > 1;
    KTRow row = here ? current : NextShown(current);
    if (CurrentRow() == kNoRow) row = first;
    const auto initial = fTyped.at(0).toLower().unicode();
    for (int round = 0; round < 2;) {
        if (row == kNoRow) {
            ++round;
            row = first;
            continue;
        }
        // Most rows are told apart by their first byte, without making a text of them.
        const std::string_view bytes = fRows->TextAt(row, fNameColumn);
        const auto byte = bytes.empty() ? 0U : static_cast<uint8_t>(bytes[0]);
        const bool possible = byte >= 0x80 || initial >= 0x80 ||
                              (byte < 0x80 && std::tolower(static_cast<int>(byte)) == initial);
        if (possible && CellText(row, fNameColumn).startsWith(fTyped, Qt::CaseInsensitive)) {
            if (fType == ListType::Single)
                Select(row);
            else
                SetCurrentRow(row);
            ScrollTo(row);
            return;
        }
        if (round == 1 && row == current) return;
        row = NextShown(row);
    }
}
