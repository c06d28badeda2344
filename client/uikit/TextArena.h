// TextArena: the short texts of a list, back to back, addressed by 32 bits. A released text stays
// where it is and is only counted; the owner makes a new arena of what is still needed when that
// pays.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

class TextArena {
public:
    using Ref = uint32_t;
    static constexpr Ref kEmpty = 0;
    static constexpr size_t kMaxText = 65535;  // longer ones are cut

    // kEmpty for an empty text, and when 4 GB are full.
    Ref Add(std::string_view text);
    // Valid until the arena is gone.
    std::string_view At(Ref ref) const;
    void Release(Ref ref);
    // More than half of what is stored is no longer needed.
    bool IsWasteful() const { return fReleased > kBlockSize && fReleased * 2 > fStored; }

private:
    static constexpr unsigned kBlockBits = 18;
    static constexpr size_t kBlockSize = size_t{1} << kBlockBits;

    std::vector<std::unique_ptr<char[]>> fBlocks;
    size_t fUsed = kBlockSize;  // of the last block
    size_t fStored = 0, fReleased = 0;
};
