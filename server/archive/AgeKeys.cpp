#include "server/archive/AgeKeys.h"

#include <algorithm>

#include "server/archive/AgeText.h"

namespace server::archive {

namespace {

constexpr std::string_view kRecipientPrefix = "age";
constexpr std::string_view kIdentityPrefix = "age-secret-key-";

}  // namespace

std::optional<AgeRecipient> AgeRecipient::FromText(std::string_view text) {
    const auto bytes = FromBech32(kRecipientPrefix, text);
    if (!bytes || bytes->Size() != kAgeKeySize) return std::nullopt;
    AgeKey key;
    std::copy(bytes->Data().begin(), bytes->Data().end(), key.begin());
    return AgeRecipient(key);
}

std::string AgeRecipient::Text() const {
    return std::string(Bech32(kRecipientPrefix, fKey).Text());
}

AgeIdentity AgeIdentity::Generate() {
    Secret key(kAgeKeySize);
    RandomBytes(key.Data());
    return AgeIdentity(std::move(key));
}

std::optional<AgeIdentity> AgeIdentity::FromText(std::string_view text) {
    auto key = FromBech32(kIdentityPrefix, text);
    if (!key || key->Size() != kAgeKeySize) return std::nullopt;
    return AgeIdentity(std::move(*key));
}

Secret AgeIdentity::Text() const {
    Secret text = Bech32(kIdentityPrefix, fKey.Data());
    for (uint8_t& c : text.Data())
        if (c >= 'a' && c <= 'z') c = static_cast<uint8_t>(c - 'a' + 'A');
    return text;
}

}  // namespace server::archive
