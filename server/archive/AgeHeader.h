// The header of an age file: for whom it is sealed, and with what the rest of it is. The format is
// public (version 1 of it); docs/archive.md shows the bytes.
//
// Pure functions over hostile input, any thread.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "kit/support/Result.h"
#include "server/archive/AgeKeys.h"

namespace server::archive {

// A header of ours has 168 bytes; what is longer than this is refused unread.
inline constexpr size_t kMostAgeHeader = size_t{64} << 10;
inline constexpr int kMostScryptWorkFactor = 20;  // a GiB of memory

struct AgeStanza {
    std::string type;
    std::vector<std::string> arguments;
    Bytes body;
};

struct AgeHeader {
    std::vector<AgeStanza> stanzas;
    std::string text;  // what `mac` is over
    AgeKey mac{};
    size_t size = 0;  // bytes of the file that it takes
};

// The header at the beginning of `file`. Damaged: there is none, or not all of it.
kit::Result<AgeHeader> ParseAgeHeader(std::span<const uint8_t> file);

// The key of the file. Denied: it is sealed for somebody else, or the password is wrong; Damaged:
// the header was changed; TooLarge: its scrypt would take too long.
kit::Result<Secret> FileKeyFor(const AgeHeader& header, const AgeIdentity& identity);
kit::Result<Secret> FileKeyFor(const AgeHeader& header, const Secret& password);

// A header with one stanza. Invalid: no file can be sealed for this recipient; Io: no memory.
kit::Result<std::string> WriteAgeHeader(const Secret& fileKey, const AgeRecipient& recipient);
kit::Result<std::string> WriteAgeHeader(const Secret& fileKey, const Secret& password,
                                        int workFactor);

inline constexpr size_t kAgeFileKeySize = 16;

}  // namespace server::archive
