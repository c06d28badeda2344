#include "client/uikit/ChildLists.h"

#include <algorithm>

uint32_t ChildLists::New(KTRow parent) {
    uint32_t list;
    if (!fFreeLists.empty()) {
        list = fFreeLists.back();
        fFreeLists.pop_back();
        fLists[list] = List();
    } else {
        list = static_cast<uint32_t>(fLists.size());
        fLists.emplace_back();
    }
    fLists[list].parent = parent;
    return list;
}

void ChildLists::Free(uint32_t list) {
    for (uint32_t chunk : fLists[list].chunks)
        FreeChunk(chunk);
    fLists[list] = List();
    fFreeLists.push_back(list);
}

void ChildLists::Clear() {
    fLists.clear();
    fChunks.clear();
    fFreeLists.clear();
    fFreeChunks.clear();
    fLastChunk = kNone;
}

uint32_t ChildLists::NewChunk(uint32_t list, size_t ordinal) {
    uint32_t chunk;
    if (!fFreeChunks.empty()) {
        chunk = fFreeChunks.back();
        fFreeChunks.pop_back();
    } else {
        chunk = static_cast<uint32_t>(fChunks.size());
        fChunks.emplace_back();
    }
    List& owner = fLists[list];
    fChunks[chunk].list = list;
    owner.chunks.insert(owner.chunks.begin() + static_cast<ptrdiff_t>(ordinal), chunk);
    for (size_t i = ordinal; i < owner.chunks.size(); ++i)
        fChunks[owner.chunks[i]].ordinal = static_cast<uint32_t>(i);
    // The first chunk starts at 0, always.
    fChunks[owner.chunks[0]].start = 0;
    owner.sound = std::max<uint32_t>(1, std::min(owner.sound, static_cast<uint32_t>(ordinal)));
    return chunk;
}

void ChildLists::FreeChunk(uint32_t chunk) {
    fChunks[chunk] = Chunk();
    fFreeChunks.push_back(chunk);
    if (fLastChunk == chunk) fLastChunk = kNone;
}

void ChildLists::Reserve(uint32_t list, int32_t more) {
    const List& owner = fLists[list];
    if (owner.chunks.empty()) return;
    auto& rows = fChunks[owner.chunks.back()].rows;
    const size_t wanted = std::min(kMost, rows.size() + static_cast<size_t>(more));
    if (wanted > rows.capacity()) rows.reserve(wanted);
}

void ChildLists::Split(uint32_t chunk) {
    const uint32_t half = NewChunk(fChunks[chunk].list, fChunks[chunk].ordinal + 1);
    auto& from = fChunks[chunk].rows;
    auto& to = fChunks[half].rows;
    to.reserve(kMost);
    to.assign(from.begin() + kMost / 2, from.end());
    from.resize(kMost / 2);
    for (size_t i = 0; i < to.size(); ++i) {
        auto& node = fRows.At(to[i]);
        node.chunk = half;
        node.place = static_cast<uint16_t>(i);
    }
}

void ChildLists::Insert(uint32_t list, int32_t index, KTRow row) {
    uint32_t chunk;
    int32_t place;
    if (index >= fLists[list].count) {
        auto& chunks = fLists[list].chunks;
        if (chunks.empty() || fChunks[chunks.back()].rows.size() == kMost)
            NewChunk(list, chunks.size());
        chunk = fLists[list].chunks.back();
        place = static_cast<int32_t>(fChunks[chunk].rows.size());
    } else {
        chunk = Locate(fLists[list], index, &place);
        if (fChunks[chunk].rows.size() == kMost) {
            Split(chunk);
            chunk = Locate(fLists[list], index, &place);
        }
    }
    List& owner = fLists[list];
    Chunk& into = fChunks[chunk];
    into.rows.insert(into.rows.begin() + place, row);
    auto& node = fRows.At(row);
    node.chunk = chunk;
    node.place = static_cast<uint16_t>(place);
    owner.sound = std::min(owner.sound, into.ordinal + 1);
    ++owner.count;
}

void ChildLists::Erase(KTRow row) {
    const uint32_t chunk = fRows.At(row).chunk;
    Chunk& from = fChunks[chunk];
    List& owner = fLists[from.list];
    const size_t place = PlaceOf(row, from);
    from.rows.erase(from.rows.begin() + static_cast<ptrdiff_t>(place));
    owner.sound = std::min(owner.sound, from.ordinal + 1);
    --owner.count;
    if (!from.rows.empty()) return;

    const size_t ordinal = from.ordinal;
    owner.chunks.erase(owner.chunks.begin() + static_cast<ptrdiff_t>(ordinal));
    for (size_t i = ordinal; i < owner.chunks.size(); ++i)
        fChunks[owner.chunks[i]].ordinal = static_cast<uint32_t>(i);
    owner.sound = std::max<uint32_t>(1, std::min(owner.sound, static_cast<uint32_t>(ordinal)));
    if (!owner.chunks.empty()) fChunks[owner.chunks[0]].start = 0;
    FreeChunk(chunk);
}

void ChildLists::MakeSound(const List& list, size_t upTo) const {
    for (; list.sound <= upTo; ++list.sound) {
        const Chunk& before = fChunks[list.chunks[list.sound - 1]];
        fChunks[list.chunks[list.sound]].start =
            before.start + static_cast<int32_t>(before.rows.size());
    }
}

uint32_t ChildLists::Locate(const List& list, int32_t index, int32_t* place) const {
    auto holds = [&](uint32_t id) {
        const Chunk& chunk = fChunks[id];
        return chunk.ordinal < list.sound && index >= chunk.start &&
               index < chunk.start + static_cast<int32_t>(chunk.rows.size());
    };
    uint32_t found = fLastChunk;
    if (found == kNone || &fLists[fChunks[found].list] != &list || !holds(found)) {
        MakeSound(list, list.chunks.size() - 1);
        auto after =
            std::upper_bound(list.chunks.begin(), list.chunks.end(), index,
                             [&](int32_t i, uint32_t id) { return i < fChunks[id].start; });
        found = *(after - 1);
        fLastChunk = found;
    }
    *place = index - fChunks[found].start;
    return found;
}

KTRow ChildLists::RowAt(uint32_t list, int32_t index) const {
    const List& owner = fLists[list];
    if (index < 0 || index >= owner.count) return kNoRow;
    int32_t place;
    const uint32_t chunk = Locate(owner, index, &place);
    return fChunks[chunk].rows[static_cast<size_t>(place)];
}

size_t ChildLists::PlaceOf(KTRow row, const Chunk& chunk) const {
    auto& node = fRows.At(row);
    if (node.place < chunk.rows.size() && chunk.rows[node.place] == row) return node.place;
    const auto at = std::find(chunk.rows.begin(), chunk.rows.end(), row);
    node.place = static_cast<uint16_t>(at - chunk.rows.begin());
    return node.place;
}

int32_t ChildLists::IndexOf(KTRow row) const {
    const Chunk& chunk = fChunks[fRows.At(row).chunk];
    const List& list = fLists[chunk.list];
    MakeSound(list, chunk.ordinal);
    return chunk.start + static_cast<int32_t>(PlaceOf(row, chunk));
}

KTRow ChildLists::NextSibling(KTRow row) const {
    const Chunk& chunk = fChunks[fRows.At(row).chunk];
    const size_t next = PlaceOf(row, chunk) + 1;
    if (next < chunk.rows.size()) return chunk.rows[next];
    const List& list = fLists[chunk.list];
    if (chunk.ordinal + 1 >= list.chunks.size()) return kNoRow;
    return fChunks[list.chunks[chunk.ordinal + 1]].rows.front();
}
