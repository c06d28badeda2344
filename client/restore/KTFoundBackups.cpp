#include "client/restore/KTFoundBackups.h"

#include <QHeaderView>

#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint8_t kBackupColor = 1;
constexpr int kUsualRows = 8;

constexpr ColumnWidth kWidths[] = {
    {"", 20}, {"namecolumnwidth", 170}, {"datecolumnwidth", 180}, {"", 190}};

std::vector<KTColumn> Columns(const Preferences* preferences) {
    using enum KTColumnKind;
    const std::pair<QString, KTColumnKind> columns[] = {{{}, Icon},
                                                        {KTControl::Text(core::text::kTitle), Text},
                                                        {KTControl::Text(core::text::kDate), Time},
                                                        {KTControl::Text(core::text::kId), Text}};
    std::vector<KTColumn> made;
    for (const auto& [label, kind] : columns) {
        made.emplace_back(label, WidthOf(kWidths[made.size()], preferences), kLeastColumnWidth,
                          kind);
    }
    return made;
}

}  // namespace

KTFoundBackups::KTFoundBackups(Preferences* preferences, QWidget* parent)
    : KTColumnListView("col_listview", ListType::Multiple, Columns(preferences), parent),
      fPreferences(preferences) {
    setAccessibleName(KTControl::Text(core::kMoreFoundBackups));
}

void KTFoundBackups::SetScanResult(const BMessage& answer) {
    Rows().MakeEmpty();
    for (int32_t i = 0; i < answer.Count("title", B_STRING_TYPE); ++i) {
        const std::string_view texts[] = {answer.FindString("title", i).value_or(""),
                                          answer.FindString("ID", i).value_or("")};
        const int64_t numbers[] = {0, answer.Get("date", BTime(), i).seconds};
        Rows().AddUnder(kNoRow, {texts, numbers, false, false, kBackupColor});
    }
    // The keyboard has somewhere to begin.
    if (Rows().Count() > 0) SetCurrentRow(Rows().First());
}

std::vector<KTFoundBackups::Backup> KTFoundBackups::Marked() const {
    std::vector<Backup> marked;
    for (const KTRow row : Rows().MarkedRows())
        marked.push_back(
            {std::string(Rows().TextAt(row, kId)), std::string(Rows().TextAt(row, kTitle))});
    return marked;
}

KTRow KTFoundBackups::RowOfId(std::string_view id) const {
    return Rows().ChildByText(kNoRow, kId, id);
}

void KTFoundBackups::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

QString KTFoundBackups::CellText(KTRow row, int column) const {
    if (column == kTitle && Rows().TextAt(row, kTitle).empty())
        return KTControl::Text(core::text::kNoTitle);
    return KTColumnListView::CellText(row, column);
}

QIcon KTFoundBackups::CellIcon(KTRow) const {
    return KTIcons::Get("tower");
}

QColor KTFoundBackups::CellColor(uint8_t colorIndex) const {
    if (colorIndex != kBackupColor) return {};
    const rgb_color color = fPreferences->GetColor("COLOR_BACKUP", {255, 0, 0, 255});
    return QColor(color.red, color.green, color.blue, color.alpha);
}

QSize KTFoundBackups::sizeHint() const {
    constexpr int kWidest = 800;
    const int row = std::max(sizeHintForRow(0), fontMetrics().height() + 2);
    return {std::min(header()->length() + 4 * frameWidth(), kWidest),
            header()->sizeHint().height() + kUsualRows * row + 2 * frameWidth()};
}
