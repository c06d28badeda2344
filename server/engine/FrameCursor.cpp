#include "server/engine/FrameCursor.h"

#include <algorithm>
#include <cstring>

namespace server {

FrameCursor::FrameCursor(const BackupContent& content, CatalogueReader& catalogue)
    : fContent(content), fCatalogue(catalogue), fContext(content.NewContext()) {}

kit::Status FrameCursor::Load(int64_t number) {
    fAt = 0;
    if (number == fFrame) return fProblem;
    fFrame = number;
    const auto frame = fCatalogue.FrameAt(number);
    if (!frame) {
        fProblem = kit::Error::Make(kit::ErrorKind::Damaged, "", "the catalogue has no such frame");
    } else {
        fProblem = fContent.ReadFrame(*frame, *fContext, &fPacked, &fData);
    }
    if (!fProblem) fData.clear();
    return fProblem;
}

kit::Status FrameCursor::Seek(int64_t frame, int64_t offset) {
    if (auto status = Load(frame); !status) return status;
    if (offset < 0 || static_cast<uint64_t>(offset) > fData.size()) {
        return kit::Error::Make(kit::ErrorKind::Damaged, "", "a place behind the frame's end");
    }
    fAt = static_cast<size_t>(offset);
    return {};
}

kit::Result<std::span<const uint8_t>> FrameCursor::Take(size_t most) {
    // A frame without content says nothing: an endless row of them would never end.
    if (fAt == fData.size()) {
        if (auto status = Load(fFrame + 1); !status) return status.error();
        if (fData.empty()) return kit::Error::Make(kit::ErrorKind::Damaged, "", "an empty frame");
    }
    const auto part =
        std::span<const uint8_t>(fData).subspan(fAt).first(std::min(most, fData.size() - fAt));
    fAt += part.size();
    return part;
}

kit::Status FrameCursor::Read(std::span<uint8_t> into) {
    while (!into.empty()) {
        const auto part = Take(into.size());
        if (!part) return part.error();
        std::memcpy(into.data(), part->data(), part->size());
        into = into.subspan(part->size());
    }
    return {};
}

}  // namespace server
