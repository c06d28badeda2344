#include "server/archive/AgeText.h"

#include <algorithm>
#include <array>

namespace server::archive {

namespace {

constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kBech32 = "qpzry9x8gf2tvdw0s3jn54khce6mua7l";
constexpr size_t kChecksum = 6;
constexpr size_t kMostBech32 = 256;

// The checksum of Bech32: a running remainder over values of five bits.
class Remainder {
public:
    void Add(unsigned value) {
        static constexpr std::array<uint32_t, 5> kGenerator = {0x3b6a57b2, 0x26508e6d, 0x1ea119fa,
                                                               0x3d4233dd, 0x2a1462b3};
        const uint32_t top = fValue >> 25;
        fValue = (fValue & 0x1ffffff) << 5 ^ value;
        for (size_t i = 0; i < kGenerator.size(); ++i)
            if ((top >> i & 1) != 0) fValue ^= kGenerator[i];
    }
    void AddPrefix(std::string_view prefix) {
        for (const char c : prefix)
            Add(static_cast<unsigned char>(c) >> 5);
        Add(0);
        for (const char c : prefix)
            Add(static_cast<unsigned char>(c) & 31);
    }
    uint32_t Value() const { return fValue; }

private:
    uint32_t fValue = 1;
};

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::string Base64(std::span<const uint8_t> bytes) {
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (const uint8_t byte : bytes) {
        bits = bits << 8 | byte;
        for (count += 8; count >= 6; count -= 6)
            text += kBase64[bits >> (count - 6) & 63];
    }
    if (count > 0) text += kBase64[bits << (6 - count) & 63];
    return text;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    if (text.size() % 4 == 1) return std::nullopt;
    Bytes bytes;
    uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const size_t value = kBase64.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        bits = bits << 6 | static_cast<uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<uint8_t>(bits >> count));
    }
    if ((bits & ((1U << count) - 1)) != 0) return std::nullopt;
    return bytes;
}

Secret Bech32(std::string_view prefix, std::span<const uint8_t> bytes) {
    const size_t digits = (bytes.size() * 8 + 4) / 5;
    Secret text(prefix.size() + 1 + digits + kChecksum);
    uint8_t* at = std::copy(prefix.begin(), prefix.end(), text.Data().data());
    *at++ = '1';
    Remainder remainder;
    remainder.AddPrefix(prefix);
    const auto put = [&](unsigned value) {
        remainder.Add(value);
        *at++ = static_cast<uint8_t>(kBech32[value]);
    };
    uint32_t bits = 0;
    int count = 0;
    for (const uint8_t byte : bytes) {
        bits = bits << 8 | byte;
        for (count += 8; count >= 5; count -= 5)
            put(bits >> (count - 5) & 31);
    }
    if (count > 0) put(bits << (5 - count) & 31);
    for (size_t i = 0; i < kChecksum; ++i)
        remainder.Add(0);
    const uint32_t sum = remainder.Value() ^ 1;
    for (size_t i = 0; i < kChecksum; ++i)
        *at++ = static_cast<uint8_t>(kBech32[sum >> 5 * (kChecksum - 1 - i) & 31]);
    return text;
}

std::optional<Secret> FromBech32(std::string_view prefix, std::string_view text) {
    if (text.size() > kMostBech32 || text.size() < prefix.size() + 1 + kChecksum) {
        return std::nullopt;
    }
    const auto isLower = [](char c) { return c >= 'a' && c <= 'z'; };
    const auto isUpper = [](char c) { return c >= 'A' && c <= 'Z'; };
    if (std::any_of(text.begin(), text.end(), isLower) &&
        std::any_of(text.begin(), text.end(), isUpper)) {
        return std::nullopt;
    }
    for (size_t i = 0; i < prefix.size(); ++i)
        if (Lower(text[i]) != prefix[i]) return std::nullopt;
    if (text[prefix.size()] != '1') return std::nullopt;
    const std::string_view digits = text.substr(prefix.size() + 1);
    const size_t values = digits.size() - kChecksum;

    Secret bytes(values * 5 / 8);
    Remainder remainder;
    remainder.AddPrefix(prefix);
    uint32_t bits = 0;
    int count = 0;
    size_t filled = 0;
    for (size_t i = 0; i < digits.size(); ++i) {
        const size_t value = kBech32.find(Lower(digits[i]));
        if (value == std::string_view::npos) return std::nullopt;
        remainder.Add(static_cast<unsigned>(value));
        if (i >= values) continue;
        bits = bits << 5 | static_cast<uint32_t>(value);
        count += 5;
        if (count < 8) continue;
        count -= 8;
        bytes.Data()[filled++] = static_cast<uint8_t>(bits >> count);
    }
    if (remainder.Value() != 1 || count >= 5 || (bits & ((1U << count) - 1)) != 0) {
        return std::nullopt;
    }
    return bytes;
}

}  // namespace server::archive
