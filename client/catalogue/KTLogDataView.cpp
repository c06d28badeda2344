#include "client/catalogue/KTLogDataView.h"

#include <QDragEnterEvent>
#include <QFileInfo>
#include <QLocale>
#include <QMimeData>
#include <QUrl>
#include <array>

#include "client/selection/SourceIcons.h"
#include "client/settings/ColumnWidths.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "core/files/HeaderFile.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr ColumnWidth kWidths[] = {{"", 20},
                                   {"RESNAMECOLWIDTH", 230},
                                   {"RESSIZECOLWIDTH", 80},
                                   {"RESDATECOLWIDTH", 170},
                                   {"", 80},
                                   {"", 120},
                                   {"RESREDIRECTCOLWIDTH", 150},
                                   {"RESMEDIACOLWIDTH", 60},
                                   {"RESOFFSETCOLWIDTH", 80},
                                   {"RESINDEXCOLWIDTH", 60}};

// Colours of rows, in the order of the numbers that rows hold.
struct ColorSetting {
    const char* key;
    rgb_color usual;
};
constexpr std::array<ColorSetting, 5> kColors = {{{"", {}},
                                                  {"COLOR_BACKUP", {255, 0, 0, 255}},
                                                  {"COLOR_DIR", {49, 61, 225, 255}},
                                                  {"COLOR_SYMLINK", {49, 61, 225, 255}},
                                                  {"COLOR_VOLUME", {49, 61, 225, 255}}}};

std::vector<KTColumn> Columns(const Preferences* preferences) {
    using namespace core::text;
    using enum KTColumnKind;
    const std::pair<QString, KTColumnKind> columns[] = {
        {{}, Icon},
        {KTControl::Text(kName), Text},
        {KTControl::Text(kSize), Number},
        {KTControl::Text(kDate), Time},
        {KTControl::Text(kTargetType), Number},
        {KTControl::Text(kFile), Text},
        {KTControl::Text(kRedirect), Text},
        {"MediaNr", Number},
        {"Offset", Number},
        {"Index", Number},
    };
    std::vector<KTColumn> made;
    for (const auto& [label, kind] : columns) {
        made.emplace_back(label, WidthOf(kWidths[made.size()], preferences), kLeastColumnWidth,
                          kind);
    }
    return made;
}

// The directory that a drop brings; "" when it brings none.
std::string DroppedDirectory(const QMimeData* data) {
    for (const QUrl& url : data->urls()) {
        const QString path = url.toLocalFile();
        if (!path.isEmpty() && QFileInfo(path).isDir())
            return QFile::encodeName(path).toStdString();
    }
    return {};
}

}  // namespace

KTLogDataView::KTLogDataView(ServerLink* server, Preferences* preferences, QWidget* parent)
    : KTRuledListView("lst_catalogue", ListType::Multiple, Columns(preferences), parent),
      fServer(server),
      fPreferences(preferences) {
    SetOutline(true);
    setAccessibleName(KTControl::Text(core::kMoreCatalogue));
    SetEmptyText(KTControl::Text(core::kMoreLookingForBackups));
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    GetBackups();
}

KTLogDataView::~KTLogDataView() = default;

// --- rows ---------------------------------------------------------------------------------------

KTLogDataView::Target KTLogDataView::TargetOf(KTRow row) const {
    return static_cast<Target>(Rows().NumberAt(row, kType));
}

KTRow KTLogDataView::BackupOf(KTRow row) const {
    while (row != kNoRow && TargetOf(row) != Target::Backup)
        row = Rows().Superitem(row);
    return row;
}

std::string KTLogDataView::NameOfBackup(KTRow backup) const {
    return std::string(Rows().TextAt(backup, kFile));
}

std::string KTLogDataView::TitleOf(KTRow backup) const {
    return std::string(Rows().TextAt(Rows().Superitem(backup), kName));
}

std::string KTLogDataView::RulePath(KTRow row) const {
    std::vector<KTRow> way;
    for (; row != kNoRow && TargetOf(row) != Target::Set; row = Rows().Superitem(row))
        way.push_back(row);
    std::string path;
    for (; !way.empty(); way.pop_back()) {
        path += '/';
        path += Rows().TextAt(way.back(), kFile);
    }
    return path;
}

bool KTLogDataView::IsDirectory(KTRow row) const {
    return TargetOf(row) < Target::File || Rows().NumberAt(row, kSize) == -1;
}

KTRow KTLogDataView::RowOfBackup(std::string_view name) const {
    for (int32_t i = 0; i < Rows().ChildCount(kNoRow); ++i) {
        const KTRow backup = Rows().ChildByText(Rows().ChildAt(kNoRow, i), kFile, name);
        if (backup != kNoRow) return backup;
    }
    return kNoRow;
}

KTRow KTLogDataView::EntryBelow(KTRow row, std::string_view name) const {
    return row == kNoRow ? RowOfBackup(name) : Rows().ChildByText(row, kFile, name);
}

KTRow KTLogDataView::SearchEntry(int32_t key, std::string_view title) const {
    for (int32_t i = 0; i < Rows().ChildCount(kNoRow); ++i) {
        const KTRow set = Rows().ChildAt(kNoRow, i);
        const int64_t other = Rows().NumberAt(set, kMedia);
        const bool found =
            key != 0 && other != 0 ? other == key : Rows().TextAt(set, kName) == title;
        if (found) return set;
    }
    return kNoRow;
}

std::vector<KTRow> KTLogDataView::MarkedBackups() const {
    std::vector<KTRow> marked;
    for (int32_t i = 0; i < Rows().ChildCount(kNoRow); ++i) {
        const KTRow set = Rows().ChildAt(kNoRow, i);
        if (!Rows().IsMarked(set)) continue;
        for (int32_t k = 0; k < Rows().ChildCount(set); ++k)
            if (const KTRow backup = Rows().ChildAt(set, k); Rows().IsMarked(backup))
                marked.push_back(backup);
    }
    return marked;
}

std::vector<KTRow> KTLogDataView::WholeBackups() const {
    std::vector<KTRow> whole = MarkedBackups();
    const core::SelectionMatcher& matcher = Rules().Matcher();
    std::erase_if(whole, [&](KTRow backup) {
        const std::string path = RulePath(backup);
        return !matcher.IsUniform(path) || !matcher.Includes(path);
    });
    return whole;
}

std::string KTLogDataView::FirstMarked() const {
    const auto marked = MarkedBackups();
    if (marked.empty()) return {};
    const core::SelectionMatcher& matcher = Rules().Matcher();
    KTRow row = marked.front();
    std::string path = RulePath(row);
    while (!matcher.Includes(path)) {
        KTRow below = kNoRow;
        for (int32_t i = 0; below == kNoRow && i < Rows().ChildCount(row); ++i)
            if (const KTRow child = Rows().ChildAt(row, i); Rows().IsMarked(child)) below = child;
        if (below == kNoRow) break;
        row = below;
        path = RulePath(row);
    }
    if (matcher.Includes(path)) return path;
    // What is marked below has not been fetched yet.
    for (const core::SelectionRule& rule : core::selection::Rules(Rules().Message()))
        if (rule.include && rule.path.starts_with(path + "/")) return rule.path;
    return {};
}

// --- the selection ------------------------------------------------------------------------------

void KTLogDataView::MultiSelectAll(bool select) {
    KTRuledListView::MultiSelectAll(select);
    if (select || fRedirections.IsEmpty()) return;
    fRedirections.Clear();
    RedirectionsAreNew();
}

void KTLogDataView::RecordSelection(KTRow row, bool include) {
    if (TargetOf(row) != Target::Set) return KTRuledListView::RecordSelection(row, include);
    for (int32_t i = 0; i < Rows().ChildCount(row); ++i)
        KTRuledListView::RecordSelection(Rows().ChildAt(row, i), include);
}

void KTLogDataView::GetSelectionList(BMessage* message) const {
    GetSelection(message);
    for (const char* field : {core::kSourceField, core::kRedirectField})
        for (int32_t i = 0; i < fRedirections.Count(field); ++i)
            message->Add(field, *fRedirections.FindString(field, i));
}

void KTLogDataView::SetSelection(const BMessage& message, bool fetch) {
    KTRuledListView::SetSelection(message, fetch);
    SetRedirection(message);
}

void KTLogDataView::SetRedirection(const BMessage& message) {
    const core::Redirections wanted(message);
    for (const core::Redirection& one : wanted.Records()) {
        if (one.target.empty())
            core::Redirections::RecordClear(fRedirections, one.source, one.subtree);
        else if (Rules().Matcher().MayInclude(one.source))
            core::Redirections::Record(fRedirections, one.source, one.subtree, one.target);
    }
    RedirectionsAreNew();
}

// --- redirections -------------------------------------------------------------------------------

void KTLogDataView::RecordRedirection(KTRow row, bool redirect, std::string_view target) {
    const bool subtree = IsDirectory(row);
    if (redirect)
        core::Redirections::Record(fRedirections, RulePath(row), subtree, target);
    else
        core::Redirections::RecordClear(fRedirections, RulePath(row), subtree);
}

void KTLogDataView::AddRedirection(KTRow row, std::string_view target) {
    if (!Rows().Has(row) || !Rows().IsMarked(row) || !target.starts_with('/')) return;
    if (TargetOf(row) == Target::Set) {
        for (int32_t i = 0; i < Rows().ChildCount(row); ++i)
            if (const KTRow backup = Rows().ChildAt(row, i); Rows().IsMarked(backup))
                RecordRedirection(backup, true, target);
    } else {
        RecordRedirection(row, true, target);
    }
    RedirectionsAreNew();
}

void KTLogDataView::ClearRedirection(KTRow row) {
    if (!Rows().Has(row)) return;
    if (TargetOf(row) == Target::Set) {
        for (int32_t i = 0; i < Rows().ChildCount(row); ++i)
            RecordRedirection(Rows().ChildAt(row, i), false, {});
    } else {
        RecordRedirection(row, false, {});
    }
    RedirectionsAreNew();
}

void KTLogDataView::ClearAllRedirections() {
    for (int32_t i = 0; i < Rows().ChildCount(kNoRow); ++i)
        ClearRedirection(Rows().ChildAt(kNoRow, i));
}

void KTLogDataView::RedirectionsAreNew() {
    fParsed.reset();
    viewport()->update();
    emit RedirectionsChanged();
}

const core::Redirections& KTLogDataView::Redirected() const {
    if (!fParsed) fParsed.emplace(fRedirections);
    return *fParsed;
}

void KTLogDataView::HideRedirections() {
    setColumnHidden(kRedirect, true);
    setAcceptDrops(false);
    viewport()->setAcceptDrops(false);
}

// --- drops --------------------------------------------------------------------------------------

void KTLogDataView::dragEnterEvent(QDragEnterEvent* event) {
    if (DroppedDirectory(event->mimeData()).empty()) return event->ignore();
    event->acceptProposedAction();
}

void KTLogDataView::dragMoveEvent(QDragMoveEvent* event) {
    const KTRow row = RowAt(event->position().toPoint());
    const bool fits = row != kNoRow && Rows().IsMarked(row);
    event->setDropAction(Qt::LinkAction);
    event->setAccepted(fits);
}

void KTLogDataView::dropEvent(QDropEvent* event) {
    const std::string directory = DroppedDirectory(event->mimeData());
    const KTRow row = RowAt(event->position().toPoint());
    if (directory.empty() || row == kNoRow) return event->ignore();
    event->setDropAction(Qt::LinkAction);
    event->accept();
    AddRedirection(row, directory);
}

// --- cells --------------------------------------------------------------------------------------

void KTLogDataView::ColumnWidthChanged(int column, float width) {
    StoreWidth(kWidths, column, width, fPreferences);
}

QString KTLogDataView::NameOf(KTRow row) const {
    using namespace core::text;
    switch (TargetOf(row)) {
        case Target::Set: {
            const std::string_view title = Rows().TextAt(row, kName);
            return title.empty() ? KTControl::Text(kNoTitle) : KTControl::Shown(title);
        }
        case Target::Backup: {
            const int64_t mode = Rows().NumberAt(row, kIcon);
            return KTControl::Text(mode == 1   ? kFullBackup
                                   : mode == 2 ? kIncrementalBackup
                                   : mode == 3 ? kDifferentialBackup
                                               : kBackup);
        }
        default:
            return KTControl::Shown(Rows().TextAt(row, kFile));
    }
}

QString KTLogDataView::CellText(KTRow row, int column) const {
    const Target target = TargetOf(row);
    switch (column) {
        case kName:
            if (IsReading(row)) return NameOf(row) + QStringLiteral(" …");
            if (fLocked.contains(row))
                return NameOf(row) + " (" + KTControl::Text(core::kMoreLocked) + ")";
            return NameOf(row);
        case kSize: {
            const int64_t size = Rows().NumberAt(row, kSize);
            return size < 0 || target == Target::Set ? QString()
                                                     : QLocale().formattedDataSize(size, 1);
        }
        case kDate:
            if (target == Target::Set) return {};
            break;
        case kRedirect: {
            const std::string path = RulePath(row);
            const core::Redirection* one = path.empty() ? nullptr : Redirected().Of(path);
            if (!one) return {};
            const std::string below = path.substr(one->source.size());
            return KTControl::Shown(one->target == "/" && !below.empty() ? below
                                                                         : one->target + below);
        }
        case kType:
        case kFile:
        case kOffset:
        case kIndex:
            if (target == Target::Set) return {};
            break;
        default:
            break;
    }
    return KTRuledListView::CellText(row, column);
}

QIcon KTLogDataView::CellIcon(KTRow row) const {
    const auto entry = [&](SourceKind kind) {
        return SourceIcons::For(kind, Rows().TextAt(row, kFile));
    };
    switch (TargetOf(row)) {
        case Target::Set:
            return KTIcons::Get("backup");
        case Target::Backup: {
            const int64_t mode = Rows().NumberAt(row, kIcon);
            return KTIcons::Get(mode == 2   ? "backup-incremental"
                                : mode == 3 ? "backup-differential"
                                            : "backup-full");
        }
        case Target::Directory:
            return entry(SourceKind::Directory);
        case Target::Link:
            return entry(SourceKind::FileLink);
        case Target::Volume:
            return entry(SourceKind::Volume);
        case Target::File:
            break;
    }
    return entry(SourceKind::File);
}

QColor KTLogDataView::CellColor(uint8_t colorIndex) const {
    if (colorIndex == kNormalColor || colorIndex >= kColors.size()) return {};
    const ColorSetting& color = kColors[colorIndex];
    const rgb_color shown =
        fPreferences ? fPreferences->GetColor(color.key, color.usual) : color.usual;
    return QColor(shown.red, shown.green, shown.blue, shown.alpha);
}

QString KTLogDataView::SpokenRow(KTRow row) const {
    QString spoken = KTRuledListView::SpokenRow(row);
    if (fLocked.contains(row)) spoken += ", " + KTControl::Text(core::kMoreLocked);
    return spoken;
}

SelectionFile::Kind KTLogDataView::SelectionFiles() const {
    return {core::kRestoreSelectionMagic, core::kRestoreSelectionType};
}
