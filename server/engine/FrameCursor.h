// Reads the tar streams of a backup, and of those that it builds on, from any place on, frame by
// frame. Keeps the frames it read last, one of each stream, so that neighbours cost one reading.
//
// One thread.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BackupContent.h"

namespace server {

class FrameCursor {
public:
    // Both must outlive it.
    FrameCursor(const BackupContent& content, CatalogueReader& catalogue);

    // Goes to a place of a stream. Damaged (or what reading the medium gave) as long as it stands
    // in a frame that cannot be had.
    kit::Status Seek(int64_t frame, int64_t offset);
    // The next bytes, at least one and at most `most`; valid until the next call.
    kit::Result<std::span<const uint8_t>> Take(size_t most);
    // The whole of `into`.
    kit::Status Read(std::span<uint8_t> into);
    // Where it stands.
    int64_t Frame() const { return fNow ? fNow->frame : -1; }

private:
    // A frame that is kept.
    struct Kept {
        const BackupContent* source = nullptr;
        std::unique_ptr<KTCruncherContext> context;
        Bytes packed, data;
        int64_t frame = -1;   // the one in `data`
        kit::Status problem;  // with it
        uint64_t used = 0;    // when, in steps
    };
    kit::Status Load(int64_t frame);
    Kept& KeptOf(const BackupContent& source);

    const BackupContent& fContent;
    CatalogueReader& fCatalogue;
    std::vector<std::unique_ptr<Kept>> fKept;
    Kept* fNow = nullptr;
    Kept fNowhere;  // where a frame is that the catalogue does not have
    uint64_t fSteps = 0;
    size_t fAt = 0;
};

}  // namespace server
