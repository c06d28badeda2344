#include "client/selection/KTSourceSelectionView.h"

#include <QElapsedTimer>
#include <QLocale>
#include <ctime>

#include "client/selection/SourceIcons.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTControl.h"
#include "core/files/HeaderFile.h"
#include "core/locale/MoreTexts.h"

namespace {

constexpr float kMinWidth = 20;
constexpr uint8_t kVolumeColor = 1;

// The key a width is read from and, where it differs, the one it is stored under.
struct Width {
    const char* read;
    const char* stored;
    float standard;
};
constexpr Width kWidths[] = {
    {nullptr, nullptr, 16},    {"FCOLWIDT", "FCOLWIDT", 230}, {"SCOLWIDT", "SCOLWIDT", 70},
    {"SCOLWIDT", nullptr, 70}, {"FDATWIDT", "FDATWIDT", 150}, {"NODEWIDT", "NODEWIDT", 70},
};

}  // namespace

std::vector<KTColumn> KTSourceSelectionView::Columns(const Preferences* preferences) {
    constexpr std::pair<const char*, KTColumnKind> kColumns[] = {
        {"", KTColumnKind::Icon},         {"Name", KTColumnKind::Text},
        {"Size", KTColumnKind::Number},   {"AttrSize", KTColumnKind::Number},
        {"Modified", KTColumnKind::Time}, {"Node", KTColumnKind::Number},
    };
    std::vector<KTColumn> columns;
    for (const auto& [label, kind] : kColumns) {
        const Width& width = kWidths[columns.size()];
        const float wanted = preferences && width.read
                                 ? preferences->GetFloat(width.read, width.standard)
                                 : width.standard;
        columns.emplace_back(label, wanted, kMinWidth, kind);
    }
    return columns;
}

KTSourceSelectionView::KTSourceSelectionView(Preferences* preferences, QWidget* parent,
                                             std::shared_ptr<kit::MountSource> mounts,
                                             const std::string& variableData)
    : KTColumnListView("lst_source", ListType::Multiple, Columns(preferences), parent),
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
    fReader->ListVolumes();
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
        path = fVolumes.at(way.back()).path;
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

bool KTSourceSelectionView::IsUnread(KTRow row) const {
    return Rows().IsSuperItem(row) && Rows().UserFlag(row) == 0;
}

bool KTSourceSelectionView::CanBeRuled(KTRow row) const {
    // The rule of a file of this name would be that of everything beside it.
    return IsDirectory(row) || Rows().TextAt(row, kName) != "*";
}

// --- marks and rules ----------------------------------------------------------------------------

void KTSourceSelectionView::RecordSelection(KTRow row, bool include) {
    fRules.Record(include, PathOf(row, false), IsDirectory(row));
}

void KTSourceSelectionView::MultiSelect(KTRow row) {
    if (!CanBeRuled(row)) return;
    RecordSelection(row, true);
    KTColumnListView::MultiSelect(row);
}

void KTSourceSelectionView::MultiDeselect(KTRow row) {
    if (!CanBeRuled(row)) return;
    RecordSelection(row, false);
    KTColumnListView::MultiDeselect(row);
}

void KTSourceSelectionView::MultiSelectAll(bool select) {
    fSelectAllLater = select && !fVolumesKnown;
    if (select) return KTColumnListView::MultiSelectAll(true);
    Rows().ClearMarks();
    fRules.Clear();
}

bool KTSourceSelectionView::HasSelection() const {
    if (Rows().HasMarks() || fSelectAllLater) return true;
    const auto rules = core::selection::Rules(fRules.Message());
    return fRules.HasOpen() &&
           std::any_of(rules.begin(), rules.end(), [](const auto& rule) { return rule.include; });
}

void KTSourceSelectionView::SetSelection(const BMessage& message, bool expand) {
    const int32_t count = message.Count(core::kSelectionField, B_STRING_TYPE);
    for (int32_t i = 0; i < count; ++i)
        Apply(*message.FindString(core::kSelectionField, i), expand);
}

KTSourceSelectionView::Walk KTSourceSelectionView::WalkTo(
    const std::vector<std::string>& components) const {
    Walk walk;
    for (const std::string& component : components) {
        const KTRow child = Rows().ChildByText(walk.row, kName, component);
        if (child == kNoRow) {
            const bool unread = walk.row == kNoRow ? !fVolumesKnown : IsUnread(walk.row);
            walk.end = unread ? Walk::Unread : Walk::Missing;
            return walk;
        }
        walk.row = child;
    }
    walk.end = walk.row == kNoRow ? Walk::Missing : Walk::Found;
    return walk;
}

void KTSourceSelectionView::ReadFor(KTRow row) {
    if (row != kNoRow && IsUnread(row) && !IsReading(row) && !fUnreadable.contains(row))
        GetDirectory(row);
}

void KTSourceSelectionView::Apply(std::string_view rule, bool expand) {
    const bool include = rule.starts_with("INCLUDE");
    const auto components = SourceRules::Components(rule);
    const Walk walk = WalkTo(components);
    if (components.empty() || walk.end == Walk::Missing) return;
    if (expand) ReadFor(walk.row);
    if (walk.end == Walk::Found) {
        if (include)
            MultiSelect(walk.row);
        else
            MultiDeselect(walk.row);
        return;
    }
    core::SelectionRule open{include, rule.ends_with("/*"), {}};
    for (const std::string& component : components)
        open.path += "/" + component;
    fRules.Record(include, open.path, open.subtree);
    fRules.OpenRules().push_back({open.Text(), expand});
    if (include) MarkUpwards(walk.row);
}

void KTSourceSelectionView::SettleOpenRules() {
    if (!fRules.HasOpen()) return;
    std::vector<SourceRules::Open> still;
    for (SourceRules::Open& open : std::exchange(fRules.OpenRules(), {})) {
        // A later mark or unmark above it may have replaced it.
        if (!fRules.Has(open.text)) continue;
        const Walk walk = WalkTo(SourceRules::Components(open.text));
        if (walk.end == Walk::Missing) {
            fRules.Drop(open.text);
            UnmarkWithoutRules(walk.row);
            continue;
        }
        if (open.read) ReadFor(walk.row);
        if (walk.end == Walk::Unread) {
            still.push_back(std::move(open));
            continue;
        }
        auto rule = core::SelectionRule::Parse(open.text);
        if (rule && rule->subtree != IsDirectory(walk.row)) {
            // What was a file is a directory now, or the other way round.
            rule->subtree = !rule->subtree;
            fRules.Replace(open.text, *rule);
        }
        MarkByRules(walk.row);
    }
    fRules.OpenRules() = std::move(still);
}

void KTSourceSelectionView::MarkUpwards(KTRow row) {
    for (; row != kNoRow && !Rows().IsMarked(row); row = Rows().Superitem(row))
        Rows().SetMarked(row, true);
}

// Gives a row, and what is below it, the marks that the rules ask for, without recording anything.
void KTSourceSelectionView::MarkByRules(KTRow row) {
    const std::string path = PathOf(row, false);
    const auto& matcher = fRules.Matcher();
    if (!IsDirectory(row) || matcher.IsUniform(path)) {
        if (matcher.Includes(path))
            Rows().MultiSelect(row);
        else if (Rows().IsMarked(row))
            Rows().MultiDeselect(row);
        return;
    }
    if (matcher.MayInclude(path)) MarkUpwards(row);
    const int32_t count = Rows().ChildCount(row);
    for (int32_t i = 0; i < count; ++i)
        MarkByRules(Rows().ChildAt(row, i));
    UnmarkEmptied(row);
}

// As after unmarking: a directory of whose entries none is marked is not marked either.
void KTSourceSelectionView::UnmarkEmptied(KTRow row) {
    for (; row != kNoRow && Rows().IsMarked(row); row = Rows().Superitem(row)) {
        if (Rows().ChildCount(row) == 0 || Rows().HasMarksBelow(row)) return;
        Rows().SetMarked(row, false);
    }
}

// A rule that led here is gone: what was marked only because of it is so no more.
void KTSourceSelectionView::UnmarkWithoutRules(KTRow row) {
    for (; row != kNoRow && !Rows().HasMarksBelow(row); row = Rows().Superitem(row)) {
        if (fRules.Matcher().MayInclude(PathOf(row, false))) return;
        Rows().SetMarked(row, false);
    }
}

// --- files --------------------------------------------------------------------------------------

int32_t KTSourceSelectionView::SaveSelection(BMessage& request, const BMessage& selection) const {
    if (!HasSelection()) {
        request.Clear();
        return 4;
    }
    const auto directory = request.Find<entry_ref>("directory");
    const auto name = request.FindString("name");
    if (!directory || !name) return static_cast<int32_t>(core::HeaderSave::CannotCreate);
    return static_cast<int32_t>(core::SaveHeaderFile(directory->path + "/" + std::string(*name),
                                                     core::kSelectionMagic, selection,
                                                     core::kBackupSelectionType));
}

int32_t KTSourceSelectionView::LoadSelection(const BMessage& request, BMessage* selection) {
    const auto file = request.Find<entry_ref>("refs");
    if (!file) return static_cast<int32_t>(core::HeaderLoad::CannotOpen);
    return static_cast<int32_t>(core::LoadHeaderFile(file->path, core::kSelectionMagic, selection));
}

// --- cells --------------------------------------------------------------------------------------

void KTSourceSelectionView::ColumnWidthChanged(int column, float width) {
    if (!fPreferences || column < 0 || column >= static_cast<int>(std::size(kWidths))) return;
    if (const char* key = kWidths[column].stored) fPreferences->Set(key, width);
}

QString KTSourceSelectionView::CellText(KTRow row, int column) const {
    const int64_t number = Rows().NumberAt(row, column);
    switch (column) {
        case kName: {
            QString name = KTControl::Shown(Rows().TextAt(row, kName));
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
            const auto volume = fVolumes.find(VolumeOf(row));
            if (volume == fVolumes.end()) return {};  // it is being removed
            return QStringLiteral("%1, %2")
                .arg(volume->second.device)
                .arg(static_cast<uint64_t>(number));
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
    if (colorIndex != kVolumeColor) return {};
    rgb_color color{49, 61, 225, 255};
    if (fPreferences) color = fPreferences->GetColor("COLOR_VOLUME", color);
    return QColor(color.red, color.green, color.blue, color.alpha);
}

KTRowStore::Mark KTSourceSelectionView::CellMark(KTRow row) const {
    const auto mark = Rows().MarkOf(row);
    if (mark != KTRowStore::Mark::Whole || !fRules.HasOpen() || !Rows().IsSuperItem(row))
        return mark;
    // What is not there yet counts, too.
    return fRules.Matcher().IsUniform(PathOf(row, false)) ? mark : KTRowStore::Mark::Part;
}

QString KTSourceSelectionView::SpokenRow(KTRow row) const {
    QString spoken = KTControl::Shown(Rows().TextAt(row, kName));
    if (IsReading(row)) spoken += ", " + KTControl::Text(core::kMoreBeingRead);
    return spoken;
}

void KTSourceSelectionView::doItemsLayout() {
    QElapsedTimer timer;
    timer.start();
    KTColumnListView::doItemsLayout();
    fLayoutMs = static_cast<double>(timer.nsecsElapsed()) / 1e6;
}
