// The payload of an age file: chunks of 64 KiB, each sealed on its own, so that any place can be
// read without what is in front of it.
#pragma once

#include <memory>
#include <mutex>

#include "server/archive/AgeHeader.h"
#include "server/archive/FileSource.h"

namespace server::archive {

inline constexpr size_t kAgeChunk = size_t{64} << 10;

// Seals one file from its beginning to its end. One thread at a time.
class AgeSealer {
public:
    static kit::Result<AgeSealer> For(const AgeRecipient& recipient);
    static kit::Result<AgeSealer> For(const Secret& password, int workFactor);

    // Appends what is ready of the sealed file to `sealed`; the rest comes later.
    void Add(std::span<const uint8_t> plain, Bytes* sealed);
    void Finish(Bytes* sealed);
    // For a file that must end before what was added last: notes where it stands, and goes back
    // there. After that only Finish is allowed: a place may be sealed anew only as the end.
    struct Mark {
        uint64_t chunk = 0;
        Bytes waiting;
    };
    void Note(Mark* mark) const { *mark = {fChunk, fWaiting}; }
    void GoBack(const Mark& mark);
    // Bytes of the sealed file when `plain` bytes are in it.
    int64_t SizeOf(int64_t plain) const;

private:
    AgeSealer(const Secret& fileKey, const std::string& header);
    void SealChunk(std::span<const uint8_t> plain, bool last, Bytes* sealed);

    Bytes fHead;  // header and nonce; they go out with the first chunk
    Secret fKey;
    uint64_t fChunk = 0;
    Bytes fWaiting;  // a chunk is known to be the last one only at the end
};

// The plain bytes of a sealed file; reading takes the chunks that are needed and no others. Nothing
// is given that is not genuine and in its place: Damaged otherwise. That the end is missing is
// noticed by who reads up to there; what is in front of it can still be had. Denied: `identity` is
// not the one.
std::unique_ptr<FileSource> OpenAge(std::unique_ptr<FileSource> sealed,
                                    std::shared_ptr<const AgeIdentity> identity);

// The content of a small file that is sealed with a password, whole. Errors are those of
// FileKeyFor.
kit::Result<Secret> UnsealSmall(std::span<const uint8_t> file, const Secret& password);

}  // namespace server::archive
