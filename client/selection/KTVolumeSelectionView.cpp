#include "client/selection/KTVolumeSelectionView.h"

#include <QLocale>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "client/selection/SourceIcons.h"
#include "client/selection/TreeRules.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTColumnListDelegate.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "kit/app/BLooper.h"

namespace {

constexpr float kMinWidth = 20;
constexpr char kNameWidth[] = "QBFCOLWIDT";
constexpr char kSizeWidth[] = "QBSCOLWIDT";

// The volumes of the include rules, each once.
std::vector<std::string> NamesIn(const BMessage& selection) {
    std::vector<std::string> names;
    const int32_t count = selection.Count(core::kSelectionField, B_STRING_TYPE);
    for (int32_t i = 0; i < count; ++i) {
        const std::string_view rule = *selection.FindString(core::kSelectionField, i);
        if (!rule.starts_with("INCLUDE")) continue;
        const auto components = TreeRules::Components(rule);
        if (!components.empty() && std::ranges::find(names, components.front()) == names.end())
            names.push_back(components.front());
    }
    return names;
}

// Below the size a bar says how full the volume is.
class FullnessDelegate : public KTColumnListDelegate {
public:
    explicit FullnessDelegate(KTVolumeSelectionView* view)
        : KTColumnListDelegate(view), fView(view) {}

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const QSize size = KTColumnListDelegate::sizeHint(option, index);
        // The text stays in the middle; the digits do not reach down to the bar.
        return {size.width(), option.fontMetrics.height() + 3 + BarHeight(option)};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override {
        KTColumnListDelegate::paint(painter, option, index);
        const double fullness = fView->Fullness(fView->RowOf(index));
        if (fullness < 0) return;
        const bool marked = option.state.testFlag(QStyle::State_Selected);
        const QPalette& palette = option.palette;
        QColor track = palette.color(marked ? QPalette::HighlightedText : QPalette::Text);
        track.setAlpha(50);
        const QColor fill = palette.color(marked ? QPalette::HighlightedText : QPalette::Highlight);
        const int height = BarHeight(option);
        const QRect bar(option.rect.left() + kSide, option.rect.bottom() - height,
                        option.rect.width() - 2 * kSide, height);
        if (bar.width() <= 0) return;
        QRect full = bar;
        full.setWidth(static_cast<int>(std::lround(bar.width() * fullness)));
        painter->fillRect(bar, track);
        painter->fillRect(QStyle::visualRect(option.direction, bar, full), fill);
    }

private:
    static int BarHeight(const QStyleOptionViewItem& option) {
        return std::max(option.fontMetrics.height() / 5, 3);
    }

    static constexpr int kSide = 3;
    KTVolumeSelectionView* fView;
};

}  // namespace

std::vector<KTColumn> KTVolumeSelectionView::Columns(const Preferences* preferences) {
    const auto width = [preferences](const char* key, float standard) {
        return preferences ? preferences->GetFloat(key, standard) : standard;
    };
    return {
        {QString(), 16, kMinWidth, KTColumnKind::Icon},
        {KTControl::Text(core::text::kName), width(kNameWidth, 180), kMinWidth, KTColumnKind::Text},
        {KTControl::Text(core::text::kSize), width(kSizeWidth, 70), kMinWidth,
         KTColumnKind::Number}};
}

KTVolumeSelectionView::KTVolumeSelectionView(Preferences* preferences, QWidget* parent,
                                             std::shared_ptr<kit::MountSource> mounts)
    : KTColumnListView("lst_volumes", ListType::Multiple, Columns(preferences), parent),
      fPreferences(preferences) {
    setAccessibleName(KTControl::Text(core::text::kVolumes));
    SetItemHeight(16);
    setItemDelegateForColumn(kSize, new FullnessDelegate(this));
    SetEmptyText(KTControl::Text(core::kMoreLookingForVolumes));

    const BMessenger self(static_cast<BHandler*>(this));
    fMonitor = std::make_shared<BNodeMonitor>(self);
    (void)fMonitor->WatchMounts();  // without it the volumes stay those of the last look
    fReader = std::make_unique<SourceReader>(self, nullptr, std::move(mounts));
    fVolumes.Look(*fReader);
}

KTVolumeSelectionView::~KTVolumeSelectionView() = default;

// --- marks --------------------------------------------------------------------------------------

void KTVolumeSelectionView::MultiSelectAll(bool select) {
    fMarkLater.clear();
    fMarkAllLater = select && !fVolumes.AreKnown();
    KTColumnListView::MultiSelectAll(select);
}

bool KTVolumeSelectionView::HasSelection() const {
    return Rows().HasMarks() || !fMarkLater.empty();
}

void KTVolumeSelectionView::GetSelection(BMessage* message) const {
    message->Remove(core::kSelectionField);
    const auto add = [message](std::string_view name) {
        message->Add(core::kSelectionField, "INCLUDE /" + std::string(name) + "/*");
    };
    for (const KTRow row : Rows().MarkedRows())
        add(Rows().TextAt(row, kName));
    for (const std::string& name : fMarkLater)
        add(name);
}

void KTVolumeSelectionView::SetSelection(const BMessage& message) {
    const auto names = NamesIn(message);
    if (fVolumes.AreKnown()) return Mark(names);
    for (const std::string& name : names)
        if (std::ranges::find(fMarkLater, name) == fMarkLater.end()) fMarkLater.push_back(name);
}

void KTVolumeSelectionView::Mark(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const KTRow row = Rows().ChildByText(kNoRow, kName, name);
        if (row != kNoRow) MultiSelect(row);
    }
}

int32_t KTVolumeSelectionView::SaveSelection(BMessage& request, const BMessage& selection) const {
    return SelectionFile::Save(request, selection, HasSelection(), SelectionFile::kBackup);
}

int32_t KTVolumeSelectionView::LoadSelection(const BMessage& request, BMessage* selection) const {
    return SelectionFile::Load(request, selection, SelectionFile::kBackup);
}

// --- volumes ------------------------------------------------------------------------------------

void KTVolumeSelectionView::MessageReceived(BMessage& message) {
    if (message.what == SourceReader::kVolumes) return VolumesListed(message);
    if (message.what != B_NODE_MONITOR) return KTColumnListView::MessageReceived(message);
    const auto opcode = message.Get<int32_t>("opcode", 0);
    if (opcode != BNodeMonitor::kDeviceMounted && opcode != BNodeMonitor::kDeviceUnmounted) return;
    fVolumes.MountsChanged(message);
    fVolumes.Look(*fReader);
}

void KTVolumeSelectionView::VolumesListed(const BMessage& message) {
    const auto news = fVolumes.Listed(message);
    if (!news) return;
    for (const KTRow row : news->gone) {
        fVolumes.Remove(row);
        Rows().Remove(row);
    }
    for (const auto& [row, place] : news->stay) {
        // The mark belongs to the volume, whatever it is called now.
        const std::string_view name = message.FindString("name", place).value_or("");
        if (Rows().TextAt(row, kName) != name) Rows().SetText(row, kName, name);
        fVolumes.Set(row, message, place);
        Rows().SetNumber(row, kSize, fVolumes.Find(row)->used);
    }
    for (const int32_t place : news->come) {
        const std::string_view texts[] = {message.FindString("name", place).value_or("")};
        const int64_t numbers[] = {static_cast<int64_t>(SourceKind::Volume), 0};
        const KTRow row =
            Rows().AddUnder(kNoRow, {texts, numbers, false, false, VolumeRows::kColor});
        fVolumes.Set(row, message, place);
        Rows().SetNumber(row, kSize, fVolumes.Find(row)->used);
    }
    SetEmptyText(KTControl::Text(core::kMoreNoVolumes));
    Mark(std::exchange(fMarkLater, {}));
    if (std::exchange(fMarkAllLater, false)) MultiSelectAll(true);
}

void KTVolumeSelectionView::showEvent(QShowEvent* event) {
    KTColumnListView::showEvent(event);
    if (fVolumes.AreKnown()) fVolumes.Look(*fReader);
}

// --- cells --------------------------------------------------------------------------------------

void KTVolumeSelectionView::ColumnWidthChanged(int column, float width) {
    if (!fPreferences) return;
    if (column == kName) fPreferences->Set(kNameWidth, width);
    if (column == kSize) fPreferences->Set(kSizeWidth, width);
}

double KTVolumeSelectionView::Fullness(KTRow row) const {
    const VolumeRows::Volume* volume = fVolumes.Find(row);
    if (!volume || volume->capacity == 0) return -1;
    return static_cast<double>(volume->used) / static_cast<double>(volume->capacity);
}

QString KTVolumeSelectionView::CellText(KTRow row, int column) const {
    if (column != kSize) return KTColumnListView::CellText(row, column);
    return Fullness(row) < 0 ? QStringLiteral("-")
                             : QLocale().formattedDataSize(Rows().NumberAt(row, kSize), 1);
}

QIcon KTVolumeSelectionView::CellIcon(KTRow row) const {
    return SourceIcons::For(SourceKind::Volume, Rows().TextAt(row, kName));
}

QColor KTVolumeSelectionView::CellColor(uint8_t colorIndex) const {
    return colorIndex == VolumeRows::kColor ? VolumeRows::Color(fPreferences) : QColor();
}

QString KTVolumeSelectionView::FullnessInWords(KTRow row) const {
    if (Fullness(row) < 0) return {};
    const VolumeRows::Volume& volume = *fVolumes.Find(row);
    const auto size = [](int64_t bytes) {
        return QLocale().formattedDataSize(bytes, 1).toStdString();
    };
    const auto percent = static_cast<int32_t>(std::lround(Fullness(row) * 100));
    return QString::fromStdString(core::FormatTextOf(core::kMoreVolumeFullness, size(volume.used),
                                                     size(volume.capacity), percent));
}

QString KTVolumeSelectionView::RowToolTip(KTRow row) const {
    const QString words = FullnessInWords(row);
    const QString path = KTControl::Shown(fVolumes.Find(row) ? fVolumes.Find(row)->path : "");
    return words.isEmpty() ? path : path + '\n' + words;
}

QString KTVolumeSelectionView::SpokenRow(KTRow row) const {
    const QString name = CellText(row, kName);
    const QString words = FullnessInWords(row);
    return words.isEmpty() ? name : name + ", " + words;
}
