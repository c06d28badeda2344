#include "server/engine/FrameCursor.h"

#include <algorithm>
#include <cstring>

namespace server {

namespace {

// Each costs two frames of memory; of a longer chain the ones used last are kept.
constexpr size_t kMostKept = 4;

}  // namespace

FrameCursor::FrameCursor(const BackupContent& content, CatalogueReader& catalogue)
    : fContent(content), fCatalogue(catalogue) {}

FrameCursor::Kept& FrameCursor::KeptOf(const BackupContent& source) {
    for (const auto& kept : fKept)
        if (kept->source == &source) return *kept;
    if (fKept.size() < kMostKept) {
        fKept.push_back(std::make_unique<Kept>());
    } else {
        std::ranges::sort(fKept, std::ranges::greater(),
                          [](const auto& kept) { return kept->used; });
    }
    Kept& kept = *fKept.back();
    kept.source = &source;
    kept.context = source.NewContext();
    kept.frame = -1;
    return kept;
}

kit::Status FrameCursor::Load(int64_t number) {
    fAt = 0;
    if (fNow && number == fNow->frame) return fNow->problem;
    for (const auto& kept : fKept) {
        if (kept->frame != number) continue;
        fNow = kept.get();
        fNow->used = ++fSteps;
        return fNow->problem;
    }
    const auto frame = fCatalogue.FrameAt(number);
    const BackupContent* source = frame ? fContent.Source(frame->source) : nullptr;
    fNow = source ? &KeptOf(*source) : &fNowhere;
    fNow->used = ++fSteps;
    fNow->frame = number;
    fNow->problem =
        source ? source->ReadFrame(*frame, *fNow->context, &fNow->packed, &fNow->data)
               : kit::Error::Make(kit::ErrorKind::Damaged, "", "the catalogue has no such frame");
    if (!fNow->problem) fNow->data.clear();
    return fNow->problem;
}

kit::Status FrameCursor::Seek(int64_t frame, int64_t offset) {
    if (auto status = Load(frame); !status) return status;
    if (offset < 0 || static_cast<uint64_t>(offset) > fNow->data.size()) {
        return kit::Error::Make(kit::ErrorKind::Damaged, "", "a place behind the frame's end");
    }
    fAt = static_cast<size_t>(offset);
    return {};
}

kit::Result<std::span<const uint8_t>> FrameCursor::Take(size_t most) {
    // A frame without content says nothing: an endless row of them would never end.
    if (!fNow || fAt == fNow->data.size()) {
        if (auto status = Load(Frame() + 1); !status) return status.error();
        if (fNow->data.empty())
            return kit::Error::Make(kit::ErrorKind::Damaged, "", "an empty frame");
    }
    const auto rest = std::span<const uint8_t>(fNow->data).subspan(fAt);
    const auto part = rest.first(std::min(most, rest.size()));
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
