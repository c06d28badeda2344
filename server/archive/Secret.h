// Bytes that nobody else may come to see: a password, a private key, a cipher's key. They lie in
// pages of their own, kept out of swap and of core dumps where the system allows it, and are wiped
// when the object goes.
//
// Moved, never copied by accident. One thread at a time; constant calls by several.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace server::archive {

class Secret {
public:
    Secret() = default;            // empty
    explicit Secret(size_t size);  // zeros
    explicit Secret(std::span<const uint8_t> bytes);
    explicit Secret(std::string_view text);
    ~Secret();
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;

    size_t Size() const { return fSize; }
    bool IsEmpty() const { return fSize == 0; }
    std::span<uint8_t> Data() { return {fData, fSize}; }
    std::span<const uint8_t> Data() const { return {fData, fSize}; }
    // Valid as long as this and not a moment longer: never put it into a std::string.
    std::string_view Text() const { return {reinterpret_cast<const char*>(fData), fSize}; }

private:
    void Free();

    uint8_t* fData = nullptr;
    size_t fSize = 0;
};

// Overwrites bytes in a way that no optimiser takes out.
void Wipe(std::span<uint8_t> bytes);

}  // namespace server::archive
