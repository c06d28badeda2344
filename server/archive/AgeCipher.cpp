#include "server/archive/AgeCipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <memory>
#include <new>
#include <string>

namespace server::archive {

namespace {

template <auto free>
struct Freed {
    template <class T>
    void operator()(T* object) const {
        free(object);
    }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Freed<EVP_PKEY_CTX_free>>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Freed<EVP_CIPHER_CTX_free>>;

void Hmac(std::span<const uint8_t> key, std::span<const uint8_t> text, uint8_t* sum) {
    static constexpr uint8_t kNoKey = 0;
    if (!HMAC(EVP_sha256(), key.empty() ? &kNoKey : key.data(), static_cast<int>(key.size()),
              text.data(), text.size(), sum, nullptr)) {
        throw std::bad_alloc();
    }
}

std::span<const uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

KeyPointer PrivateKey(const Secret& key) {
    KeyPointer pointer(
        EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, key.Data().data(), key.Size()));
    if (!pointer) throw std::bad_alloc();
    return pointer;
}

}  // namespace

void RandomBytes(std::span<uint8_t> into) {
    // Without randomness nothing that follows would be worth anything.
    if (RAND_bytes(into.data(), static_cast<int>(into.size())) != 1) throw std::bad_alloc();
}

Secret Hkdf(std::span<const uint8_t> key, std::span<const uint8_t> salt, std::string_view info) {
    Secret extracted(kAgeKeySize), expanded(kAgeKeySize);
    Hmac(salt, key, extracted.Data().data());
    const std::string block = std::string(info) + '\1';  // the only one: 32 bytes are wanted
    Hmac(extracted.Data(), BytesOf(block), expanded.Data().data());
    return expanded;
}

AgeKey HmacSha256(std::span<const uint8_t> key, std::string_view text) {
    AgeKey sum;
    Hmac(key, BytesOf(text), sum.data());
    return sum;
}

bool IsEqual(std::span<const uint8_t> left, std::span<const uint8_t> right) {
    return left.size() == right.size() &&
           CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

AgeKey PublicKeyOf(const Secret& privateKey) {
    AgeKey key;
    size_t size = key.size();
    if (EVP_PKEY_get_raw_public_key(PrivateKey(privateKey).get(), key.data(), &size) != 1) {
        throw std::bad_alloc();
    }
    return key;
}

std::optional<Secret> SharedSecret(const Secret& privateKey, const AgeKey& publicKey) {
    const KeyPointer mine = PrivateKey(privateKey);
    const KeyPointer theirs(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, publicKey.data(), publicKey.size()));
    const KeyContext context(EVP_PKEY_CTX_new(mine.get(), nullptr));
    Secret shared(kAgeKeySize);
    size_t size = shared.Size();
    if (!theirs || !context || EVP_PKEY_derive_init(context.get()) != 1 ||
        EVP_PKEY_derive_set_peer(context.get(), theirs.get()) != 1 ||
        EVP_PKEY_derive(context.get(), shared.Data().data(), &size) != 1) {
        return std::nullopt;
    }
    return shared;
}

std::optional<Secret> Scrypt(const Secret& password, std::span<const uint8_t> salt,
                             int workFactor) {
    constexpr uint64_t kBlock = 8, kParallel = 1;
    const uint64_t cost = uint64_t{1} << workFactor;
    const uint64_t memory = 128 * kBlock * (cost + kParallel + 2);
    Secret key(kAgeKeySize);
    if (EVP_PBE_scrypt(password.Text().data(), password.Size(), salt.data(), salt.size(), cost,
                       kBlock, kParallel, memory, key.Data().data(), key.Size()) != 1) {
        return std::nullopt;
    }
    return key;
}

bool Seal(const Secret& key, const AgeNonce& nonce, std::span<const uint8_t> plain,
          std::span<uint8_t> sealed) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    int size = 0, rest = 0;
    return context &&
           EVP_EncryptInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr, key.Data().data(),
                              nonce.data()) == 1 &&
           EVP_EncryptUpdate(context.get(), sealed.data(), &size, plain.data(),
                             static_cast<int>(plain.size())) == 1 &&
           EVP_EncryptFinal_ex(context.get(), sealed.data() + size, &rest) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kAgeTagSize,
                               sealed.data() + plain.size()) == 1;
}

bool Unseal(const Secret& key, const AgeNonce& nonce, std::span<const uint8_t> sealed,
            std::span<uint8_t> plain) {
    if (sealed.size() != plain.size() + kAgeTagSize) return false;
    std::array<uint8_t, kAgeTagSize> tag;
    std::copy(sealed.end() - kAgeTagSize, sealed.end(), tag.begin());
    const CipherContext context(EVP_CIPHER_CTX_new());
    int size = 0, rest = 0;
    const bool genuine =
        context &&
        EVP_DecryptInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr, key.Data().data(),
                           nonce.data()) == 1 &&
        EVP_DecryptUpdate(context.get(), plain.data(), &size, sealed.data(),
                          static_cast<int>(plain.size())) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kAgeTagSize, tag.data()) == 1 &&
        EVP_DecryptFinal_ex(context.get(), plain.data() + size, &rest) == 1;
    if (!genuine) Wipe(plain);
    return genuine;
}

}  // namespace server::archive
