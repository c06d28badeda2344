// The primitives of the age format: HKDF, X25519, scrypt and ChaCha20-Poly1305, all of them
// OpenSSL's. A failure is one of memory, or a forgery where that is said.
//
// Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

#include "kit/message/Types.h"
#include "server/archive/Secret.h"

namespace server::archive {

inline constexpr size_t kAgeKeySize = 32;  // of every key but the file's
inline constexpr size_t kAgeTagSize = 16;  // what sealing adds
inline constexpr size_t kAgeNonceSize = 12;

using AgeKey = std::array<uint8_t, kAgeKeySize>;  // one that is no secret: public, or a sum

void RandomBytes(std::span<uint8_t> into);

// HKDF with SHA-256, 32 bytes of it.
Secret Hkdf(std::span<const uint8_t> key, std::span<const uint8_t> salt, std::string_view info);
AgeKey HmacSha256(std::span<const uint8_t> key, std::string_view text);
bool IsEqual(std::span<const uint8_t> left, std::span<const uint8_t> right);  // in constant time

AgeKey PublicKeyOf(const Secret& privateKey);
// What two sides have in common; nothing for a public key that gives the same to everybody.
std::optional<Secret> SharedSecret(const Secret& privateKey, const AgeKey& publicKey);

// Takes 2^workFactor KiB of memory and, with 18, about a second. Nothing when there is no memory.
std::optional<Secret> Scrypt(const Secret& password, std::span<const uint8_t> salt, int workFactor);

// ChaCha20-Poly1305. `sealed` has kAgeTagSize bytes more than `plain`.
using AgeNonce = std::array<uint8_t, kAgeNonceSize>;
bool Seal(const Secret& key, const AgeNonce& nonce, std::span<const uint8_t> plain,
          std::span<uint8_t> sealed);
// False for a forgery; `plain` holds nothing then.
bool Unseal(const Secret& key, const AgeNonce& nonce, std::span<const uint8_t> sealed,
            std::span<uint8_t> plain);

}  // namespace server::archive
