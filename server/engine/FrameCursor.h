// Reads the tar stream of a backup from any place on, frame by frame. Keeps the frame it read last,
// so that neighbours cost one reading.
//
// One thread.
#pragma once

#include <memory>
#include <span>

#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BackupContent.h"

namespace server {

class FrameCursor {
public:
    // Both must outlive it.
    FrameCursor(const BackupContent& content, CatalogueReader& catalogue);

    // Goes to a place of the stream. Damaged (or what reading the medium gave) as long as it stands
    // in a frame that cannot be had.
    kit::Status Seek(int64_t frame, int64_t offset);
    // The next bytes, at least one and at most `most`; valid until the next call.
    kit::Result<std::span<const uint8_t>> Take(size_t most);
    // The whole of `into`.
    kit::Status Read(std::span<uint8_t> into);
    // Where it stands.
    int64_t Frame() const { return fFrame; }

private:
    kit::Status Load(int64_t frame);

    const BackupContent& fContent;
    CatalogueReader& fCatalogue;
    std::unique_ptr<KTCruncherContext> fContext;
    Bytes fPacked, fData;
    int64_t fFrame = -1;   // the one in fData
    kit::Status fProblem;  // with it
    size_t fAt = 0;
};

}  // namespace server
