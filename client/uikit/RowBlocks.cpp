#include "client/uikit/RowBlocks.h"

#include <algorithm>
#include <new>

RowBlocks::RowBlocks(std::vector<KTColumnKind> columns) {
    fBlockSize = sizeof(Node) * kRows;
    for (KTColumnKind kind : columns) {
        fColumns.push_back({kind, fBlockSize});
        const size_t width = kind == KTColumnKind::Icon   ? sizeof(uint16_t)
                             : kind == KTColumnKind::Text ? sizeof(TextArena::Ref)
                                                          : sizeof(int64_t);
        fBlockSize += width * kRows;
    }
}

KTRow RowBlocks::New(const KTRowData& data) {
    KTRow row = fFree;
    if (row != kNone) {
        fFree = At(row).chunk;
    } else {
        row = fHighest++;
        if ((row & kMask) == 0) {
            // Not cleared: pages of a block that no row has reached cost nothing.
            fBlocks.push_back(std::make_unique_for_overwrite<std::byte[]>(fBlockSize));
        }
    }
    ++fCount;
    Node& node = *new (&At(row)) Node;
    node.flags =
        static_cast<uint8_t>(kLive | (data.marked ? kMarked : 0) | (data.superItem ? kSuper : 0));
    node.color = data.color;
    size_t text = 0;
    size_t number = 0;
    for (size_t i = 0; i < fColumns.size(); ++i) {
        const int column = static_cast<int>(i);
        if (fColumns[i].kind == KTColumnKind::Text) {
            Value<TextArena::Ref>(row, column) =
                text < data.texts.size() ? fTexts.Add(data.texts[text]) : TextArena::kEmpty;
            ++text;
        } else {
            SetNumber(row, column, number < data.numbers.size() ? data.numbers[number] : 0);
            ++number;
        }
    }
    return row;
}

void RowBlocks::Free(KTRow row) {
    for (size_t i = 0; i < fColumns.size(); ++i)
        if (fColumns[i].kind == KTColumnKind::Text)
            fTexts.Release(Value<TextArena::Ref>(row, static_cast<int>(i)));
    Node& node = At(row);
    node.flags = 0;
    node.chunk = fFree;
    fFree = row;
    --fCount;
    if (fTexts.IsWasteful()) Compact();
}

void RowBlocks::Clear() {
    fBlocks.clear();
    fTexts = TextArena();
    fHighest = 0;
    fFree = kNone;
    fCount = 0;
}

std::string_view RowBlocks::TextAt(KTRow row, int column) const {
    if (KindOf(column) != KTColumnKind::Text) return {};
    return fTexts.At(Value<TextArena::Ref>(row, column));
}

int64_t RowBlocks::NumberAt(KTRow row, int column) const {
    switch (KindOf(column)) {
        case KTColumnKind::Icon:
            return Value<uint16_t>(row, column);
        case KTColumnKind::Text:
            return 0;
        default:
            return Value<int64_t>(row, column);
    }
}

void RowBlocks::SetText(KTRow row, int column, std::string_view text) {
    if (KindOf(column) != KTColumnKind::Text) return;
    auto& ref = Value<TextArena::Ref>(row, column);
    if (fTexts.At(ref) == text) return;
    const TextArena::Ref old = ref;
    ref = fTexts.Add(text);  // before the release: `text` may point into the arena
    fTexts.Release(old);
    if (fTexts.IsWasteful()) Compact();
}

void RowBlocks::SetNumber(KTRow row, int column, int64_t value) {
    if (KindOf(column) == KTColumnKind::Icon)
        Value<uint16_t>(row, column) = static_cast<uint16_t>(std::clamp<int64_t>(value, 0, 65535));
    else if (KindOf(column) != KTColumnKind::Text)
        Value<int64_t>(row, column) = value;
}

void RowBlocks::Compact() {
    TextArena kept;
    for (KTRow row = 0; row < fHighest; ++row) {
        if (!Has(row)) continue;
        for (size_t i = 0; i < fColumns.size(); ++i) {
            if (fColumns[i].kind != KTColumnKind::Text) continue;
            auto& ref = Value<TextArena::Ref>(row, static_cast<int>(i));
            ref = kept.Add(fTexts.At(ref));
        }
    }
    fTexts = std::move(kept);
}
