// ChildLists: the children of each row of a KTRowStore in their order, and the counts that tell how
// much of them is marked. A list is a row of chunks of ids; where a chunk starts is worked out when
// it is asked for. The rows themselves remember their chunk, and about where in it they are.
#pragma once

#include <cstdint>
#include <vector>

#include "client/uikit/RowBlocks.h"

class ChildLists {
public:
    static constexpr uint32_t kNone = RowBlocks::kNone;

    struct List {
        KTRow parent = kNoRow;
        int32_t count = 0;
        int32_t whole = 0;           // children marked with all that is below them
        int32_t some = 0;            // children marked, or with a mark below them
        mutable uint32_t sound = 1;  // so many chunks know where they start
        std::vector<uint32_t> chunks;
    };

    explicit ChildLists(RowBlocks& rows) : fRows(rows) {}

    uint32_t New(KTRow parent);
    void Free(uint32_t list);  // the rows in it are the caller's
    void Clear();
    List& At(uint32_t list) { return fLists[list]; }
    const List& At(uint32_t list) const { return fLists[list]; }

    void Reserve(uint32_t list, int32_t more);
    void Insert(uint32_t list, int32_t index, KTRow row);
    void Erase(KTRow row);

    KTRow RowAt(uint32_t list, int32_t index) const;
    int32_t IndexOf(KTRow row) const;
    uint32_t ListOf(KTRow row) const { return fChunks[fRows.At(row).chunk].list; }
    KTRow NextSibling(KTRow row) const;  // kNoRow after the last

    // Calls `each` for every row of the list in order.
    template <class Each>
    void ForEach(uint32_t list, Each each) const {
        for (uint32_t chunk : fLists[list].chunks)
            for (KTRow row : fChunks[chunk].rows)
                each(row);
    }

private:
    static constexpr size_t kMost = 512;

    struct Chunk {
        uint32_t list = kNone;
        uint32_t ordinal = 0;       // in the list
        mutable int32_t start = 0;  // index of its first row; sound only below List::sound
        std::vector<KTRow> rows;
    };

    uint32_t NewChunk(uint32_t list, size_t ordinal);
    void FreeChunk(uint32_t chunk);
    void Split(uint32_t chunk);
    // The chunk with the row of that index; `place` becomes the place in it.
    uint32_t Locate(const List& list, int32_t index, int32_t* place) const;
    void MakeSound(const List& list, size_t upTo) const;
    size_t PlaceOf(KTRow row, const Chunk& chunk) const;

    RowBlocks& fRows;
    std::vector<List> fLists;
    std::vector<Chunk> fChunks;
    std::vector<uint32_t> fFreeLists, fFreeChunks;
    mutable uint32_t fLastChunk = kNone;  // rows are mostly asked for one after the other
};
