// How a KTSourceSelectionView gets its rows, and keeps them in step with what is on disk.
#include <QElapsedTimer>
#include <algorithm>
#include <set>

#include "client/selection/KTSourceSelectionView.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "kit/app/BLooper.h"

namespace {

// What a turn of the window's thread may take for rows; the layout of a long list comes on top.
constexpr int kInsertMs = 10;
constexpr int kEventsMs = 30;        // events of one burst are looked at together
constexpr size_t kMostEvents = 256;  // at a time

// The values of one entry of a batch; a batch comes from our own reader, yet it is read as
// carefully as any message.
struct Entry {
    Entry(const BMessage& batch, int32_t i)
        : name(batch.FindString("name", i).value_or(std::string_view())),
          kind(static_cast<SourceKind>(batch.Get<int8_t>("kind", 0, i))),
          numbers{static_cast<int64_t>(kind), batch.Get<int64_t>("size", 0, i),
                  batch.Get<int64_t>("attributes", 0, i), batch.Get<int64_t>("modified", 0, i),
                  batch.Get<int64_t>("node", 0, i)} {}
    bool IsDirectory() const { return kind == SourceKind::Directory; }

    std::string_view name;
    SourceKind kind;
    std::array<int64_t, 5> numbers;  // of the columns that hold any, in their order
};

}  // namespace

void KTSourceSelectionView::MessageReceived(BMessage& message) {
    const int64_t read = message.Get<int64_t>("read", 0);
    switch (message.what) {
        case SourceReader::kVolumes:
            return VolumesListed(message);
        case SourceReader::kOpened:
            Opened(message);
            return fReader->Taken(read);
        case SourceReader::kBatch:
        case SourceReader::kEnd:
            if (!fReadings.contains(read)) return;  // cancelled meanwhile
            fWaiting.push_back(std::move(message));
            if (!fInsertLater.isActive()) InsertWaiting();
            return;
        case B_NODE_MONITOR:
            fEvents.push_back(std::move(message));
            if (!fEventsLater.isActive()) fEventsLater.start(kEventsMs);
            return;
        default:
            KTRuledListView::MessageReceived(message);
    }
}

bool KTSourceSelectionView::IsIdle() const {
    return fVolumes.AreKnown() && fReadings.empty() && fWaiting.empty() && fEvents.empty();
}

// --- volumes ------------------------------------------------------------------------------------

void KTSourceSelectionView::VolumesListed(const BMessage& message) {
    const auto news = fVolumes.Listed(message);
    if (!news) return;
    for (const KTRow row : news->gone)
        FreeSubItems(row, true);
    for (const auto& [row, place] : news->stay) {
        if (Rows().TextAt(row, kName) == message.FindString("name", place)) continue;
        // Rules go by names: what was marked under the former one is not this volume any more.
        FreeSubItems(row, true);
        AddVolume(message, place);
    }
    for (const int32_t place : news->come)
        AddVolume(message, place);
    SetEmptyText(KTControl::Text(core::kMoreNoVolumes));
    TopRead();
}

void KTSourceSelectionView::AddVolume(const BMessage& message, int32_t place) {
    const std::string_view texts[] = {message.FindString("name", place).value_or("")};
    const int64_t numbers[] = {
        static_cast<int64_t>(SourceKind::Volume), -1, message.Get<int64_t>("attributes", 0, place),
        message.Get<int64_t>("modified", 0, place), message.Get<int64_t>("node", 0, place)};
    const KTRow row = Rows().AddUnder(kNoRow, {texts, numbers, true, false, VolumeRows::kColor});
    fVolumes.Set(row, message, place);
    if (!Rules().IsEmpty()) MarkByRules(row);
}

// --- reading ------------------------------------------------------------------------------------

void KTSourceSelectionView::Expand(KTRow row) {
    // Its children are marked with it as they come. Rules about what is below it stay as they are.
    if (IsUnread(row) && !IsReading(row) && Rows().IsMarked(row)) {
        const std::string path = PathOf(row, false);
        if (Rules().Matcher().IsUniform(path) && Rules().Matcher().Includes(path))
            RecordSelection(row, true);
    }
    KTRuledListView::Expand(row);
}

void KTSourceSelectionView::Collapse(KTRow row) {
    KTRuledListView::Collapse(row);
    if (IsReading(row) && !Rules().HasOpen()) FreeSubItems(row, false);
}

void KTSourceSelectionView::GetDirectory(KTRow row) {
    if (!Rows().IsSuperItem(row)) return;
    FreeSubItems(row, false);
    const int64_t read = fReader->Read({PathOf(row, true), Rows().Superitem(row) == kNoRow, {}});
    fReadings[read] = {row, true, {}, {}};
    fReading[row] = read;
    Rows().SetUserFlag(row, 0);
}

void KTSourceSelectionView::FreeSubItems(KTRow row, bool self) {
    Forget(row, self);
    if (self) {
        Rows().Remove(row);
    } else {
        Rows().RemoveChildren(row);
        Rows().SetUserFlag(row, 0);
    }
}

// Ends everything that is going on at and below a row.
void KTSourceSelectionView::Forget(KTRow row, bool self) {
    auto within = [this, row](KTRow other) {
        for (; other != kNoRow; other = Rows().Superitem(other))
            if (other == row) return true;
        return false;
    };
    std::erase_if(fReadings, [&](const auto& reading) {
        if (!within(reading.second.row)) return false;
        fReader->Cancel(reading.first);
        return true;
    });
    std::erase_if(fReading, [&](const auto& reading) { return within(reading.first); });
    std::erase_if(fTouched, [&](const auto& touched) { return within(touched.first); });
    ForgetFailures(within);
    std::erase_if(fDirectories, [&](const auto& directory) {
        if (!within(directory.second)) return false;
        fMonitor->StopWatching(directory.first);
        return true;
    });
    if (self) fVolumes.Remove(row);
}

void KTSourceSelectionView::Opened(const BMessage& message) {
    const auto reading = fReadings.find(message.Get<int64_t>("read", 0));
    if (reading == fReadings.end()) return;
    fDirectories[{static_cast<uint64_t>(message.Get<int64_t>("device", 0)),
                  static_cast<uint64_t>(message.Get<int64_t>("node", 0))}] = reading->second.row;
}

void KTSourceSelectionView::InsertWaiting() {
    if (fWaiting.empty()) return;
    QElapsedTimer timer;
    timer.start();
    while (!fWaiting.empty() && timer.elapsed() < kInsertMs) {
        const BMessage message = std::move(fWaiting.front());
        fWaiting.pop_front();
        const int64_t read = message.Get<int64_t>("read", 0);
        const auto reading = fReadings.find(read);
        if (reading == fReadings.end()) continue;
        if (message.what == SourceReader::kEnd) {
            ReadEnded(read, message);
            continue;
        }
        InsertBatch(reading->second, message);
        fReader->Taken(read);
    }
    // Each insertion into a shown directory lays out the whole list anew: the longer that takes,
    // the more rows are gathered for it, and most of the time is left to the user.
    fInsertLater.start(static_cast<int>(fLayoutMs * 2));
}

void KTSourceSelectionView::InsertBatch(Reading& reading, const BMessage& batch) {
    const KTRow row = reading.row;
    const int32_t count = batch.Count("name");
    if (!reading.afresh) {
        for (int32_t i = 0; i < count; ++i) {
            const Entry entry(batch, i);
            reading.seen.emplace(entry.name);
            KTRow child = Rows().ChildByText(row, kName, entry.name);
            if (child != kNoRow) {
                Update(child, batch, i);
                continue;
            }
            const std::string_view texts[] = {entry.name};
            child = Rows().AddUnder(row, {texts, entry.numbers, entry.IsDirectory(), false, 0});
            Rules().Returned(PathOf(child, false));
            MarkByRules(child);
        }
        return;
    }

    const Taken taken(*this, row);

    std::vector<Entry> entries;
    entries.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i)
        entries.emplace_back(batch, i);
    std::vector<KTRowData> data;
    data.reserve(entries.size());
    bool anyMarked = false;
    for (const Entry& entry : entries) {
        const bool marked = taken(entry.name, entry.IsDirectory());
        anyMarked = anyMarked || marked;
        data.push_back({{&entry.name, 1}, entry.numbers, entry.IsDirectory(), marked, 0});
    }
    if (anyMarked) MarkUpwards(row);
    Rows().AddList(row, data);
}

void KTSourceSelectionView::Update(KTRow row, const BMessage& batch, int32_t index) {
    const Entry entry(batch, index);
    const bool other = Rows().NumberAt(row, kNode) != entry.numbers[4];
    if (Rows().IsSuperItem(row) && (other || !entry.IsDirectory())) {
        KTRuledListView::Collapse(row);
        FreeSubItems(row, false);
    }
    Rows().SetNumber(row, kIcon, entry.numbers[0]);
    Rows().SetNumber(row, kSize, entry.numbers[1]);
    Rows().SetNumber(row, kAttributes, entry.numbers[2]);
    Rows().SetNumber(row, kModified, entry.numbers[3]);
    Rows().SetNumber(row, kNode, entry.numbers[4]);
    if (Rows().IsSuperItem(row) != entry.IsDirectory())
        Rows().SetSuperItem(row, entry.IsDirectory());
}

void KTSourceSelectionView::ReadEnded(int64_t read, const BMessage& message) {
    const Reading reading = std::move(fReadings.at(read));
    fReadings.erase(read);
    const int32_t error = message.Get<int32_t>("error", 0);
    const bool whole = message.Get("whole", false);
    if (!reading.names.empty()) {
        // What was asked for and is not there has gone.
        for (const std::string& name : reading.names) {
            if (reading.seen.contains(name)) continue;
            const KTRow child = Rows().ChildByText(reading.row, kName, name);
            if (child != kNoRow) RemoveVanished(child);
        }
        return;
    }
    if (!reading.afresh && whole) {
        for (int32_t i = Rows().ChildCount(reading.row); i-- > 0;) {
            const KTRow child = Rows().ChildAt(reading.row, i);
            if (!reading.seen.contains(std::string(Rows().TextAt(child, kName))))
                RemoveVanished(child);
        }
    }
    fReading.erase(reading.row);
    if (error == 0 || error == ENOENT || error == ENOTDIR) {
        ReadWell(reading.row);
    } else {
        ReadFailed(reading.row);
    }
    const auto touched = fTouched.find(reading.row);
    if (touched != fTouched.end()) {
        auto names = std::move(touched->second);
        fTouched.erase(touched);
        Sync(reading.row, std::move(names));
    }
    SettleOpenRules();
}

// Looks what has become of these entries of a directory.
void KTSourceSelectionView::Sync(KTRow row, std::vector<std::string> names) {
    if (IsReading(row)) {
        auto& touched = fTouched[row];
        touched.insert(touched.end(), names.begin(), names.end());
        return;
    }
    if (names.empty()) return;
    const bool volume = Rows().Superitem(row) == kNoRow;
    const int64_t read = fReader->Read({PathOf(row, true), volume, names});
    fReadings[read] = {row, false, std::move(names), {}};
}

// --- following ----------------------------------------------------------------------------------

KTRow KTSourceSelectionView::RowOfDirectory(uint64_t device, uint64_t node) const {
    const auto found = fDirectories.find({device, node});
    return found == fDirectories.end() ? kNoRow : found->second;
}

// By where it was; by its node, which takes a look at every row, when that is not told.
KTRow KTSourceSelectionView::RowOfEvent(const BMessage& message, const char* directory,
                                        const char* name) const {
    const auto device = static_cast<uint64_t>(message.Get<int64_t>("device", 0));
    const auto parent = message.Find<int64_t>(directory);
    const auto entry = message.FindString(name);
    if (parent && entry) {
        const KTRow row = RowOfDirectory(device, static_cast<uint64_t>(*parent));
        return row == kNoRow ? kNoRow : Rows().ChildByText(row, kName, *entry);
    }
    const auto node = message.Find<int64_t>("node");
    if (!node) return kNoRow;
    for (KTRow row = Rows().First(); row != kNoRow; row = Rows().Next(row)) {
        if (Rows().NumberAt(row, kNode) == *node && Rows().Superitem(row) != kNoRow &&
            fVolumes.Find(VolumeOf(row))->device == device)
            return row;
    }
    return kNoRow;
}

void KTSourceSelectionView::HandleEvents() {
    std::unordered_map<KTRow, std::vector<std::string>> sync;
    // Of entries that are there again at the end of the burst nobody unmarks anything.
    std::set<std::pair<KTRow, std::string>> madeAgain;
    const size_t count = std::min(fEvents.size(), kMostEvents);
    auto directoryOf = [this](const BMessage& event) {
        return RowOfDirectory(static_cast<uint64_t>(event.Get<int64_t>("device", 0)),
                              static_cast<uint64_t>(event.Get<int64_t>("directory", 0)));
    };
    for (size_t i = 0; i < count; ++i) {
        const BMessage& event = fEvents[i];
        const auto name = event.FindString("name");
        if (event.Get<int32_t>("opcode", 0) == BNodeMonitor::kEntryCreated && name)
            madeAgain.emplace(directoryOf(event), *name);
    }
    for (size_t i = 0; i < count; ++i) {
        const BMessage event = std::move(fEvents.front());
        fEvents.pop_front();
        switch (event.Get<int32_t>("opcode", 0)) {
            case BNodeMonitor::kEntryCreated: {
                const KTRow row = directoryOf(event);
                const auto name = event.FindString("name");
                if (row != kNoRow && name) sync[row].emplace_back(*name);
                break;
            }
            case BNodeMonitor::kEntryRemoved: {
                const KTRow row = RowOfEvent(event, "directory", "name");
                const auto name = event.FindString("name");
                const KTRow directory = directoryOf(event);
                if (directory != kNoRow && name && IsReading(directory))
                    sync[directory].emplace_back(*name);  // its row may still be on its way
                else if (row != kNoRow &&
                         !(name && madeAgain.contains({directory, std::string(*name)})))
                    RemoveVanished(row);
                break;
            }
            case BNodeMonitor::kEntryMoved:
                EntryMoved(event);
                break;
            case BNodeMonitor::kDeviceMounted:
            case BNodeMonitor::kDeviceUnmounted:
                fVolumes.MountsChanged(event);
                fVolumes.Look(*fReader);
                break;
            case BNodeMonitor::kOverflow:
                for (const auto& [node, row] : fDirectories) {
                    if (IsReading(row)) continue;
                    const int64_t read =
                        fReader->Read({PathOf(row, true), Rows().Superitem(row) == kNoRow, {}});
                    fReadings[read] = {row, false, {}, {}};
                    fReading[row] = read;
                }
                break;
            default:
                break;
        }
    }
    for (auto& [row, names] : sync)
        if (Rows().Has(row)) Sync(row, std::move(names));
    if (!fEvents.empty()) fEventsLater.start(0);
}

void KTSourceSelectionView::RemoveVanished(KTRow row) {
    if (Rows().IsMarked(row) && CanBeRuled(row)) {
        Rules().Gone(PathOf(row, false), IsDirectory(row));
        KTColumnListView::MultiDeselect(row);
    }
    FreeSubItems(row, true);
}

void KTSourceSelectionView::EntryMoved(const BMessage& message) {
    const auto name = message.FindString("name");
    if (!name) return;
    const KTRow target =
        RowOfDirectory(static_cast<uint64_t>(message.Get<int64_t>("device", 0)),
                       static_cast<uint64_t>(message.Get<int64_t>("to directory", 0)));
    const KTRow row = RowOfEvent(message, "from directory", "from name");
    const KTRow inTheWay = target == kNoRow ? kNoRow : Rows().ChildByText(target, kName, *name);
    if (target != kNoRow && (row == kNoRow || inTheWay != kNoRow || IsReading(target))) {
        // It came from where nobody looked, or took the place of another: what is there is looked
        // at anew, under the marks that the place has.
        if (row != kNoRow && row != inTheWay) RemoveVanished(row);
        if (Rows().Has(target)) Sync(target, {std::string(*name)});
        return;
    }
    if (row == kNoRow) return;
    if (target == kNoRow) return RemoveVanished(row);
    if (Rows().IsMarked(row) && CanBeRuled(row)) {
        Rules().Gone(PathOf(row, false), IsDirectory(row));
        KTColumnListView::MultiDeselect(row);
    }
    KTRuledListView::Collapse(row);
    FreeSubItems(row, false);
    Rows().SetText(row, kName, *name);
    Rows().Move(row, target);
    Rules().Returned(PathOf(row, false));
    MarkByRules(row);
}
