#include "server/engine/FrameScanner.h"

#include <xxhash.h>

#include <algorithm>
#include <utility>

#include "server/archive/Format.h"

namespace server {

namespace {

// A frame that did not get smaller still has its own format around it.
constexpr size_t kMostPacked = archive::kFrameSize * 5 / 4;
// Where a place of a medium cannot be read, what is around it is read in pieces of this size.
constexpr size_t kPiece = size_t{64} << 10;
constexpr size_t kMagicSize = 4;

}  // namespace

FrameScanner::FrameScanner(const BackupContent& content)
    : fContent(content), fContext(content.NewContext()) {
    // Nothing in a frame shows how each of them begins.
    if (fContext && !fContext->Compress({}, &fMagic)) fMagic.clear();
    fMagic.resize(std::min(fMagic.size(), kMagicSize));
}

std::vector<std::string> FrameScanner::TakeProblems() {
    return std::exchange(fProblems, {});
}

bool FrameScanner::Next(Frame* frame) {
    while (fContext) {
        if (!Fill()) {
            if (!OpenNextMedium()) return false;
            continue;
        }
        size_t used = 0;
        const auto window = Window();
        const kit::Status status =
            fContext->DecompressFirst(window, archive::kFrameSize, &frame->content, &used);
        if (!status || used == 0 || used > window.size()) {
            PassDamage(std::min(used, window.size()));
            continue;
        }
        frame->place = {};
        frame->place.medium = fMedium;
        frame->place.offset = fRead - static_cast<int64_t>(window.size());
        frame->place.size = static_cast<int64_t>(used);
        frame->place.content = static_cast<int64_t>(frame->content.size());
        frame->place.hash = XXH3_64bits(frame->content.data(), frame->content.size());
        frame->isAfterGap = std::exchange(fIsAfterGap, false);
        fAt += used;
        return true;
    }
    return false;
}

bool FrameScanner::OpenNextMedium() {
    if (fMedium > 0) CheckSum();
    const int count = static_cast<int>(fContent.Manifest().media.size());
    if (fMedium >= count) return false;
    ++fMedium;
    fBytes.clear();
    fAt = 0;
    fSize = fRead = 0;
    fIsTold = false;
    fSum = {};
    fFile = fContent.Medium(fMedium);
    const auto& medium = fContent.Manifest().media[static_cast<size_t>(fMedium) - 1];
    const auto size = fFile->Size();
    if (size) {
        fSize = *size;
        return true;
    }
    fIsAfterGap = true;
    fProblems.push_back("'" + medium.file + "' cannot be read. " + size.error().Text());
    return true;
}

// Not every format notices damage by itself. A sealed medium does, and its sum is that of the
// seals.
void FrameScanner::CheckSum() {
    const auto& manifest = fContent.Manifest();
    const auto& medium = manifest.media[static_cast<size_t>(fMedium) - 1];
    if (manifest.isProtected || medium.sha256.empty() || fIsTold) return;
    if (fSum.Finish() != medium.sha256)
        fProblems.push_back("the checksum of '" + medium.file + "' is wrong");
    fIsTold = true;
}

// What a frame can be at most, where the medium has so much. False: the medium is at its end.
bool FrameScanner::Fill() {
    if (Window().size() < kMostPacked && fRead < fSize) {
        fBytes.erase(fBytes.begin(), fBytes.begin() + static_cast<std::ptrdiff_t>(fAt));
        fAt = 0;
        const size_t kept = fBytes.size();
        const auto more = static_cast<size_t>(
            std::min<int64_t>(fSize - fRead, static_cast<int64_t>(2 * kMostPacked - kept)));
        fBytes.resize(kept + more);
        ReadPiece(std::span(fBytes).subspan(kept), fRead);
        fSum.Update(std::span(fBytes).subspan(kept));
        fRead += static_cast<int64_t>(more);
    }
    return !Window().empty();
}

// What cannot be read is zeros: no frame that has them can be unpacked.
void FrameScanner::ReadPiece(std::span<uint8_t> into, int64_t offset) {
    const auto got = fFile->ReadAt(offset, into);
    if (got && *got == into.size()) return;
    if (into.size() > kPiece) {
        for (size_t at = 0; at < into.size();) {
            // To the next border of pieces, as seen from the medium's beginning.
            const size_t over = static_cast<size_t>(offset + static_cast<int64_t>(at)) % kPiece;
            const size_t size = std::min(kPiece - over, into.size() - at);
            ReadPiece(into.subspan(at, size), offset + static_cast<int64_t>(at));
            at += size;
        }
        return;
    }
    std::ranges::fill(into, uint8_t{0});
}

// Goes on behind a frame of that size that cannot be unpacked; 0: where the next one begins must be
// looked for.
void FrameScanner::PassDamage(size_t size) {
    const int64_t place = fRead - static_cast<int64_t>(Window().size());
    fIsAfterGap = true;
    if (size == 0) {
        const auto rest = Window().subspan(1);
        const auto found = fMagic.empty() ? rest.end() : std::ranges::search(rest, fMagic).begin();
        size = 1 + static_cast<size_t>(found - rest.begin());
        // It may lie across the end of what was read.
        if (found == rest.end() && fRead < fSize && !fMagic.empty())
            size -= std::min(size - 1, kMagicSize - 1);
    }
    fAt += size;
    if (std::exchange(fIsTold, true)) return;
    const auto& medium = fContent.Manifest().media[static_cast<size_t>(fMedium) - 1];
    fProblems.push_back("'" + medium.file + "' is damaged at byte " + std::to_string(place) + ".");
}

}  // namespace server
