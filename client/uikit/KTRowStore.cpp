#include "client/uikit/KTRowStore.h"

#include <algorithm>

#include "client/uikit/ChildLists.h"
#include "client/uikit/RowBlocks.h"
#include "client/uikit/RowNameIndex.h"

namespace {
// Below this looking at every child is quicker than an index.
constexpr int32_t kWorthAnIndex = 64;

class NoListener : public KTRowStore::Listener {
public:
    void AboutToInsert(KTRow, int32_t, int32_t) override {}
    void Inserted() override {}
    void AboutToRemove(KTRow, int32_t, int32_t) override {}
    void Removed() override {}
    void AboutToMove(KTRow, KTRow) override {}
    void Moved() override {}
    void AboutToReset() override {}
    void Reset() override {}
    void Changed(KTRow, bool) override {}
};
NoListener sNobody;
}  // namespace

class KTRowStore::Impl {
public:
    explicit Impl(std::vector<KTColumnKind> columns)
        : rows(std::move(columns)), lists(rows), names(rows), top(lists.New(kNoRow)) {}

    // How much of a row and of what is below it is marked. The counts of its siblings' list are
    // made of these, so whatever changes one passes the change on upwards.
    struct State {
        bool whole = false, some = false;
        bool operator==(const State&) const = default;
    };

    uint32_t ChildrenOf(KTRow parent) const {
        return parent == kNoRow ? top : rows.At(parent).list;
    }
    bool IsMarked(KTRow row) const { return (rows.At(row).flags & RowBlocks::kMarked) != 0; }
    KTRow Parent(KTRow row) const { return lists.At(lists.ListOf(row)).parent; }

    State StateOf(KTRow row) const {
        if (row == kNoRow) return {};
        const bool marked = IsMarked(row);
        const uint32_t list = rows.At(row).list;
        if (list == ChildLists::kNone) return {marked, marked};
        const auto& below = lists.At(list);
        return {marked && below.whole == below.count, marked || below.some > 0};
    }

    void Pass(KTRow row, State before) {
        while (row != kNoRow) {
            const State now = StateOf(row);
            if (now == before) return;
            auto& list = lists.At(lists.ListOf(row));
            const State parentBefore = StateOf(list.parent);
            list.whole += now.whole - before.whole;
            list.some += now.some - before.some;
            row = list.parent;
            before = parentBefore;
        }
    }

    bool SetMark(KTRow row, bool marked) {
        if (IsMarked(row) == marked) return false;
        const State before = StateOf(row);
        rows.At(row).flags ^= RowBlocks::kMarked;
        Pass(row, before);
        ++generation;
        return true;
    }

    void MarkSubtree(KTRow row, bool marked) {
        const State before = StateOf(row);
        Flag(row, marked);
        std::vector<uint32_t> open;
        if (rows.At(row).list != ChildLists::kNone) open.push_back(rows.At(row).list);
        while (!open.empty()) {
            auto& list = lists.At(open.back());
            list.whole = list.some = marked ? list.count : 0;
            const uint32_t id = open.back();
            open.pop_back();
            lists.ForEach(id, [&](KTRow child) {
                Flag(child, marked);
                if (rows.At(child).list != ChildLists::kNone) open.push_back(rows.At(child).list);
            });
        }
        Pass(row, before);
        ++generation;
    }

    void Flag(KTRow row, bool marked) {
        auto& flags = rows.At(row).flags;
        flags =
            static_cast<uint8_t>(marked ? flags | RowBlocks::kMarked : flags & ~RowBlocks::kMarked);
    }

    // Enters a row, with whatever is below it, into its parent's children; `Counted` has to follow
    // with the parent's state from before.
    void Attach(KTRow row, KTRow parent, int32_t index) {
        uint32_t list = ChildrenOf(parent);
        if (list == ChildLists::kNone) {
            list = lists.New(parent);
            rows.At(parent).list = list;
            rows.At(parent).flags |= RowBlocks::kSuper;
        }
        lists.Insert(list, index, row);
        const State state = StateOf(row);
        lists.At(list).whole += state.whole;
        lists.At(list).some += state.some;
        if (names.Covers(list)) names.Add(row);
    }

    void Detach(KTRow row) {
        const uint32_t list = lists.ListOf(row);
        if (names.Covers(list)) names.Remove(row);
        const State state = StateOf(row);
        lists.At(list).whole -= state.whole;
        lists.At(list).some -= state.some;
        lists.Erase(row);
        if (state.some) ++generation;
    }

    // After rows were detached from it: a row without children keeps no list.
    void Tidy(KTRow parent) {
        if (parent == kNoRow) return;
        auto& node = rows.At(parent);
        if (node.list == ChildLists::kNone || lists.At(node.list).count > 0) return;
        DropList(node.list);
        node.list = ChildLists::kNone;
    }

    void DropList(uint32_t list) {
        if (names.Covers(list)) names.Drop();
        lists.Free(list);
    }

    void FreeSubtree(KTRow row) {
        std::vector<KTRow> open{row};
        while (!open.empty()) {
            const KTRow next = open.back();
            open.pop_back();
            const uint32_t list = rows.At(next).list;
            if (list != ChildLists::kNone) {
                lists.ForEach(list, [&](KTRow child) { open.push_back(child); });
                DropList(list);
            }
            rows.Free(next);
        }
    }

    RowBlocks rows;
    ChildLists lists;
    RowNameIndex names;
    uint32_t top;
    uint64_t generation = 0;
    Listener* listener = &sNobody;
};

KTRowStore::KTRowStore(std::vector<KTColumnKind> columns)
    : fImpl(std::make_unique<Impl>(std::move(columns))) {}
KTRowStore::~KTRowStore() = default;

void KTRowStore::SetListener(Listener* listener) {
    fImpl->listener = listener ? listener : &sNobody;
}

// --- rows ---------------------------------------------------------------------------------------

KTRow KTRowStore::AddUnder(KTRow parent, const KTRowData& data, int32_t index) {
    const int32_t count = ChildCount(parent);
    if (index < 0 || index > count) index = count;
    fImpl->listener->AboutToInsert(parent, index, 1);
    const auto before = fImpl->StateOf(parent);
    const KTRow row = fImpl->rows.New(data);
    fImpl->Attach(row, parent, index);
    fImpl->Pass(parent, before);
    if (data.marked) ++fImpl->generation;
    fImpl->listener->Inserted();
    return row;
}

void KTRowStore::AddList(KTRow parent, std::span<const KTRowData> rows) {
    if (rows.empty()) return;
    const int32_t count = ChildCount(parent);
    fImpl->listener->AboutToInsert(parent, count, static_cast<int32_t>(rows.size()));
    const auto before = fImpl->StateOf(parent);
    auto left = static_cast<int32_t>(rows.size());
    for (const KTRowData& data : rows) {
        fImpl->Attach(fImpl->rows.New(data), parent, INT32_MAX);
        if ((left-- & 511) == 0) fImpl->lists.Reserve(fImpl->ChildrenOf(parent), left);
        if (data.marked) ++fImpl->generation;
    }
    fImpl->Pass(parent, before);
    fImpl->listener->Inserted();
}

void KTRowStore::Remove(KTRow row) {
    RemoveRange(Superitem(row), IndexInParent(row), 1);
}

void KTRowStore::RemoveRange(KTRow parent, int32_t first, int32_t count) {
    count = std::min(count, ChildCount(parent) - first);
    if (first < 0 || count <= 0) return;
    fImpl->listener->AboutToRemove(parent, first, count);
    const auto before = fImpl->StateOf(parent);
    const uint32_t list = fImpl->ChildrenOf(parent);
    // From the end: what follows need not be numbered anew.
    for (int32_t i = count; i-- > 0;) {
        const KTRow row = fImpl->lists.RowAt(list, first + i);
        fImpl->Detach(row);
        fImpl->FreeSubtree(row);
    }
    fImpl->Tidy(parent);
    fImpl->Pass(parent, before);
    fImpl->listener->Removed();
}

void KTRowStore::RemoveChildren(KTRow row) {
    RemoveRange(row, 0, ChildCount(row));
}

void KTRowStore::MakeEmpty() {
    fImpl->listener->AboutToReset();
    if (HasMarks()) ++fImpl->generation;
    fImpl->names.Drop();
    fImpl->lists.Clear();
    fImpl->rows.Clear();
    fImpl->top = fImpl->lists.New(kNoRow);
    fImpl->listener->Reset();
}

void KTRowStore::Move(KTRow row, KTRow newParent) {
    for (KTRow up = newParent; up != kNoRow; up = Superitem(up))
        if (up == row) return;
    const KTRow oldParent = Superitem(row);
    if (oldParent == newParent && IndexInParent(row) + 1 == ChildCount(newParent)) return;
    fImpl->listener->AboutToMove(row, newParent);
    const auto oldBefore = fImpl->StateOf(oldParent);
    fImpl->Detach(row);
    if (oldParent != newParent) fImpl->Tidy(oldParent);
    fImpl->Pass(oldParent, oldBefore);
    const auto newBefore = fImpl->StateOf(newParent);
    fImpl->Attach(row, newParent, INT32_MAX);
    fImpl->Pass(newParent, newBefore);
    fImpl->listener->Moved();
}

int32_t KTRowStore::Count() const {
    return fImpl->rows.Count();
}

int32_t KTRowStore::ChildCount(KTRow parent) const {
    const uint32_t list = fImpl->ChildrenOf(parent);
    return list == ChildLists::kNone ? 0 : fImpl->lists.At(list).count;
}

KTRow KTRowStore::ChildAt(KTRow parent, int32_t index) const {
    const uint32_t list = fImpl->ChildrenOf(parent);
    return list == ChildLists::kNone ? kNoRow : fImpl->lists.RowAt(list, index);
}

int32_t KTRowStore::IndexInParent(KTRow row) const {
    return fImpl->lists.IndexOf(row);
}
KTRow KTRowStore::Superitem(KTRow row) const {
    return fImpl->Parent(row);
}
bool KTRowStore::Has(KTRow row) const {
    return fImpl->rows.Has(row);
}
KTRow KTRowStore::First() const {
    return ChildAt(kNoRow, 0);
}

uint32_t KTRowStore::Level(KTRow row) const {
    uint32_t level = 0;
    while ((row = Superitem(row)) != kNoRow)
        ++level;
    return level;
}

KTRow KTRowStore::Next(KTRow row) const {
    const KTRow child = ChildAt(row, 0);
    return child != kNoRow ? child : NextAfterSubtree(row);
}

KTRow KTRowStore::NextAfterSubtree(KTRow row) const {
    for (; row != kNoRow; row = Superitem(row)) {
        const KTRow next = fImpl->lists.NextSibling(row);
        if (next != kNoRow) return next;
    }
    return kNoRow;
}

KTRow KTRowStore::ChildByText(KTRow parent, int column, std::string_view text) const {
    const uint32_t list = fImpl->ChildrenOf(parent);
    if (list == ChildLists::kNone) return kNoRow;
    const auto& lists = fImpl->lists;
    if (lists.At(list).count < kWorthAnIndex) {
        KTRow found = kNoRow;
        lists.ForEach(list, [&](KTRow row) {
            if (found == kNoRow && TextAt(row, column) == text) found = row;
        });
        return found;
    }
    if (!fImpl->names.IsFor(list, column)) fImpl->names.Build(lists, list, column);
    return fImpl->names.Find(lists, text);
}

// --- values -------------------------------------------------------------------------------------

std::string_view KTRowStore::TextAt(KTRow row, int column) const {
    return fImpl->rows.TextAt(row, column);
}

int64_t KTRowStore::NumberAt(KTRow row, int column) const {
    return fImpl->rows.NumberAt(row, column);
}

void KTRowStore::SetText(KTRow row, int column, std::string_view text) {
    const bool indexed = fImpl->names.IsFor(fImpl->lists.ListOf(row), column);
    if (indexed) fImpl->names.Remove(row);
    fImpl->rows.SetText(row, column, text);
    if (indexed) fImpl->names.Add(row);
    fImpl->listener->Changed(row, false);
}

void KTRowStore::SetNumber(KTRow row, int column, int64_t value) {
    fImpl->rows.SetNumber(row, column, value);
    fImpl->listener->Changed(row, false);
}

#define VELMORA_ROW_FLAG(GETTER, SETTER, TYPE, FLAG)                                              \
    TYPE KTRowStore::GETTER(KTRow row) const {                                                    \
        return (fImpl->rows.At(row).flags & RowBlocks::FLAG) != 0;                                \
    }                                                                                             \
    void KTRowStore::SETTER(KTRow row, TYPE value) {                                              \
        auto& flags = fImpl->rows.At(row).flags;                                                  \
        flags = static_cast<uint8_t>(value ? flags | RowBlocks::FLAG : flags & ~RowBlocks::FLAG); \
        fImpl->listener->Changed(row, false);                                                     \
    }
VELMORA_ROW_FLAG(IsSuperItem, SetSuperItem, bool, kSuper)
VELMORA_ROW_FLAG(IsExpanded, SetExpanded, bool, kExpanded)
VELMORA_ROW_FLAG(UserFlag, SetUserFlag, uint32_t, kUser)
#undef VELMORA_ROW_FLAG

void KTRowStore::SetColor(KTRow row, uint8_t colorIndex) {
    fImpl->rows.At(row).color = colorIndex;
    fImpl->listener->Changed(row, false);
}

uint8_t KTRowStore::Color(KTRow row) const {
    return fImpl->rows.At(row).color;
}

// --- marks --------------------------------------------------------------------------------------

bool KTRowStore::IsMarked(KTRow row) const {
    return fImpl->IsMarked(row);
}
bool KTRowStore::HasMarks() const {
    return fImpl->lists.At(fImpl->top).some > 0;
}

bool KTRowStore::HasMarksBelow(KTRow row) const {
    const uint32_t list = fImpl->ChildrenOf(row);
    return list != ChildLists::kNone && fImpl->lists.At(list).some > 0;
}

KTRowStore::Mark KTRowStore::MarkOf(KTRow row) const {
    if (!IsMarked(row)) return Mark::None;
    return fImpl->StateOf(row).whole ? Mark::Whole : Mark::Part;
}

void KTRowStore::MultiSelect(KTRow row) {
    fImpl->MarkSubtree(row, true);
    fImpl->listener->Changed(row, true);
    for (KTRow up = Superitem(row); up != kNoRow; up = Superitem(up)) {
        fImpl->listener->Changed(up, false);  // its box, marked already or not
        if (!fImpl->IsMarked(up)) fImpl->SetMark(up, true);
    }
}

void KTRowStore::MultiDeselect(KTRow row) {
    fImpl->MarkSubtree(row, false);
    fImpl->listener->Changed(row, true);
    for (KTRow up = Superitem(row); up != kNoRow; up = Superitem(up)) {
        fImpl->listener->Changed(up, false);
        if (!HasMarksBelow(up)) fImpl->SetMark(up, false);
    }
}

void KTRowStore::SetMarked(KTRow row, bool marked) {
    if (fImpl->SetMark(row, marked)) fImpl->listener->Changed(row, false);
}

void KTRowStore::ClearMarks() {
    if (!HasMarks()) return;
    fImpl->lists.ForEach(fImpl->top, [&](KTRow row) {
        if (!fImpl->StateOf(row).some) return;
        fImpl->MarkSubtree(row, false);
        fImpl->listener->Changed(row, true);
    });
}

std::vector<KTRow> KTRowStore::MarkedRows() const {
    std::vector<KTRow> marked;
    if (!HasMarks()) return marked;
    for (KTRow row = First(); row != kNoRow;) {
        if (IsMarked(row)) marked.push_back(row);
        row = HasMarksBelow(row) ? Next(row) : NextAfterSubtree(row);
    }
    return marked;
}

uint64_t KTRowStore::MarkGeneration() const {
    return fImpl->generation;
}

bool KTRowStore::IsConsistent() const {
    const auto& lists = fImpl->lists;
    int32_t seen = 0;
    std::vector<KTRow> open{kNoRow};
    while (!open.empty()) {
        const KTRow parent = open.back();
        open.pop_back();
        const uint32_t id = fImpl->ChildrenOf(parent);
        if (id == ChildLists::kNone) continue;
        int32_t count = 0, whole = 0, some = 0;
        bool placed = lists.At(id).parent == parent;
        lists.ForEach(id, [&](KTRow row) {
            const auto state = fImpl->StateOf(row);
            whole += state.whole;
            some += state.some;
            placed = placed && Has(row) && Superitem(row) == parent &&
                     IndexInParent(row) == count && ChildAt(parent, count) == row;
            ++count;
            open.push_back(row);
        });
        seen += count;
        if (!placed || count != lists.At(id).count || whole != lists.At(id).whole ||
            some != lists.At(id).some)
            return false;
    }
    return seen == Count();
}
