#include "client/uikit/TextArena.h"

#include <cstring>

namespace {
// The length before a text: one byte, or this one and two more.
constexpr uint8_t kLong = 255;

size_t Stored(size_t length) {
    return length + (length < kLong ? 1 : 3);
}
}  // namespace

TextArena::Ref TextArena::Add(std::string_view text) {
    if (text.empty()) return kEmpty;
    text = text.substr(0, kMaxText);
    const size_t need = Stored(text.size());
    if (fUsed + need > kBlockSize) {
        if (fBlocks.size() == (size_t{1} << (32 - kBlockBits))) return kEmpty;
        // Not cleared: a list of three rows must not touch the whole block.
        fBlocks.push_back(std::make_unique_for_overwrite<char[]>(kBlockSize));
        fUsed = fBlocks.size() == 1 ? 1 : 0;  // nobody lives at kEmpty
    }
    const size_t block = fBlocks.size() - 1;
    char* at = fBlocks[block].get() + fUsed;
    const Ref ref = static_cast<Ref>((block << kBlockBits) + fUsed);
    if (text.size() < kLong) {
        *at++ = static_cast<char>(text.size());
    } else {
        *at++ = static_cast<char>(kLong);
        *at++ = static_cast<char>(text.size() & 0xff);
        *at++ = static_cast<char>(text.size() >> 8);
    }
    std::memcpy(at, text.data(), text.size());
    fUsed += need;
    fStored += need;
    return ref;
}

std::string_view TextArena::At(Ref ref) const {
    if (ref == kEmpty) return {};
    const char* at = fBlocks[ref >> kBlockBits].get() + (ref & (kBlockSize - 1));
    size_t length = static_cast<uint8_t>(*at++);
    if (length == kLong) {
        length = static_cast<uint8_t>(at[0]) | static_cast<size_t>(static_cast<uint8_t>(at[1]))
                                                   << 8;
        at += 2;
    }
    return {at, length};
}

void TextArena::Release(Ref ref) {
    if (ref != kEmpty) fReleased += Stored(At(ref).size());
}
