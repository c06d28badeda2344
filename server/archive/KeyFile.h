// The key of a protected backup: key.age beside its media, the identity that opens them, itself
// sealed with the password.
//
// Any thread. Making and opening one takes about a second and 256 MiB of memory.
#pragma once

#include "kit/support/Result.h"
#include "server/archive/AgeKeys.h"

namespace server::archive {

inline constexpr int kKeyWorkFactor = 18;
inline constexpr size_t kMostKeyFile = size_t{128} << 10;

// What a protected backup is made with: neither of it is a secret.
struct Protection {
    std::string recipient;  // "age1…", for whom the media are sealed
    Bytes keyFile;          // key.age
};

kit::Result<Protection> MakeProtection(const Secret& password, int workFactor = kKeyWorkFactor);
// Denied: the password is wrong; any other error: the file is no key.
kit::Result<AgeIdentity> OpenKeyFile(std::span<const uint8_t> keyFile, const Secret& password);

}  // namespace server::archive
