#include "client/catalogue/KTLogDataView.h"

#include <QDragEnterEvent>
#include <QFileInfo>
#include <QLocale>
#include <QMimeData>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <array>

#include "client/app/ClientCodes.h"
#include "client/app/ServerQuestion.h"
#include "client/selection/SourceIcons.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTIcons.h"
#include "client/uikit/KTWindowLooper.h"
#include "core/files/HeaderFile.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"

namespace {

constexpr float kLeastWidth = 20;
constexpr std::chrono::seconds kPatience{60};
constexpr uint32_t kAnswered = "ldan"_code;

struct ColumnWidth {
    const char* key;
    float usual;
};
constexpr std::array<ColumnWidth, 10> kWidths = {{{"", 20},
                                                  {"RESNAMECOLWIDTH", 230},
                                                  {"RESSIZECOLWIDTH", 80},
                                                  {"RESDATECOLWIDTH", 170},
                                                  {"", 80},
                                                  {"", 120},
                                                  {"RESREDIRECTCOLWIDTH", 150},
                                                  {"RESMEDIACOLWIDTH", 60},
                                                  {"RESOFFSETCOLWIDTH", 80},
                                                  {"RESINDEXCOLWIDTH", 60}}};

// Colours of rows, in the order of the numbers that rows hold.
struct RowColor {
    const char* key;
    rgb_color usual;
};
enum { kNormalColor, kBackupColor, kDirectoryColor, kLinkColor, kVolumeColor };
constexpr std::array<RowColor, 5> kColors = {{{"", {}},
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
        const ColumnWidth& width = kWidths[made.size()];
        made.emplace_back(
            label,
            preferences && *width.key ? preferences->GetFloat(width.key, width.usual) : width.usual,
            kLeastWidth, kind);
    }
    return made;
}

uint8_t ColorOf(KTLogDataView::Target target) {
    switch (target) {
        case KTLogDataView::Target::Backup:
            return kBackupColor;
        case KTLogDataView::Target::Directory:
            return kDirectoryColor;
        case KTLogDataView::Target::Link:
            return kLinkColor;
        case KTLogDataView::Target::Volume:
            return kVolumeColor;
        default:
            return kNormalColor;
    }
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

// --- fetching -----------------------------------------------------------------------------------

void KTLogDataView::Ask(KTRow row, BMessage question) {
    const int32_t number = ++fNumber;
    if (row == kNoRow) {
        fTopNumber = number;
    } else {
        fReadings[number] = row;
        fReading[row] = number;
    }
    client::AskLater(fServer, std::move(question), this, kAnswered, number);
    // A server that stays silent says nothing; an answer that comes after all is not awaited.
    QTimer::singleShot(kPatience, this, [this, number] {
        BMessage silence(kAnswered);
        silence.Add("number", number);
        Answered(silence);
    });
}

void KTLogDataView::GetBackups() {
    BMessage question(core::code::kListCatalogue);
    question.Add("path", "/");
    Ask(kNoRow, std::move(question));
}

void KTLogDataView::Read(KTRow row) {
    if (!Rows().IsSuperItem(row) || IsReading(row)) return;
    BMessage question(core::code::kListCatalogue);
    question.Add("path", RulePath(row));
    question.Add("index", static_cast<int32_t>(Rows().NumberAt(row, kIndex)));
    Ask(row, std::move(question));
}

void KTLogDataView::Expand(KTRow row) {
    fAsked = row;
    KTRuledListView::Expand(row);
}

void KTLogDataView::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kAnswered:
            return Answered(message);
        case core::code::kCatalogue:
            return InsertList(message, kNoRow);
        case core::code::kBackupRemoved:
            for (int32_t i = 0; i < message.Count("name"); ++i)
                RemoveList(message.FindString("name", i).value_or(""));
            return;
        case client::code::kServerBack:
            EndReadings();
            return GetBackups();
        case client::code::kServerGone:
            return EndReadings();
        default:
            KTRuledListView::MessageReceived(message);
    }
}

void KTLogDataView::Answered(const BMessage& message) {
    const int32_t number = message.Get<int32_t>("number", 0);
    const auto answer = message.Find<BMessage>("answer");
    if (number == fTopNumber) {
        fTopNumber = 0;
        return TopAnswered(answer);
    }
    const auto reading = fReadings.find(number);
    if (reading == fReadings.end()) return;  // nobody waits for it any more
    const KTRow row = reading->second;
    fReading.erase(row);
    fReadings.erase(reading);
    const bool locked = answer && answer->Get<int32_t>("locked", 0) != 0;
    if (!answer || locked) {
        if (locked) fLocked.insert(row);
        ReadFailed(row);
        Collapse(row);
        if (locked && std::exchange(fAsked, kNoRow) == row) emit Locked(row);
        return;
    }
    fLocked.erase(row);
    if (answer->what != core::code::kNone) InsertEntries(*answer, row);
    ReadWell(row);
    SettleOpenRules();
}

void KTLogDataView::TopAnswered(const std::optional<BMessage>& answer) {
    if (!answer) {
        SetEmptyText(KTControl::Text(core::kMoreNoCatalogue));
        return;
    }
    SetEmptyText(KTControl::Text(core::kMoreNoBackups));
    std::unordered_set<std::string> listed;
    for (int32_t i = 0; i < answer->Count("name"); ++i)
        listed.insert(answer->Get("name", std::string(), i));
    for (int32_t i = Rows().ChildCount(kNoRow); i-- > 0;) {
        const KTRow set = Rows().ChildAt(kNoRow, i);
        for (int32_t k = Rows().ChildCount(set); k-- > 0;) {
            const KTRow backup = Rows().ChildAt(set, k);
            if (!listed.contains(NameOfBackup(backup))) RemoveBackup(backup);
        }
    }
    fKnown = true;
    InsertList(*answer, kNoRow);
    TopRead();
}

void KTLogDataView::ForgetReading(KTRow row) {
    const auto within = [this, row](KTRow other) {
        for (; other != kNoRow; other = Rows().Superitem(other))
            if (other == row) return true;
        return false;
    };
    std::erase_if(fReadings, [&](const auto& reading) { return within(reading.second); });
    std::erase_if(fReading, [&](const auto& reading) { return within(reading.first); });
    std::erase_if(fLocked, within);
    ForgetFailures(within);
    if (fAsked != kNoRow && within(fAsked)) fAsked = kNoRow;
}

void KTLogDataView::EndReadings() {
    fReadings.clear();
    for (const auto& [row, number] : std::exchange(fReading, {})) {
        ReadFailed(row);
        Collapse(row);
    }
}

// --- inserting and removing ---------------------------------------------------------------------

void KTLogDataView::InsertList(const BMessage& list, KTRow parent) {
    if (parent != kNoRow) return InsertEntries(list, parent);
    for (int32_t i = 0; list.Find<int32_t>("type", i).has_value(); ++i)
        if (list.Get<int32_t>("type", 0, i) == static_cast<int32_t>(Target::Backup))
            InsertBackup(list, i);
}

void KTLogDataView::InsertBackup(const BMessage& list, int32_t index) {
    const std::string name = list.Get("name", std::string(), index);
    if (name.empty() || RowOfBackup(name) != kNoRow) return;
    const std::string title = list.Get("title", std::string(), index);
    const int32_t base = list.Get<int32_t>("base_id", 0, index);
    const int32_t key = base != 0 ? base : list.Get<int32_t>("job_id", 0, index);
    KTRow set = SearchEntry(key, title);
    if (set == kNoRow) {
        const std::string_view texts[] = {title, {}, {}};
        const int64_t numbers[] = {0, 0, 0, static_cast<int64_t>(Target::Set), key, 0, 0};
        set = Rows().AddUnder(kNoRow, {texts, numbers, true, false, kNormalColor});
        Rows().SetUserFlag(set, 1);
    }
    const std::string_view texts[] = {name, name, {}};
    const int64_t numbers[] = {
        list.Get<int32_t>("mode", 0, index) & 0xFF, list.Get<int64_t>("size", -1, index),
        list.Get("date", BTime(), index).seconds,   static_cast<int64_t>(Target::Backup),
        list.Get<int32_t>("medianr", 0, index),     list.Get<int64_t>("offset", 0, index),
        list.Get<int32_t>("index", 0, index)};
    const KTRow backup = Rows().AddUnder(set, {texts, numbers, true, false, kBackupColor});
    if (!Rules().IsEmpty()) MarkByRules(backup);
}

void KTLogDataView::InsertEntries(const BMessage& list, KTRow parent) {
    struct Entry {
        std::array<std::string_view, 3> texts;
        std::array<int64_t, 7> numbers;
    };
    std::vector<Entry> entries;
    entries.reserve(static_cast<size_t>(list.Count("type")));
    for (int32_t i = 0; const auto type = list.Find<int32_t>("type", i); ++i) {
        const std::string_view name = list.FindString("name", i).value_or("");
        if (name.empty()) continue;
        entries.push_back(
            {{name, name, {}},
             {0, list.Get<int64_t>("size", 0, i), list.Get("date", BTime(), i).seconds, *type,
              list.Get<int32_t>("medianr", 0, i), list.Get<int64_t>("offset", 0, i),
              list.Get<int32_t>("index", 0, i)}});
    }
    const Taken taken(*this, parent);
    std::vector<KTRowData> rows;
    rows.reserve(entries.size());
    bool anyMarked = false;
    for (const Entry& entry : entries) {
        const auto target = static_cast<Target>(entry.numbers[3]);
        const bool super = target == Target::Directory || target == Target::Volume;
        const bool marked = taken(entry.texts[0], super);
        anyMarked = anyMarked || marked;
        rows.push_back({entry.texts, entry.numbers, super, marked, ColorOf(target)});
    }
    if (anyMarked) MarkUpwards(parent);
    Rows().AddList(parent, rows);
}

void KTLogDataView::RemoveList(std::string_view name) {
    const KTRow backup = RowOfBackup(name);
    if (backup == kNoRow) return;
    // What was wanted of it cannot be had any more.
    const std::string path = RulePath(backup);
    Rules().Forget(path);
    core::Redirections::Remove(fRedirections, path, true);
    RedirectionsAreNew();
    RemoveBackup(backup);
}

void KTLogDataView::RemoveBackup(KTRow backup) {
    ForgetReading(backup);
    const KTRow set = Rows().Superitem(backup);
    if (Rows().IsMarked(backup)) KTColumnListView::MultiDeselect(backup);
    Rows().Remove(backup);
    if (Rows().ChildCount(set) == 0) Rows().Remove(set);
}

// --- cells --------------------------------------------------------------------------------------

void KTLogDataView::ColumnWidthChanged(int column, float width) {
    if (const char* key = kWidths[static_cast<size_t>(column)].key; *key && fPreferences)
        fPreferences->Set(key, width);
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
    const RowColor& color = kColors[colorIndex];
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
