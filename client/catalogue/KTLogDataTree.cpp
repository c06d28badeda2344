// How a KTLogDataView gets its rows: fetched from the server level by level, and in step with its
// notices.
#include <QTimer>
#include <array>

#include "client/app/ClientCodes.h"
#include "client/app/ServerQuestion.h"
#include "client/catalogue/KTLogDataView.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr uint32_t kAnswered = "ldan"_code;

}  // namespace

KTLogDataView::RowColor KTLogDataView::ColorOf(Target target) {
    switch (target) {
        case Target::Backup:
            return kBackupColor;
        case Target::Directory:
            return kDirectoryColor;
        case Target::Link:
            return kLinkColor;
        case Target::Volume:
            return kVolumeColor;
        default:
            return kNormalColor;
    }
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
