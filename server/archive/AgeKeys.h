// The two halves of a key of the age format: the recipient, for whom files are sealed, and the
// identity, which opens them.
//
// Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "server/archive/AgeCipher.h"

namespace server::archive {

class AgeRecipient {
public:
    explicit AgeRecipient(const AgeKey& key) : fKey(key) {}
    // "age1…"; nothing for any other text.
    static std::optional<AgeRecipient> FromText(std::string_view text);
    std::string Text() const;
    const AgeKey& Key() const { return fKey; }
    bool operator==(const AgeRecipient&) const = default;

private:
    AgeKey fKey;
};

class AgeIdentity {
public:
    static AgeIdentity Generate();
    // "AGE-SECRET-KEY-1…"; nothing for any other text.
    static std::optional<AgeIdentity> FromText(std::string_view text);
    Secret Text() const;
    const Secret& Key() const { return fKey; }
    AgeRecipient Recipient() const { return AgeRecipient(PublicKeyOf(fKey)); }

private:
    explicit AgeIdentity(Secret key) : fKey(std::move(key)) {}
    Secret fKey;
};

}  // namespace server::archive
