// KTColumnListView: the list of every tool: columns with labels, rows in a hierarchy, marks. Rows live in
// a KTRowStore; this is a thin model over it and a QTreeView with uniform row heights. Main thread.
//
// In a multiple-selection list the marks are the selection: a click or Space toggles, through
// MultiSelect/MultiDeselect, which views override to record what was done. Trees draw marks as boxes
// (whole, part, none), flat lists as the row's highlight; Shift takes a range. The keyboard's current row
// is something else. In a single-selection list the marked row is the current one.
#pragma once

#include <QTreeView>
#include <functional>

#include "client/uikit/KTRowStore.h"
#include "kit/app/BHandler.h"

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
    KTColumnListView(const char* name, ListType type, std::vector<KTColumn> columns, QWidget* parent);
    ~KTColumnListView() override;

    KTRowStore& Rows() { return *fRows; }
    const KTRowStore& Rows() const { return *fRows; }
    const KTColumn& ColumnAt(int column) const { return fColumns[static_cast<size_t>(column)]; }
    int CountColumns() const { return static_cast<int>(fColumns.size()); }

    // --- marking; overridden by views that record ----------------------------------------------------
    virtual void MultiSelect(KTRow row);
    virtual void MultiDeselect(KTRow row);
    virtual void MultiSelectAll(bool select);  // every top-level row
    KTRow CurrentSelection() const;            // single selection: the marked row, else kNoRow
    void Select(KTRow row);                    // single selection; kNoRow: none
    KTRow CurrentRow() const;                  // where the keyboard is
    void SetCurrentRow(KTRow row);

    // --- hierarchy -----------------------------------------------------------------------------------
    virtual void Expand(KTRow row);  // views that fetch children override it
    virtual void Collapse(KTRow row);
    void ScrollTo(KTRow row);

    // --- columns -------------------------------------------------------------------------------------
    // The user has dragged a border; called once, at the end of the drag.
    virtual void ColumnWidthChanged(int column, float width) { (void)column, (void)width; }
    void SetColumnWidth(int column, float width);
    void SetItemHeight(int height);

    // --- cells ---------------------------------------------------------------------------------------
    // Texts are made when painted. The defaults: text as it is, numbers in digits, times as ctime gives
    // them ("-" for 0). `column` of kind Icon: the icon of the row.
    virtual QString CellText(KTRow row, int column) const;
    virtual QIcon CellIcon(KTRow row) const;
    virtual QColor CellColor(uint8_t colorIndex) const;  // invalid: the normal one
    // What a screen reader says for the row besides its cells.
    virtual QString SpokenRow(KTRow row) const;

    // --- editing in place ----------------------------------------------------------------------------
    // Asked before an editor opens; the cell's column must be editable.
    virtual bool TestRenameColumnData(KTRow row, int column) { (void)row, (void)column; return true; }
    // The user finished editing: posts 'clrn' with "item" (int64 row), "column", "text" to the invocation
    // target and stores the text. Overridden by views that do otherwise.
    virtual void RenameColumnData(KTRow row, int column, const QString& text);

    // --- messages ------------------------------------------------------------------------------------
    void SetPopUpMenu(QMenu* menu);  // owned by the caller; secondary click and menu key
    // Posted when the marks or the single selection changed by the user's hand or by code, coalesced.
    void SetSelectionMessage(const BMessage& message, const BHandler* target);
    // A double click or Return on a row: with "item" (int64).
    void SetInvocationMessage(const BMessage& message, const BHandler* target);

private:
    class Model;
    class Delegate;
    std::unique_ptr<KTRowStore> fRows;
    std::vector<KTColumn> fColumns;
    // … the implementer's
};
