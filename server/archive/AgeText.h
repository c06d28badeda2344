// The two ways in which the age format writes bytes as text: base64 without padding in headers,
// Bech32 for keys.
//
// Pure functions over hostile input.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kit/message/Types.h"
#include "server/archive/Secret.h"

namespace server::archive {

std::string Base64(std::span<const uint8_t> bytes);
// Nothing for what Base64 does not write: other characters, padding, bits left over.
std::optional<Bytes> FromBase64(std::string_view text);

// `prefix` is in lower case, and so is the text. The text may be a key, hence a secret.
Secret Bech32(std::string_view prefix, std::span<const uint8_t> bytes);
// All in lower or all in upper case, with this prefix and the right checksum; else nothing.
std::optional<Secret> FromBech32(std::string_view prefix, std::string_view text);

}  // namespace server::archive
