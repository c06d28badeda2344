// KTColumnListView: the list of every tool: columns with labels, rows in a hierarchy, marks. Rows
// live in a KTRowStore; this is a thin model over it and a QTreeView with uniform row heights. Main
// thread.
//
// In a multiple-selection list the marks are the selection: a click or Space toggles, through
// MultiSelect/MultiDeselect, which views override to record what was done. Outlines draw marks as
// boxes (whole, part, none), flat lists as the row's highlight; Shift takes a range. The keyboard's
// current row is something else. In a single-selection list the marked row is the current one.
//
// Keys: arrows, Home, End and pages move; Right, Left, + and - expand and collapse; * expands what
// is known below a row; letters look for a row; Space marks; Return invokes; F2 edits.
#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QTreeView>
#include <functional>
#include <memory>
#include <vector>

#include "client/uikit/KTRowStore.h"
#include "kit/app/BHandler.h"
#include "kit/message/BMessage.h"

class KTColumnListDelegate;
class KTColumnListModel;
class QMenu;

struct KTColumn {
    KTColumn(QString label, float width, float minWidth, KTColumnKind kind = KTColumnKind::Text);
    QString label;
    float width, minWidth;  // minimum raised to 4, width raised to the minimum
    KTColumnKind kind;
    uint32_t flags = 0;
    bool shown = true;
    bool editable = false;
    bool typingHidden = false;  // what is typed is not shown
};

class KTColumnListView : public QTreeView, public BHandler {
    Q_OBJECT
public:
    enum class ListType { Single, Multiple };
    KTColumnListView(const char* name, ListType type, std::vector<KTColumn> columns,
                     QWidget* parent);
    ~KTColumnListView() override;

    KTRowStore& Rows() { return *fRows; }
    const KTRowStore& Rows() const { return *fRows; }
    const KTColumn& ColumnAt(int column) const { return fColumns[static_cast<size_t>(column)]; }
    int CountColumns() const { return static_cast<int>(fColumns.size()); }
    ListType Type() const { return fType; }

    // Rows have expanders, and marks are boxes. Off at first.
    void SetOutline(bool outline);
    bool IsOutline() const { return fOutline; }
    // The first text column: it has the expander, the box, and what typed letters look for.
    int NameColumn() const { return fNameColumn; }

    QModelIndex IndexOf(KTRow row, int column = 0) const;  // invalid for kNoRow
    KTRow RowOf(const QModelIndex& index) const;
    KTRow RowAt(const QPoint& point) const;  // in the viewport; kNoRow below the last

    // --- marking; overridden by views that record -----------------------------------------------
    virtual void MultiSelect(KTRow row);
    virtual void MultiDeselect(KTRow row);
    virtual void MultiSelectAll(bool select);  // every top-level row
    KTRow CurrentSelection() const;            // single selection: the marked row, else kNoRow
    void Select(KTRow row);                    // single selection; kNoRow: none
    KTRow CurrentRow() const;                  // where the keyboard is
    void SetCurrentRow(KTRow row);

    // --- hierarchy ------------------------------------------------------------------------------
    // However a row is expanded, by mouse, key, screen reader or code, it comes through here. Views
    // that fetch children override them.
    virtual void Expand(KTRow row);
    virtual void Collapse(KTRow row);
    void ScrollTo(KTRow row);

    // --- columns --------------------------------------------------------------------------------
    // The user has dragged a border; called once, at the end of the drag.
    virtual void ColumnWidthChanged(int column, float width) { (void)column, (void)width; }
    void SetColumnWidth(int column, float width);
    void SetItemHeight(int height);  // at least; a larger font makes higher rows

    // --- cells ----------------------------------------------------------------------------------
    // Texts are made when painted. The defaults: text as it is, numbers in digits, times as ctime
    // gives them ("-" for 0). `column` of kind Icon: the icon of the row.
    virtual QString CellText(KTRow row, int column) const;
    virtual QIcon CellIcon(KTRow row) const;
    virtual QColor CellColor(uint8_t colorIndex) const;  // invalid: the normal one
    virtual KTRowStore::Mark CellMark(KTRow row) const { return Rows().MarkOf(row); }
    // What a screen reader says for the row besides its cells.
    virtual QString SpokenRow(KTRow row) const;
    // What the pointer shows when it rests on the row.
    virtual QString RowToolTip(KTRow row) const {
        (void)row;
        return {};
    }
    // Shown in the middle while there are no rows.
    void SetEmptyText(const QString& text);
    // The colour, made lighter or darker as far as it is needed to be read on the background.
    static QColor Readable(QColor color, const QColor& background);

    // --- editing in place -----------------------------------------------------------------------
    // Asked before an editor opens; the cell's column must be editable.
    virtual bool TestRenameColumnData(KTRow row, int column) {
        (void)row, (void)column;
        return true;
    }
    // The user finished editing: posts 'clrn' with "item" (int64 row), "column", "text" to the
    // invocation target and stores the text. Overridden by views that do otherwise.
    virtual void RenameColumnData(KTRow row, int column, const QString& text);
    // Opens the editor of a cell, as a press on it does.
    bool EditCell(KTRow row, int column);

    // --- messages -------------------------------------------------------------------------------
    void SetPopUpMenu(QMenu* menu);  // owned by the caller; secondary click and menu key
    // Posted when the marks or the single selection changed by the user's hand or by code,
    // coalesced.
    void SetSelectionMessage(const BMessage& message, const BHandler* target);
    // A double click or Return on a row: with "item" (int64).
    void SetInvocationMessage(const BMessage& message, const BHandler* target);

    void keyboardSearch(const QString& search) override;
    void selectAll() override;

protected:
    // Posts the 'clrn' of a finished edit; `message` may hold more to say.
    void TellRename(KTRow row, int column, const QString& text,
                    BMessage message = BMessage("clrn"_code));

    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                 const QModelIndex& index) const override;
    void selectionChanged(const QItemSelection& selected, const QItemSelection& gone) override;

private:
    friend class KTColumnListModel;
    void SetRemoving(bool removing);
    void NoteChange(KTRow row, bool subtree);
    void TellChanges();
    void SectionResized(int column, int width);
    bool IsOnExpander(KTRow row, const QPoint& point) const;
    void Press(KTRow row, const QPoint& point, Qt::KeyboardModifiers modifiers);
    void Toggle(KTRow row);
    void MarkRange(KTRow from, KTRow to);
    void Invoke(KTRow row);
    void ExpandKnown(KTRow row);
    bool HierarchyKey(KTRow row, int key);
    KTRow NextShown(KTRow row) const;
    void ApplyItemHeight();

    ListType fType;
    std::vector<KTColumn> fColumns;
    int fNameColumn = 0;
    bool fOutline = false;
    std::unique_ptr<KTRowStore> fRows;
    KTColumnListModel* fModel;
    KTColumnListDelegate* fDelegate;
    int fItemHeight = 16;
    QString fEmptyText;

    KTRow fSelected = kNoRow;  // single selection
    bool fRemoving = false;    // rows are being removed
    KTRow fAnchor = kNoRow;    // where a range starts
    bool fAnchorMarks = true;  // what a range does

    QBasicTimer fTell;  // changes are told together
    std::vector<std::pair<KTRow, bool>> fChanges;
    uint64_t fToldMarks = 0;

    bool fHeaderPressed = false;
    int fResized = -1;  // the column whose border is being dragged

    QString fTyped;
    QElapsedTimer fTypedAt;

    QMenu* fMenu = nullptr;
    BMessage fSelectionMessage, fInvocationMessage;
    BMessenger fSelectionTarget, fInvocationTarget;
};
