#include "client/uikit/KTColumnListView.h"

#include <QAccessible>
#include <QHeaderView>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cmath>
#include <ctime>

#include "client/uikit/KTColumnListDelegate.h"
#include "client/uikit/KTColumnListModel.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTWindowLooper.h"

namespace {

constexpr int kIconSize = 16;
// Beyond so many changed rows it is cheaper to say that everything changed.
constexpr size_t kMostChanges = 64;
// What can be read of a name, however deep it lies.
constexpr int kReadableLetters = 16;

std::vector<KTColumnKind> KindsOf(const std::vector<KTColumn>& columns) {
    std::vector<KTColumnKind> kinds;
    for (const KTColumn& column : columns)
        kinds.push_back(column.kind);
    return kinds;
}

// As WCAG defines them.
double Luminance(const QColor& color) {
    auto channel = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

double Contrast(const QColor& a, const QColor& b) {
    const auto [low, high] = std::minmax({Luminance(a), Luminance(b)});
    return (high + 0.05) / (low + 0.05);
}

}  // namespace

KTColumn::KTColumn(QString label, float width, float minWidth, KTColumnKind kind)
    : label(std::move(label)),
      width(std::max(width, std::max(minWidth, 4.0F))),
      minWidth(std::max(minWidth, 4.0F)),
      kind(kind) {}

KTColumnListView::KTColumnListView(const char* name, ListType type, std::vector<KTColumn> columns,
                                   QWidget* parent)
    : QTreeView(parent),
      fType(type),
      fColumns(std::move(columns)),
      fRows(std::make_unique<KTRowStore>(KindsOf(fColumns))),
      fModel(new KTColumnListModel(this)),
      fDelegate(new KTColumnListDelegate(this)) {
    setObjectName(name);
    const auto text = std::find_if(fColumns.begin(), fColumns.end(), [](const KTColumn& column) {
        return column.kind == KTColumnKind::Text;
    });
    fNameColumn = text == fColumns.end() ? 0 : static_cast<int>(text - fColumns.begin());

    setUniformRowHeights(true);
    setAnimated(false);
    setExpandsOnDoubleClick(false);
    setAllColumnsShowFocus(true);
    setRootIsDecorated(false);
    setTreePosition(fNameColumn);
    setEditTriggers(NoEditTriggers);
    setSelectionMode(type == ListType::Single ? SingleSelection : NoSelection);
    setSelectionBehavior(SelectRows);
    setHorizontalScrollMode(ScrollPerPixel);
    setIconSize({kIconSize, kIconSize});
    setItemDelegate(fDelegate);
    setModel(fModel);
    ApplyItemHeight();

    header()->setStretchLastSection(false);
    header()->setSectionsMovable(false);
    header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header()->setMinimumSectionSize(4);
    header()->setTextElideMode(Qt::ElideRight);
    for (int i = 0; i < CountColumns(); ++i) {
        header()->resizeSection(i, qRound(ColumnAt(i).width));
        if (ColumnAt(i).kind == KTColumnKind::Icon)
            header()->setSectionResizeMode(i, QHeaderView::Fixed);
        setColumnHidden(i, !ColumnAt(i).shown);
    }
    connect(header(), &QHeaderView::sectionResized, this,
            [this](int column, int, int width) { SectionResized(column, width); });
    header()->viewport()->installEventFilter(this);

    // Expanded by a screen reader, or by code that only knows the view.
    connect(this, &QTreeView::expanded, this, [this](const QModelIndex& index) {
        if (!Rows().IsExpanded(RowOf(index))) Expand(RowOf(index));
    });
    connect(this, &QTreeView::collapsed, this, [this](const QModelIndex& index) {
        if (Rows().IsExpanded(RowOf(index))) Collapse(RowOf(index));
    });
    if (WindowLooper()) WindowLooper()->AddHandler(this);
}

KTColumnListView::~KTColumnListView() {
    setModel(nullptr);
    delete fModel;  // before the rows it shows
}

void KTColumnListView::SetOutline(bool outline) {
    fOutline = outline;
    setRootIsDecorated(outline);
}

QModelIndex KTColumnListView::IndexOf(KTRow row, int column) const {
    return fModel->IndexOf(row, column);
}

KTRow KTColumnListView::RowOf(const QModelIndex& index) const {
    return KTColumnListModel::RowOf(index);
}

KTRow KTColumnListView::RowAt(const QPoint& point) const {
    // Beside the last column is still on the row.
    const int x = std::min(point.x(), header()->length() - header()->offset() - 1);
    return RowOf(indexAt({x, point.y()}));
}

// --- marking ------------------------------------------------------------------------------------

void KTColumnListView::MultiSelect(KTRow row) {
    fRows->MultiSelect(row);
}

void KTColumnListView::MultiDeselect(KTRow row) {
    fRows->MultiDeselect(row);
}

void KTColumnListView::MultiSelectAll(bool select) {
    for (KTRow row = fRows->First(); row != kNoRow; row = fRows->NextAfterSubtree(row)) {
        if (select)
            MultiSelect(row);
        else
            MultiDeselect(row);
    }
}

KTRow KTColumnListView::CurrentSelection() const {
    return fSelected != kNoRow && fRows->Has(fSelected) && fRows->IsMarked(fSelected) ? fSelected
                                                                                      : kNoRow;
}

void KTColumnListView::Select(KTRow row) {
    if (fType != ListType::Single) return;
    if (row == kNoRow)
        selectionModel()->clearSelection();
    else
        selectionModel()->setCurrentIndex(
            IndexOf(row), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void KTColumnListView::selectionChanged(const QItemSelection& selected,
                                        const QItemSelection& gone) {
    QTreeView::selectionChanged(selected, gone);
    if (fType != ListType::Single || fRemoving) return;
    const QModelIndexList rows = selectionModel()->selectedRows();
    const KTRow now = rows.isEmpty() ? kNoRow : RowOf(rows.first());
    const KTRow before = CurrentSelection();
    if (before == now) return;
    if (before != kNoRow) fRows->SetMarked(before, false);
    fSelected = now;
    if (now != kNoRow) fRows->SetMarked(now, true);
}

void KTColumnListView::SetRemoving(bool removing) {
    // Qt selects the neighbour of a selected row that is removed. Nobody chose that one, and what a
    // button does next must not hit it.
    fRemoving = removing;
    if (!removing && fType == ListType::Single && CurrentSelection() == kNoRow) {
        fSelected = kNoRow;
        selectionModel()->clearSelection();
    }
}

KTRow KTColumnListView::CurrentRow() const {
    return RowOf(currentIndex());
}

void KTColumnListView::SetCurrentRow(KTRow row) {
    selectionModel()->setCurrentIndex(IndexOf(row), QItemSelectionModel::NoUpdate);
}

void KTColumnListView::Toggle(KTRow row) {
    fAnchor = row;
    fAnchorMarks = !fRows->IsMarked(row);
    if (fAnchorMarks)
        MultiSelect(row);
    else
        MultiDeselect(row);
}

void KTColumnListView::MarkRange(KTRow from, KTRow to) {
    if (!fRows->Has(from)) from = to;
    // Which of the two comes first is told by their places below the ancestor they share.
    auto path = [this](KTRow row) {
        std::vector<int32_t> places;
        for (; row != kNoRow; row = fRows->Superitem(row))
            places.push_back(fRows->IndexInParent(row));
        std::reverse(places.begin(), places.end());
        return places;
    };
    if (path(to) < path(from)) return MarkRange(to, from);
    std::vector<KTRow> last;  // where it ends: at the row, or at one that takes the row with it
    for (KTRow row = to; row != kNoRow; row = fRows->Superitem(row))
        last.push_back(row);
    for (KTRow row = from; row != kNoRow; row = fRows->NextAfterSubtree(row)) {
        if (fAnchorMarks)
            MultiSelect(row);
        else
            MultiDeselect(row);
        if (std::find(last.begin(), last.end(), row) != last.end()) return;
    }
}

void KTColumnListView::selectAll() {
    if (fType == ListType::Multiple) MultiSelectAll(true);
}

// --- hierarchy ----------------------------------------------------------------------------------

void KTColumnListView::Expand(KTRow row) {
    if (!fRows->IsSuperItem(row)) return;
    if (!fRows->IsExpanded(row)) fRows->SetExpanded(row, true);
    QTreeView::expand(IndexOf(row));
    if (!fOutline) return;
    // However deep it lies, what comes to light can be read; the width in the settings stays.
    const int depth = static_cast<int>(fRows->Level(row)) + 3;  // its children, expander and box
    const int needed = depth * indentation() + kReadableLetters * fontMetrics().averageCharWidth();
    if (columnWidth(fNameColumn) < needed) header()->resizeSection(fNameColumn, needed);
}

void KTColumnListView::Collapse(KTRow row) {
    if (fRows->IsExpanded(row)) fRows->SetExpanded(row, false);
    QTreeView::collapse(IndexOf(row));
}

void KTColumnListView::ScrollTo(KTRow row) {
    scrollTo(IndexOf(row, fNameColumn));
}

KTRow KTColumnListView::NextShown(KTRow row) const {
    return fRows->IsExpanded(row) ? fRows->Next(row) : fRows->NextAfterSubtree(row);
}

void KTColumnListView::ExpandKnown(KTRow row) {
    // Enough to see what there is; more would take long and show nothing that can be overlooked.
    constexpr int kMost = 200;
    int left = kMost;
    const KTRow end = fRows->NextAfterSubtree(row);
    for (KTRow below = row; below != end && left > 0; below = fRows->Next(below)) {
        if (!fRows->IsSuperItem(below) || (below != row && fRows->ChildCount(below) == 0)) continue;
        if (!fRows->IsExpanded(below)) Expand(below);
        --left;
    }
}

// --- columns ------------------------------------------------------------------------------------

void KTColumnListView::SetColumnWidth(int column, float width) {
    KTColumn& changed = fColumns[static_cast<size_t>(column)];
    changed.width = std::max(width, changed.minWidth);
    header()->resizeSection(column, qRound(changed.width));
}

void KTColumnListView::SectionResized(int column, int width) {
    KTColumn& changed = fColumns[static_cast<size_t>(column)];
    const int least = qRound(changed.minWidth);
    if (width < least) {
        if (!isColumnHidden(column)) header()->resizeSection(column, least);
        return;
    }
    changed.width = static_cast<float>(width);
    if (fHeaderPressed) fResized = column;
}

bool KTColumnListView::eventFilter(QObject* object, QEvent* event) {
    if (object == header()->viewport()) {
        if (event->type() == QEvent::MouseButtonPress ||
            event->type() == QEvent::MouseButtonDblClick) {
            fHeaderPressed = true;
        } else if (event->type() == QEvent::MouseButtonRelease) {
            fHeaderPressed = false;
            if (fResized >= 0) {
                const int column = std::exchange(fResized, -1);
                ColumnWidthChanged(column, ColumnAt(column).width);
            }
        }
    }
    return QTreeView::eventFilter(object, event);
}

void KTColumnListView::SetItemHeight(int height) {
    fItemHeight = height;
    ApplyItemHeight();
}

void KTColumnListView::ApplyItemHeight() {
    fDelegate->SetHeight(std::max({fItemHeight, kIconSize, fontMetrics().height() + 2}));
    scheduleDelayedItemsLayout();
}

void KTColumnListView::changeEvent(QEvent* event) {
    QTreeView::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        ApplyItemHeight();
}

// --- cells --------------------------------------------------------------------------------------

QString KTColumnListView::CellText(KTRow row, int column) const {
    switch (ColumnAt(column).kind) {
        case KTColumnKind::Icon:
            return {};
        case KTColumnKind::Text:
            return KTControl::Shown(fRows->TextAt(row, column));
        case KTColumnKind::Number:
            return QString::number(fRows->NumberAt(row, column));
        case KTColumnKind::Time: {
            const auto time = static_cast<time_t>(fRows->NumberAt(row, column));
            char text[64];  // years beyond four digits make it longer than the usual 26
            tm parts;
            if (time == 0 || !::localtime_r(&time, &parts) || parts.tm_year > 8099 ||
                !::asctime_r(&parts, text))
                return QStringLiteral("-");
            return QString::fromLatin1(text).trimmed();
        }
    }
    return {};
}

QIcon KTColumnListView::CellIcon(KTRow) const {
    return {};
}

QColor KTColumnListView::CellColor(uint8_t) const {
    return {};
}

QString KTColumnListView::SpokenRow(KTRow row) const {
    return CellText(row, fNameColumn);
}

QColor KTColumnListView::Readable(QColor color, const QColor& background) {
    constexpr double kEnough = 4.5;
    const bool dark = Luminance(background) < 0.18;
    for (int i = 0; i < 20 && Contrast(color, background) < kEnough; ++i) {
        float h, s, l, a;
        color.getHslF(&h, &s, &l, &a);
        color.setHslF(h, s, std::clamp(l + (dark ? 0.05F : -0.05F), 0.0F, 1.0F), a);
    }
    return color;
}

void KTColumnListView::SetEmptyText(const QString& text) {
    if (fEmptyText == text) return;
    fEmptyText = text;
    viewport()->update();
}

void KTColumnListView::paintEvent(QPaintEvent* event) {
    QTreeView::paintEvent(event);
    if (fRows->Count() > 0 || fEmptyText.isEmpty()) return;
    QPainter painter(viewport());
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(viewport()->rect().adjusted(12, 12, -12, -12),
                     Qt::AlignCenter | Qt::TextWordWrap, fEmptyText);
}

void KTColumnListView::drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    if (fType == ListType::Single) return QTreeView::drawRow(painter, option, index);
    QStyleOptionViewItem changed = option;
    if (!fOutline) {
        changed.state.setFlag(QStyle::State_Selected, fRows->IsMarked(RowOf(index)));
    } else if (index.siblingAtColumn(0) == currentIndex().siblingAtColumn(0)) {
        QColor light = option.palette.color(QPalette::Highlight);
        light.setAlpha(hasFocus() ? 70 : 35);
        painter->fillRect(option.rect, light);
    }
    QTreeView::drawRow(painter, changed, index);
}

// --- editing ------------------------------------------------------------------------------------

bool KTColumnListView::EditCell(KTRow row, int column) {
    if (!ColumnAt(column).editable || !TestRenameColumnData(row, column)) return false;
    const QModelIndex index = IndexOf(row, column);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
    edit(index);
    return true;
}

void KTColumnListView::RenameColumnData(KTRow row, int column, const QString& text) {
    fRows->SetText(row, column, KTControl::ToBytes(text));
    TellRename(row, column, text);
}

void KTColumnListView::TellRename(KTRow row, int column, const QString& text, BMessage message) {
    message.Add("item", int64_t{row});
    message.Add("column", int32_t{column});
    message.Add("text", KTControl::ToBytes(text));
    fInvocationTarget.SendMessage(std::move(message));
}

// --- messages -----------------------------------------------------------------------------------

void KTColumnListView::SetPopUpMenu(QMenu* menu) {
    fMenu = menu;
}

void KTColumnListView::SetSelectionMessage(const BMessage& message, const BHandler* target) {
    fSelectionMessage = message;
    fSelectionTarget = BMessenger(target);
    fToldMarks = fRows->MarkGeneration();
}

void KTColumnListView::SetInvocationMessage(const BMessage& message, const BHandler* target) {
    fInvocationMessage = message;
    fInvocationTarget = BMessenger(target);
}

void KTColumnListView::Invoke(KTRow row) {
    if (fInvocationMessage.what == 0) return;
    BMessage message = fInvocationMessage;
    message.Set("item", int64_t{row});
    fInvocationTarget.SendMessage(std::move(message));
}

void KTColumnListView::NoteChange(KTRow row, bool subtree) {
    if (!fTell.isActive()) fTell.start(0, this);
    if (fChanges.size() < kMostChanges && (fChanges.empty() || fChanges.back().first != row))
        fChanges.emplace_back(row, subtree);
}

void KTColumnListView::timerEvent(QTimerEvent* event) {
    if (event->timerId() == fTell.timerId())
        TellChanges();
    else
        QTreeView::timerEvent(event);
}

void KTColumnListView::TellChanges() {
    fTell.stop();
    const auto changes = std::exchange(fChanges, {});
    bool everything = changes.size() >= kMostChanges;
    for (const auto& [row, subtree] : changes)
        everything = everything || (subtree && fRows->Has(row) && fRows->ChildCount(row) > 0);
    if (everything) {
        viewport()->update();
        if (QAccessible::isActive()) fModel->TellEverything();
    } else {
        for (const auto& [row, subtree] : changes)
            if (fRows->Has(row)) fModel->TellRow(row);
    }
    if (fRows->MarkGeneration() == fToldMarks) return;
    fToldMarks = fRows->MarkGeneration();
    if (fSelectionMessage.what != 0) fSelectionTarget.SendMessage(fSelectionMessage);
}
