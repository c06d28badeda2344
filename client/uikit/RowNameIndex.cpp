#include "client/uikit/RowNameIndex.h"

#include <bit>
#include <functional>

size_t RowNameIndex::SlotOf(std::string_view text) const {
    return std::hash<std::string_view>{}(text) & (fSlots.size() - 1);
}

void RowNameIndex::Build(const ChildLists& lists, uint32_t list, int column) {
    fList = list;
    fColumn = column;
    fUsed = 0;
    const auto count = static_cast<size_t>(lists.At(list).count);
    fSlots.assign(std::bit_ceil(count * 2 + 16), kNoRow);
    lists.ForEach(list, [this](KTRow row) { Add(row); });
}

void RowNameIndex::Drop() {
    fList = ChildLists::kNone;
    fColumn = -1;
    fSlots = {};
    fUsed = 0;
}

void RowNameIndex::Add(KTRow row) {
    if (fUsed * 4 > fSlots.size() * 3) {
        std::vector<KTRow> old = std::move(fSlots);
        fSlots.assign(old.size() * 2, kNoRow);
        fUsed = 0;
        for (KTRow known : old)
            if (known < kGone) Add(known);
    }
    size_t slot = SlotOf(fRows.TextAt(row, fColumn));
    while (fSlots[slot] != kNoRow)
        slot = (slot + 1) & (fSlots.size() - 1);
    fSlots[slot] = row;
    ++fUsed;
}

void RowNameIndex::Remove(KTRow row) {
    size_t slot = SlotOf(fRows.TextAt(row, fColumn));
    while (fSlots[slot] != row) {
        if (fSlots[slot] == kNoRow) return;
        slot = (slot + 1) & (fSlots.size() - 1);
    }
    fSlots[slot] = kGone;
}

KTRow RowNameIndex::Find(const ChildLists& lists, std::string_view text) const {
    KTRow found = kNoRow;
    for (size_t slot = SlotOf(text); fSlots[slot] != kNoRow;
         slot = (slot + 1) & (fSlots.size() - 1)) {
        const KTRow row = fSlots[slot];
        if (row == kGone || fRows.TextAt(row, fColumn) != text) continue;
        if (found == kNoRow || lists.IndexOf(row) < lists.IndexOf(found)) found = row;
    }
    return found;
}
