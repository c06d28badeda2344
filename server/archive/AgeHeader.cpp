#include "server/archive/AgeHeader.h"

#include <algorithm>
#include <optional>

#include "server/archive/AgeText.h"

namespace server::archive {

namespace {

constexpr std::string_view kVersionLine = "age-encryption.org/v1";
constexpr std::string_view kX25519 = "X25519";
constexpr std::string_view kX25519Info = "age-encryption.org/v1/X25519";
constexpr std::string_view kScrypt = "scrypt";
constexpr std::string_view kScryptLabel = "age-encryption.org/v1/scrypt";

constexpr size_t kColumns = 64;  // of a stanza's body
constexpr size_t kMostStanzas = 64;
constexpr size_t kMostArguments = 16;
constexpr size_t kSaltSize = 16;
constexpr size_t kWrappedSize = kAgeFileKeySize + kAgeTagSize;

kit::Error Damaged(const char* what) {
    return kit::Error::Make(kit::ErrorKind::Damaged, "", what);
}

// The lines of a header, one after the other.
class Lines {
public:
    explicit Lines(std::string_view text) : fText(text) {}
    // Without its end; nothing where no line ends any more.
    std::optional<std::string_view> Next() {
        const size_t end = fText.find('\n', fAt);
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view line = fText.substr(fAt, end - fAt);
        fLast = std::exchange(fAt, end + 1);
        return line;
    }
    size_t Begin() const { return fLast; }  // of the line that Next gave
    size_t End() const { return fAt; }

private:
    std::string_view fText;
    size_t fAt = 0, fLast = 0;
};

bool IsWord(std::string_view word) {
    return !word.empty() &&
           std::all_of(word.begin(), word.end(), [](char c) { return c >= 33 && c <= 126; });
}

std::optional<AgeStanza> ParseStanza(std::string_view line, Lines& lines) {
    line.remove_prefix(3);  // "-> "
    AgeStanza stanza;
    for (bool first = true;; first = false) {
        const size_t blank = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, blank);
        if (!IsWord(word) || stanza.arguments.size() == kMostArguments) return std::nullopt;
        if (first) {
            stanza.type = word;
        } else {
            stanza.arguments.emplace_back(word);
        }
        if (blank == line.size()) break;
        line.remove_prefix(blank + 1);
    }
    // The body ends with the first line that is not full.
    for (;;) {
        const auto part = lines.Next();
        if (!part || part->size() > kColumns) return std::nullopt;
        const auto bytes = FromBase64(*part);
        if (!bytes) return std::nullopt;
        stanza.body.insert(stanza.body.end(), bytes->begin(), bytes->end());
        if (part->size() < kColumns) return stanza;
    }
}

AgeKey MacOf(const Secret& fileKey, std::string_view text) {
    return HmacSha256(Hkdf(fileKey.Data(), {}, "header").Data(), text);
}

kit::Result<Secret> Genuine(const AgeHeader& header, Secret fileKey) {
    if (!IsEqual(MacOf(fileKey, header.text), header.mac)) return Damaged("the header was changed");
    return fileKey;
}

Bytes Wrapped(const Secret& key, const Secret& fileKey) {
    Bytes wrapped(kWrappedSize);
    // The key is used for this alone, so the nonce may be zero.
    if (!Seal(key, AgeNonce{}, fileKey.Data(), wrapped)) throw std::bad_alloc();
    return wrapped;
}

std::optional<Secret> Unwrapped(const Secret& key, const AgeStanza& stanza) {
    Secret fileKey(kAgeFileKeySize);
    if (!Unseal(key, AgeNonce{}, stanza.body, fileKey.Data())) return std::nullopt;
    return fileKey;
}

Secret X25519Key(const Secret& shared, const AgeKey& share, const AgeKey& recipient) {
    Bytes salt(share.begin(), share.end());
    salt.insert(salt.end(), recipient.begin(), recipient.end());
    return Hkdf(shared.Data(), salt, kX25519Info);
}

Bytes ScryptSalt(std::span<const uint8_t> salt) {
    Bytes labelled(kScryptLabel.size() + salt.size());
    std::copy(kScryptLabel.begin(), kScryptLabel.end(), labelled.begin());
    std::copy(salt.begin(), salt.end(), labelled.end() - static_cast<ptrdiff_t>(salt.size()));
    return labelled;
}

std::string Written(const Secret& fileKey, std::string_view type, std::string_view arguments,
                    const Bytes& body) {
    std::string text(kVersionLine);
    text.append("\n-> ").append(type).append(" ").append(arguments).append("\n");
    text.append(Base64(body)).append("\n---");
    const AgeKey mac = MacOf(fileKey, text);
    return text + " " + Base64(mac) + "\n";
}

// A decimal number without a sign or leading zeros.
std::optional<int> SmallNumber(std::string_view text) {
    if (text.empty() || text.size() > 4 || text[0] == '0') return std::nullopt;
    int number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

kit::Result<AgeHeader> ParseAgeHeader(std::span<const uint8_t> file) {
    const std::string_view text(reinterpret_cast<const char*>(file.data()),
                                std::min(file.size(), kMostAgeHeader));
    Lines lines(text);
    if (lines.Next() != kVersionLine) return Damaged("no age file");
    AgeHeader header;
    for (;;) {
        const auto line = lines.Next();
        if (!line) return Damaged("the header has no end");
        if (line->starts_with("--- ")) {
            const auto mac = FromBase64(line->substr(4));
            if (!mac || mac->size() != header.mac.size() || header.stanzas.empty()) {
                return Damaged("the end of the header");
            }
            std::copy(mac->begin(), mac->end(), header.mac.begin());
            header.text = text.substr(0, lines.Begin() + 3);
            header.size = lines.End();
            return header;
        }
        if (!line->starts_with("-> ") || header.stanzas.size() == kMostStanzas) {
            return Damaged("a line of the header");
        }
        auto stanza = ParseStanza(*line, lines);
        if (!stanza) return Damaged("a stanza of the header");
        header.stanzas.push_back(std::move(*stanza));
    }
}

kit::Result<Secret> FileKeyFor(const AgeHeader& header, const AgeIdentity& identity) {
    const AgeKey own = identity.Recipient().Key();
    for (const AgeStanza& stanza : header.stanzas) {
        if (stanza.type != kX25519) continue;
        const auto bytes =
            stanza.arguments.size() == 1 ? FromBase64(stanza.arguments[0]) : std::nullopt;
        if (!bytes || bytes->size() != kAgeKeySize || stanza.body.size() != kWrappedSize) {
            return Damaged("a stanza of the header");
        }
        AgeKey share;
        std::copy(bytes->begin(), bytes->end(), share.begin());
        const auto shared = SharedSecret(identity.Key(), share);
        if (!shared) return Damaged("a key that cannot be");
        auto fileKey = Unwrapped(X25519Key(*shared, share, own), stanza);
        if (fileKey) return Genuine(header, std::move(*fileKey));
    }
    return kit::Error::Make(kit::ErrorKind::Denied, "", "it is sealed for another key");
}

kit::Result<Secret> FileKeyFor(const AgeHeader& header, const Secret& password) {
    const AgeStanza& stanza = header.stanzas.front();
    if (header.stanzas.size() != 1 || stanza.type != kScrypt) {
        return Damaged("it is not sealed with a password");
    }
    if (stanza.arguments.size() != 2 || stanza.body.size() != kWrappedSize) {
        return Damaged("a stanza of the header");
    }
    const auto salt = FromBase64(stanza.arguments[0]);
    const auto workFactor = SmallNumber(stanza.arguments[1]);
    if (!salt || salt->size() != kSaltSize || !workFactor) return Damaged("a stanza of the header");
    if (*workFactor > kMostScryptWorkFactor) {
        return kit::Error::Make(kit::ErrorKind::TooLarge, "", "the password would take too long");
    }
    const auto key = Scrypt(password, ScryptSalt(*salt), *workFactor);
    if (!key) return kit::Error::Make(kit::ErrorKind::Io, "", "no memory for the password");
    auto fileKey = Unwrapped(*key, stanza);
    if (!fileKey) return kit::Error::Make(kit::ErrorKind::Denied, "", "wrong password");
    return Genuine(header, std::move(*fileKey));
}

kit::Result<std::string> WriteAgeHeader(const Secret& fileKey, const AgeRecipient& recipient) {
    const AgeIdentity once = AgeIdentity::Generate();
    const AgeKey share = once.Recipient().Key();
    const auto shared = SharedSecret(once.Key(), recipient.Key());
    if (!shared) return kit::Error::Make(kit::ErrorKind::Invalid, "", "no key to seal for");
    return Written(fileKey, kX25519, Base64(share),
                   Wrapped(X25519Key(*shared, share, recipient.Key()), fileKey));
}

kit::Result<std::string> WriteAgeHeader(const Secret& fileKey, const Secret& password,
                                        int workFactor) {
    AgeKey random;
    RandomBytes(random);
    const auto salt = std::span(random).first(kSaltSize);
    const auto key = Scrypt(password, ScryptSalt(salt), workFactor);
    if (!key) return kit::Error::Make(kit::ErrorKind::Io, "", "no memory for the password");
    return Written(fileKey, kScrypt, Base64(salt) + " " + std::to_string(workFactor),
                   Wrapped(*key, fileKey));
}

}  // namespace server::archive
