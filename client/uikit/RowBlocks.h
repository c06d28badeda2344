// RowBlocks: where the rows of a KTRowStore lie. A block holds some thousand rows, first their
// nodes, then their values column by column; blocks are never moved, so growing copies nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "client/uikit/KTRowStore.h"
#include "client/uikit/TextArena.h"

class RowBlocks {
public:
    enum Flag : uint8_t { kLive = 1, kMarked = 2, kSuper = 4, kExpanded = 8, kUser = 16 };
    static constexpr uint32_t kNone = UINT32_MAX;

    struct Node {
        uint32_t chunk = kNone;  // of the parent's children; of a free node: the next free one
        uint32_t list = kNone;   // its own children
        uint16_t place = 0;      // where in the chunk it was last seen
        uint8_t flags = 0;
        uint8_t color = 0;
    };

    explicit RowBlocks(std::vector<KTColumnKind> columns);

    KTRow New(const KTRowData& data);
    void Free(KTRow row);
    void Clear();

    bool Has(KTRow row) const { return row < fHighest && (At(row).flags & kLive) != 0; }
    int32_t Count() const { return fCount; }
    Node& At(KTRow row) { return NodesOf(row)[row & kMask]; }
    const Node& At(KTRow row) const { return NodesOf(row)[row & kMask]; }

    KTColumnKind KindOf(int column) const { return fColumns[static_cast<size_t>(column)].kind; }
    std::string_view TextAt(KTRow row, int column) const;
    int64_t NumberAt(KTRow row, int column) const;
    void SetText(KTRow row, int column, std::string_view text);
    void SetNumber(KTRow row, int column, int64_t value);

private:
    static constexpr unsigned kBits = 12;
    static constexpr uint32_t kRows = 1U << kBits;
    static constexpr uint32_t kMask = kRows - 1;

    struct Column {
        KTColumnKind kind;
        size_t offset;  // of the column in a block
    };

    Node* NodesOf(KTRow row) const { return reinterpret_cast<Node*>(fBlocks[row >> kBits].get()); }
    template <class T>
    T& Value(KTRow row, int column) const {
        auto* block = fBlocks[row >> kBits].get() + fColumns[static_cast<size_t>(column)].offset;
        return reinterpret_cast<T*>(block)[row & kMask];
    }
    void Compact();

    std::vector<Column> fColumns;
    size_t fBlockSize = 0;
    std::vector<std::unique_ptr<std::byte[]>> fBlocks;
    TextArena fTexts;
    uint32_t fHighest = 0;
    uint32_t fFree = kNone;
    int32_t fCount = 0;
};
