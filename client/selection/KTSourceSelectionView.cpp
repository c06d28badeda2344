#include "client/selection/KTSourceSelectionView.h"

#include <QElapsedTimer>
#include <QLocale>
#include <ctime>

#include "client/selection/SourceIcons.h"
#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"

namespace {

constexpr ColumnWidth kWidths[] = {{"", 16},          {"FCOLWIDT", 230},
                                   {"SCOLWIDT", 70},  {"SCOLWIDT", 70, false},
                                   {"FDATWIDT", 150}, {"NODEWIDT", 70}};

}  // namespace

std::vector<KTColumn> KTSourceSelectionView::Columns(const Preferences* preferences) {
    constexpr std::pair<const char*, KTColumnKind> kColumns[] = {
        {"", KTColumnKind::Icon},         {"Name", KTColumnKind::Text},
        {"Size", KTColumnKind::Number},   {"AttrSize", KTColumnKind::Number},
        {"Modified", KTColumnKind::Time}, {"Node", KTColumnKind::Number},
    };
    std::vector<KTColumn> columns;
    for (const auto& [label, kind] : kColumns) {
        columns.emplace_back(label, WidthOf(kWidths[columns.size()], preferences),
                             kLeastColumnWidth, kind);
    }
    return columns;
}

KTSourceSelectionView::KTSourceSelectionView(Preferences* preferences, QWidget* parent,
                                             std::shared_ptr<kit::MountSource> mounts,
                                             const std::string& variableData)
    : KTRuledListView("lst_source", ListType::Multiple, Columns(preferences), parent),
      fPreferences(preferences) {
    SetOutline(true);
    SetItemHeight(16);
    SetEmptyText(KTControl::Text(core::kMoreLookingForVolumes));
    fInsertLater.setSingleShot(true);
    connect(&fInsertLater, &QTimer::timeout, this, [this] { InsertWaiting(); });
    fEventsLater.setSingleShot(true);
    connect(&fEventsLater, &QTimer::timeout, this, [this] { HandleEvents(); });

    const BMessenger self(static_cast<BHandler*>(this));
    fMonitor = std::make_shared<BNodeMonitor>(self);
    (void)fMonitor->WatchMounts();  // without it the volumes stay those of the start
    fReader = std::make_unique<SourceReader>(self, fMonitor, std::move(mounts), variableData);
    fVolumes.Look(*fReader);
}

KTSourceSelectionView::~KTSourceSelectionView() = default;

// --- paths --------------------------------------------------------------------------------------

KTRow KTSourceSelectionView::VolumeOf(KTRow row) const {
    for (KTRow up = Rows().Superitem(row); up != kNoRow; up = Rows().Superitem(row))
        row = up;
    return row;
}

std::string KTSourceSelectionView::PathOf(KTRow row, bool onDisk) const {
    std::vector<KTRow> way;
    for (; row != kNoRow; row = Rows().Superitem(row))
        way.push_back(row);
    std::string path;
    if (way.empty()) return path;
    if (onDisk) {
        path = fVolumes.Find(way.back())->path;
        if (path == "/") path.clear();
        way.pop_back();
    }
    for (; !way.empty(); way.pop_back()) {
        path += '/';
        path += Rows().TextAt(way.back(), kName);
    }
    return path.empty() ? "/" : path;
}

bool KTSourceSelectionView::IsDirectory(KTRow row) const {
    return Rows().Superitem(row) == kNoRow || Rows().NumberAt(row, kSize) == -1;
}

KTRow KTSourceSelectionView::EntryBelow(KTRow row, std::string_view name) const {
    return Rows().ChildByText(row, kName, name);
}

// --- cells --------------------------------------------------------------------------------------

void KTSourceSelectionView::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

QString KTSourceSelectionView::CellText(KTRow row, int column) const {
    const int64_t number = Rows().NumberAt(row, column);
    switch (column) {
        case kName: {
            QString name = NameOf(row);
            if (IsReading(row)) name += QStringLiteral(" …");
            return name;
        }
        case kSize:
        case kAttributes:
            return number < 0 ? QString() : QLocale().formattedDataSize(number, 1);
        case kModified: {
            const auto time = static_cast<time_t>(number);
            if (time != 0) break;
            char text[32];  // the epoch itself is a time like any other here
            tm parts;
            return QString::fromLatin1(::asctime_r(::localtime_r(&time, &parts), text)).trimmed();
        }
        case kNode: {
            const VolumeRows::Volume* volume = fVolumes.Find(VolumeOf(row));
            if (!volume) return {};  // it is being removed
            return QStringLiteral("%1, %2").arg(volume->device).arg(static_cast<uint64_t>(number));
        }
        default:
            break;
    }
    return KTColumnListView::CellText(row, column);
}

QIcon KTSourceSelectionView::CellIcon(KTRow row) const {
    return SourceIcons::For(static_cast<SourceKind>(Rows().NumberAt(row, kIcon)),
                            Rows().TextAt(row, kName));
}

QColor KTSourceSelectionView::CellColor(uint8_t colorIndex) const {
    return colorIndex == VolumeRows::kColor ? VolumeRows::Color(fPreferences) : QColor();
}

QString KTSourceSelectionView::NameOf(KTRow row) const {
    return KTControl::Shown(Rows().TextAt(row, kName));
}

void KTSourceSelectionView::doItemsLayout() {
    QElapsedTimer timer;
    timer.start();
    KTColumnListView::doItemsLayout();
    fLayoutMs = static_cast<double>(timer.nsecsElapsed()) / 1e6;
}
