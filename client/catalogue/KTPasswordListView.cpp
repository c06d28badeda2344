#include "client/catalogue/KTPasswordListView.h"

#include <QHeaderView>
#include <QKeyEvent>

#include "client/catalogue/KTPasswordList.h"
#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kTyped[] = "*";  // stands for any password; the cell shows its dots
constexpr int kUsualRows = 6;
constexpr int kFewestRows = 3;

constexpr ColumnWidth kWidths[] = {{"RSTTITLECOLWIDTH", 150},
                                   {"RSTDATECOLWIDTH", 180},
                                   {"RSTPWCOLWIDTH", 110},
                                   {"RSTNAMECOLWIDTH", 210}};

std::vector<KTColumn> Columns(const Preferences* preferences) {
    using namespace core::text;
    std::vector<KTColumn> columns;
    const int32_t labels[] = {kTitle, kDate, kPassword, kName};
    for (const int32_t label : labels)
        columns.emplace_back(KTControl::Text(label), WidthOf(kWidths[columns.size()], preferences),
                             kLeastColumnWidth);
    columns[KTPasswordListView::kPassword].editable = true;
    columns[KTPasswordListView::kPassword].typingHidden = true;
    return columns;
}

}  // namespace

KTPasswordListView::KTPasswordListView(Preferences* preferences, QWidget* parent)
    : KTColumnListView("lst_passwords", ListType::Single, Columns(preferences), parent),
      fPreferences(preferences) {
    setAccessibleName(KTControl::Text(core::text::kTypePassword));
}

void KTPasswordListView::ShowPWList(const KTPasswordList& list) {
    const KTRow selected = CurrentSelection();
    const std::string name(selected == kNoRow ? "" : Rows().TextAt(selected, kName));
    Rows().MakeEmpty();
    for (int32_t i = 0; i < list.Count(); ++i) {
        const auto& backup = list.At(i);
        const std::string_view texts[] = {backup.title, backup.date,
                                          list.HasPassword(i) ? kTyped : "", backup.name};
        const KTRow row = Rows().AddUnder(kNoRow, {texts, {}, false, false, 0});
        if (selected != kNoRow && backup.name == name) Select(row);
    }
    // The keyboard has somewhere to begin.
    if (CurrentRow() == kNoRow && Rows().Count() > 0) SetCurrentRow(Rows().First());
}

void KTPasswordListView::ShowPassword(int32_t index, bool typed) {
    Rows().SetText(RowAtIndex(index), kPassword, typed ? kTyped : "");
}

bool KTPasswordListView::FinishEditing() {
    if (state() != EditingState) return false;
    QWidget* editor = indexWidget(currentIndex());
    if (!editor) return false;
    commitData(editor);
    KTColumnListView::closeEditor(editor, QAbstractItemDelegate::NoHint);
    return true;
}

void KTPasswordListView::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

void KTPasswordListView::RenameColumnData(KTRow row, int column, const QString& text) {
    // By the time it arrives the row may stand for another backup.
    BMessage message("clrn"_code);
    message.Add("name", Rows().TextAt(row, kName));
    TellRename(row, column, text, std::move(message));
}

void KTPasswordListView::keyPressEvent(QKeyEvent* event) {
    const int key = event->key();
    const bool edits =
        key == Qt::Key_Space || ((key == Qt::Key_Return || key == Qt::Key_Enter) &&
                                 CurrentRow() != kNoRow && !HasPassword(CurrentRow()));
    if (state() != EditingState && edits && CurrentRow() != kNoRow &&
        EditCell(CurrentRow(), kPassword))
        return event->accept();
    KTColumnListView::keyPressEvent(event);
}

void KTPasswordListView::closeEditor(QWidget* editor, QAbstractItemDelegate::EndEditHint hint) {
    using Hint = QAbstractItemDelegate::EndEditHint;
    const KTRow row = CurrentRow();
    // Qt's own way of going on stays in the last cell for ever.
    KTColumnListView::closeEditor(editor, hint == Hint::RevertModelCache ? hint : Hint::NoHint);
    const bool back = hint == Hint::EditPreviousItem;
    if (row == kNoRow || (hint != Hint::SubmitModelCache && hint != Hint::EditNextItem && !back))
        return;
    const int32_t next = Rows().IndexInParent(row) + (back ? -1 : 1);
    if (next < 0 || next >= Rows().ChildCount(kNoRow)) {
        if (hint != Hint::SubmitModelCache) focusNextPrevChild(!back);
        return;
    }
    const KTRow other = RowAtIndex(next);
    if (hint == Hint::SubmitModelCache && HasPassword(other)) return;
    ScrollTo(other);
    EditCell(other, kPassword);
}

int KTPasswordListView::HeightOf(int rows) const {
    const int row = std::max(sizeHintForRow(0), fontMetrics().height() + 2);
    return header()->sizeHint().height() + rows * row + 2 * frameWidth();
}

QSize KTPasswordListView::sizeHint() const {
    constexpr int kWidest = 900;
    return {std::min(header()->length() + 2 * frameWidth(), kWidest), HeightOf(kUsualRows)};
}

QSize KTPasswordListView::minimumSizeHint() const {
    return {KTColumnListView::minimumSizeHint().width(), HeightOf(kFewestRows)};
}
