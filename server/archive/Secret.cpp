#include "server/archive/Secret.h"

#include <openssl/crypto.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>
#include <utility>

namespace server::archive {

void Wipe(std::span<uint8_t> bytes) {
    if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
}

Secret::Secret(size_t size) {
    if (size == 0) return;
    void* pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    // Both are limits of the user's that a backup must not fail for.
    (void)::mlock(pages, size);
    (void)::madvise(pages, size, MADV_DONTDUMP);
    fData = static_cast<uint8_t*>(pages);
    fSize = size;
}

Secret::Secret(std::span<const uint8_t> bytes) : Secret(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), fData);
}

Secret::Secret(std::string_view text)
    : Secret(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size())) {}

Secret::~Secret() {
    Free();
}

Secret::Secret(Secret&& other) noexcept
    : fData(std::exchange(other.fData, nullptr)), fSize(std::exchange(other.fSize, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this == &other) return *this;
    Free();
    fData = std::exchange(other.fData, nullptr);
    fSize = std::exchange(other.fSize, 0);
    return *this;
}

void Secret::Free() {
    if (!fData) return;
    Wipe(Data());
    ::munmap(fData, fSize);
}

}  // namespace server::archive
