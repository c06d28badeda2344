// Reads the media of a backup from the first byte to the last without knowing where their frames
// lie. What is damaged is passed over: the next frame that can be unpacked says that something is
// missing before it.
//
// One thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/archive/BackupWriter.h"
#include "server/engine/BackupContent.h"

namespace server {

class FrameScanner {
public:
    struct Frame {
        CatalogueFrame place;  // without its number and source
        Bytes content;
        bool isAfterGap = false;
    };

    // The content must outlive it.
    explicit FrameScanner(const BackupContent& content);

    // The next one; false at the end. What `frame` has of room is used again.
    bool Next(Frame* frame);
    // What was wrong with the media so far, in words; each is told once.
    std::vector<std::string> TakeProblems();

private:
    bool OpenNextMedium();
    void CheckSum();
    bool Fill();
    void ReadPiece(std::span<uint8_t> into, int64_t offset);
    void PassDamage(size_t size);
    std::span<const uint8_t> Window() const { return std::span(fBytes).subspan(fAt); }

    const BackupContent& fContent;
    const std::unique_ptr<KTCruncherContext> fContext;
    int fMedium = 0;
    archive::FileSource* fFile = nullptr;
    int64_t fSize = 0;  // of the medium
    int64_t fRead = 0;  // of it, in fBytes or behind
    Bytes fBytes;       // what was read and not passed yet, from fAt on
    size_t fAt = 0;
    Bytes fMagic;          // how frames begin here; empty where they leave no trace
    archive::Sha256 fSum;  // of the medium so far
    bool fIsAfterGap = false;
    bool fIsTold = false;  // damage of this medium
    std::vector<std::string> fProblems;
};

}  // namespace server
