// RowNameIndex: finds a child by the text of one column without looking at its siblings. It knows
// the children of one parent at a time, the one that was asked about last.
#pragma once

#include <string_view>
#include <vector>

#include "client/uikit/ChildLists.h"

class RowNameIndex {
public:
    explicit RowNameIndex(const RowBlocks& rows) : fRows(rows) {}

    bool IsFor(uint32_t list, int column) const { return fList == list && fColumn == column; }
    bool Covers(uint32_t list) const { return fList == list; }
    int Column() const { return fColumn; }
    void Build(const ChildLists& lists, uint32_t list, int column);
    void Drop();

    void Add(KTRow row);
    void Remove(KTRow row);  // while its text is still there
    // The first of them in the list's order.
    KTRow Find(const ChildLists& lists, std::string_view text) const;

private:
    static constexpr KTRow kGone = kNoRow - 1;
    size_t SlotOf(std::string_view text) const;

    const RowBlocks& fRows;
    uint32_t fList = ChildLists::kNone;
    int fColumn = -1;
    std::vector<KTRow> fSlots;  // a power of two of them; kNoRow is free
    size_t fUsed = 0;           // not free
};
