// KTPasswordListView: the list of a start dialog in which passwords are typed: one row for each
// entry of a KTPasswordList, at equal indexes. Its cells only know whether there is a password;
// what was typed goes out in 'clrn' and is not kept.
//
// Return and Space open the editor of a row that has no password yet; Return or Tab in it go on to
// the next row.
#pragma once

#include "client/uikit/KTColumnListView.h"

class KTPasswordList;
class Preferences;

class KTPasswordListView : public KTColumnListView {
    Q_OBJECT
public:
    enum Column { kTitle, kDate, kPassword, kName };
    KTPasswordListView(Preferences* preferences, QWidget* parent);

    void ShowPWList(const KTPasswordList& list);
    void ShowPassword(int32_t index, bool typed);
    // Ends an edit that is going on, as Return does. False when there is none.
    bool FinishEditing();
    KTRow RowAtIndex(int32_t index) const { return Rows().ChildAt(kNoRow, index); }

    void ColumnWidthChanged(int column, float width) override;
    void RenameColumnData(KTRow row, int column, const QString& text) override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint) override;

private:
    bool HasPassword(KTRow row) const { return !Rows().TextAt(row, kPassword).empty(); }
    int HeightOf(int rows) const;
    Preferences* fPreferences;
};
