#include "server/archive/AgeStream.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace server::archive {

namespace {

constexpr size_t kSealedChunk = kAgeChunk + kAgeTagSize;
constexpr size_t kPayloadNonce = 16;
constexpr int64_t kChunksAtOnce = 16;
constexpr std::string_view kPayloadInfo = "payload";

AgeNonce NonceOf(uint64_t chunk, bool last) {
    AgeNonce nonce{};
    for (size_t i = 0; i < sizeof(chunk); ++i)
        nonce[nonce.size() - 2 - i] = static_cast<uint8_t>(chunk >> 8 * i);
    nonce.back() = last ? 1 : 0;
    return nonce;
}

kit::Error Damaged(const char* what) {
    return kit::Error::Make(kit::ErrorKind::Damaged, "", what);
}

constexpr auto kPlainChunk = static_cast<int64_t>(kAgeChunk);
constexpr auto kWholeChunk = static_cast<int64_t>(kSealedChunk);
constexpr auto kTag = static_cast<int64_t>(kAgeTagSize);

// Where the chunks of a file lie. It follows from the file's size alone, which may be wrong: only
// the last chunk itself tells that it is the last.
struct Payload {
    Secret key;
    int64_t begin = 0;   // of the first chunk
    int64_t sealed = 0;  // bytes from there to the end
    int64_t chunks = 0;  // the last one may be a stump
    int64_t plain = 0;   // bytes when opened
};

kit::Result<Payload> PayloadAt(const Secret& fileKey, std::span<const uint8_t> nonce, int64_t begin,
                               int64_t fileSize) {
    Payload payload;
    payload.key = Hkdf(fileKey.Data(), nonce, kPayloadInfo);
    payload.begin = begin;
    payload.sealed = fileSize - begin;
    if (payload.sealed < kTag) return Damaged("the file ends too early");
    const int64_t whole = payload.sealed / kWholeChunk;
    const int64_t rest = payload.sealed % kWholeChunk;
    payload.chunks = whole + (rest > 0 ? 1 : 0);
    payload.plain = whole * kPlainChunk + std::max<int64_t>(0, rest - kTag);
    return payload;
}

class SealedFile : public FileSource {
public:
    SealedFile(std::unique_ptr<FileSource> sealed, std::shared_ptr<const AgeIdentity> identity)
        : fSealed(std::move(sealed)), fIdentity(std::move(identity)) {}

    kit::Result<int64_t> Size() override {
        if (auto status = Open(); !status) return status.error();
        return fPayload->plain;
    }

    kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) override {
        if (auto status = Open(); !status) return status.error();
        if (offset < 0) return Damaged("a place that cannot be");
        const int64_t left = std::max<int64_t>(0, fPayload->plain - offset);
        into = into.first(
            static_cast<size_t>(std::min<int64_t>(left, static_cast<int64_t>(into.size()))));
        const int64_t stop = offset + static_cast<int64_t>(into.size());
        // Who reads up to the end gets to know whether it is the end.
        const int64_t end =
            stop >= fPayload->plain ? fPayload->chunks : (stop + kPlainChunk - 1) / kPlainChunk;
        Bytes sealed;
        for (int64_t chunk = std::min(offset / kPlainChunk, fPayload->chunks - 1); chunk < end;) {
            const int64_t many = std::min(end - chunk, kChunksAtOnce);
            if (auto status = Read(chunk, many, &sealed); !status) return status.error();
            std::span<const uint8_t> rest = sealed;
            for (int64_t i = 0; i < many; ++i, ++chunk) {
                const auto one = rest.first(std::min(rest.size(), kSealedChunk));
                rest = rest.subspan(one.size());
                if (auto status = Take(chunk, one, offset, into); !status) return status.error();
            }
        }
        return into.size();
    }

private:
    kit::Status Open() {
        const std::lock_guard lock(fMutex);
        if (fPayload) return {};
        const auto size = fSealed->Size();
        if (!size) return size.error();
        Bytes begin(kMostAgeHeader + kPayloadNonce);
        const auto got = fSealed->ReadAt(0, begin);
        if (!got) return got.error();
        begin.resize(*got);
        const auto header = ParseAgeHeader(begin);
        if (!header) return header.error();
        if (begin.size() < header->size + kPayloadNonce) return Damaged("the file ends too early");
        const auto fileKey = FileKeyFor(*header, *fIdentity);
        if (!fileKey) return fileKey.error();
        auto payload = PayloadAt(*fileKey, std::span(begin).subspan(header->size, kPayloadNonce),
                                 static_cast<int64_t>(header->size + kPayloadNonce), *size);
        if (!payload) return payload.error();
        fPayload = std::make_unique<const Payload>(std::move(*payload));
        return {};
    }

    // Some chunks, as they lie there; the file's last one may be short.
    kit::Status Read(int64_t chunk, int64_t many, Bytes* sealed) {
        const int64_t begin = chunk * kWholeChunk;
        const int64_t end = std::min((chunk + many) * kWholeChunk, fPayload->sealed);
        if (end - begin < (many - 1) * kWholeChunk + kTag) {
            return Damaged("the file ends too early");
        }
        sealed->resize(static_cast<size_t>(end - begin));
        const auto got = fSealed->ReadAt(fPayload->begin + begin, *sealed);
        if (!got) return got.error();
        if (*got != sealed->size()) return Damaged("the file ends too early");
        return {};
    }

    // Opens a chunk and puts what is wanted of it into `into`, which stands at `offset` of the
    // plain file.
    kit::Status Take(int64_t chunk, std::span<const uint8_t> sealed, int64_t offset,
                     std::span<uint8_t> into) const {
        Bytes room;
        const size_t size = sealed.size() - kAgeTagSize;
        // A last chunk is empty only where there is no other.
        if (size == 0 && chunk > 0) return Damaged("the file ends too early");
        const int64_t begin = chunk * kPlainChunk - offset;  // of the chunk, in `into`
        const bool whole = begin >= 0 && static_cast<size_t>(begin) + size <= into.size();
        std::span<uint8_t> plain;
        if (whole) {
            plain = into.subspan(static_cast<size_t>(begin), size);
        } else {
            room.resize(size);
            plain = room;
        }
        const bool last = chunk == fPayload->chunks - 1;
        if (!Unseal(fPayload->key, NonceOf(static_cast<uint64_t>(chunk), last), sealed, plain)) {
            return Damaged("not as it was sealed");
        }
        if (whole) return {};
        const int64_t from = std::max<int64_t>(0, -begin);
        const int64_t to =
            std::min(static_cast<int64_t>(size), static_cast<int64_t>(into.size()) - begin);
        if (from < to) {
            std::memcpy(into.data() + begin + from, room.data() + from,
                        static_cast<size_t>(to - from));
        }
        return {};
    }

    const std::unique_ptr<FileSource> fSealed;
    const std::shared_ptr<const AgeIdentity> fIdentity;
    std::mutex fMutex;
    std::unique_ptr<const Payload> fPayload;  // once open; never changed after
};

}  // namespace

// --- reading ------------------------------------------------------------------------------------

std::unique_ptr<FileSource> OpenAge(std::unique_ptr<FileSource> sealed,
                                    std::shared_ptr<const AgeIdentity> identity) {
    return std::make_unique<SealedFile>(std::move(sealed), std::move(identity));
}

kit::Result<Secret> UnsealSmall(std::span<const uint8_t> file, const Secret& password) {
    const auto header = ParseAgeHeader(file);
    if (!header) return header.error();
    const auto rest = file.subspan(header->size);
    if (rest.size() < kPayloadNonce + kAgeTagSize) return Damaged("the file ends too early");
    const auto sealed = rest.subspan(kPayloadNonce);
    if (sealed.size() > kSealedChunk) {
        return kit::Error::Make(kit::ErrorKind::TooLarge, "", "more than a small file");
    }
    const auto fileKey = FileKeyFor(*header, password);
    if (!fileKey) return fileKey.error();
    const Secret key = Hkdf(fileKey->Data(), rest.first(kPayloadNonce), kPayloadInfo);
    Secret plain(sealed.size() - kAgeTagSize);
    if (!Unseal(key, NonceOf(0, true), sealed, plain.Data())) {
        return Damaged("not as it was sealed");
    }
    return plain;
}

// --- writing ------------------------------------------------------------------------------------

kit::Result<AgeSealer> AgeSealer::For(const AgeRecipient& recipient) {
    Secret fileKey(kAgeFileKeySize);
    RandomBytes(fileKey.Data());
    const auto header = WriteAgeHeader(fileKey, recipient);
    if (!header) return header.error();
    return AgeSealer(fileKey, *header);
}

kit::Result<AgeSealer> AgeSealer::For(const Secret& password, int workFactor) {
    Secret fileKey(kAgeFileKeySize);
    RandomBytes(fileKey.Data());
    const auto header = WriteAgeHeader(fileKey, password, workFactor);
    if (!header) return header.error();
    return AgeSealer(fileKey, *header);
}

AgeSealer::AgeSealer(const Secret& fileKey, const std::string& header)
    : fHead(header.begin(), header.end()) {
    fHead.resize(fHead.size() + kPayloadNonce);
    const auto nonce = std::span(fHead).last(kPayloadNonce);
    RandomBytes(nonce);
    fKey = Hkdf(fileKey.Data(), nonce, kPayloadInfo);
}

void AgeSealer::SealChunk(std::span<const uint8_t> plain, bool last, Bytes* sealed) {
    if (fChunk == 0) sealed->insert(sealed->end(), fHead.begin(), fHead.end());
    const size_t begin = sealed->size();
    sealed->resize(begin + plain.size() + kAgeTagSize);
    if (!Seal(fKey, NonceOf(fChunk++, last), plain, std::span(*sealed).subspan(begin))) {
        throw std::bad_alloc();
    }
}

void AgeSealer::Add(std::span<const uint8_t> plain, Bytes* sealed) {
    while (!plain.empty()) {
        if (fWaiting.size() == kAgeChunk) {
            SealChunk(fWaiting, false, sealed);
            fWaiting.clear();
        }
        if (fWaiting.empty() && plain.size() > kAgeChunk) {
            SealChunk(plain.first(kAgeChunk), false, sealed);
            plain = plain.subspan(kAgeChunk);
            continue;
        }
        const auto part = plain.first(std::min(plain.size(), kAgeChunk - fWaiting.size()));
        fWaiting.insert(fWaiting.end(), part.begin(), part.end());
        plain = plain.subspan(part.size());
    }
}

void AgeSealer::GoBack(const Mark& mark) {
    fChunk = mark.chunk;
    fWaiting = mark.waiting;
}

void AgeSealer::Finish(Bytes* sealed) {
    SealChunk(fWaiting, true, sealed);
    Wipe(fWaiting);  // it may have been a key
    fWaiting.clear();
}

int64_t AgeSealer::SizeOf(int64_t plain) const {
    const int64_t chunks = std::max<int64_t>(1, (plain + kPlainChunk - 1) / kPlainChunk);
    return static_cast<int64_t>(fHead.size()) + plain + chunks * kTag;
}

}  // namespace server::archive
