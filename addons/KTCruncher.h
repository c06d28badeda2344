// KTCruncher: a compressor. Compresses frames of a few MiB, each into one complete frame of its
// format, so that the frames of a file joined are a valid file for the stock tool.
//
// An add-on is a shared object in Backup_Server/add-ons/compressors that exports
//
//     extern "C" KTCruncher* instantiate_ktcruncher();     // null on failure; the caller deletes
//     it
//
// The rules of addons/KTVolume.h hold here too.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "addons/KTSettingsHost.h"
#include "kit/message/BMessage.h"
#include "kit/support/Result.h"

// The state of one thread that compresses or decompresses; made by KTCruncher, used by one thread.
class KTCruncherContext {
public:
    virtual ~KTCruncherContext() = default;
    // `out` is replaced by exactly one frame.
    virtual kit::Status Compress(std::span<const uint8_t> in, Bytes* out) = 0;
    // `out` is replaced by the content of one frame, refused (TooLarge) above `limit` bytes. Input
    // is hostile: Damaged is the answer to anything that is not one whole frame.
    virtual kit::Status Decompress(std::span<const uint8_t> in, size_t limit, Bytes* out) = 0;
    // The same of the frame that `in` begins with, whatever follows it: for media whose frames
    // nobody knows any more. `used` gets its size in bytes, 0 where that cannot be told; Damaged
    // with a size above 0 is a frame that can be passed over. Where frames leave no trace in the
    // file (no compression) any part of it is one.
    virtual kit::Status DecompressFirst(std::span<const uint8_t> in, size_t limit, Bytes* out,
                                        size_t* used) {
        (void)in, (void)limit, (void)out;
        *used = 0;
        return kit::Error::Make(kit::ErrorKind::Unsupported, "", "frames cannot be found");
    }
};

class KTCruncher : public KTSettingsOwner {
public:
    virtual ~KTCruncher() = default;

    // --- what the client uses, in this order
    // ------------------------------------------------------
    virtual int32_t Archive(BMessage* message, bool deep) const = 0;
    virtual bool HasSettings() const = 0;
    // 'crnw' goes to `target` when the settings changed.
    virtual void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                              const char* language) = 0;
    virtual void SetSettings(const BMessage& settings) = 0;
    virtual const char* MenuName() const = 0;
    virtual const char* Description() const = 0;  // valid until the settings change

    // --- what the engine uses
    // ----------------------------------------------------------------------
    virtual const char* Suffix() const = 0;  // of files, with the dot: ".zst"; "" for none
    virtual const char* StockCommand()
        const = 0;  // that unpacks a file to stdout: "zstd -d"; "" for none
    virtual std::unique_ptr<KTCruncherContext> NewContext() const = 0;
};

extern "C" {
using instantiate_ktcruncher_func = KTCruncher* (*)();
}
