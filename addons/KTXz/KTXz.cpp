// KTXz: complete xz streams with a CRC64 of their content.
#include <lzma.h>

#include <algorithm>

#include "addons/common/KTLevelCruncher.h"

using kit::Error;
using kit::ErrorKind;

namespace {

constexpr KTLevelFacts kFacts = {
    .addOn = "KTXz",
    .menuName = "XZ",
    .format = "xz",
    .suffix = ".xz",
    .stockCommand = "xz -d",
    .least = 0,
    .most = 9,
    .usual = 3,
    .title = "XZ Settings",
    .titleGerman = "XZ-Einstellungen",
    .hint = "0 is the fastest, 9 the smallest, 3 is usual. All are slow.",
    .hintGerman = "0 ist am schnellsten, 9 packt am dichtesten, 3 ist üblich. Alle sind langsam.",
};

// A frame is a few MiB: a dictionary beyond that takes memory on every thread and gains nothing.
constexpr uint32_t kMostDictionary = uint32_t{4} << 20;
// Frames by the stock tool at its highest level need 65 MiB.
constexpr uint64_t kMostMemory = uint64_t{100} << 20;

Error Damaged(const char* what) {
    return Error::Make(ErrorKind::Damaged, "", what);
}

// What the index at the end of the stream says; the index is secured by a checksum of its own.
kit::Result<uint64_t> ContentSize(std::span<const uint8_t> in) {
    if (in.size() < 2 * size_t{LZMA_STREAM_HEADER_SIZE}) return Damaged("xz stream too short");
    const size_t footer = in.size() - LZMA_STREAM_HEADER_SIZE;
    lzma_stream_flags flags{};
    if (lzma_stream_footer_decode(&flags, in.data() + footer) != LZMA_OK ||
        flags.backward_size > footer - LZMA_STREAM_HEADER_SIZE) {
        return Damaged("no end of an xz stream");
    }
    lzma_index* index = nullptr;
    uint64_t memory = kMostMemory;
    size_t at = footer - flags.backward_size;
    if (lzma_index_buffer_decode(&index, &memory, nullptr, in.data(), &at, footer) != LZMA_OK) {
        return Damaged("index of an xz stream");
    }
    const uint64_t size = lzma_index_uncompressed_size(index);
    lzma_index_end(index, nullptr);
    return size;
}

class XzContext : public KTCruncherContext {
public:
    explicit XzContext(int32_t level) {
        fUsable = !lzma_lzma_preset(&fOptions, static_cast<uint32_t>(level));
        fOptions.dict_size = std::min(fOptions.dict_size, kMostDictionary);
    }

    kit::Status Compress(std::span<const uint8_t> in, Bytes* out) override {
        if (!fUsable) return Error::Make(ErrorKind::Unsupported, "", "this level of xz");
        lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &fOptions}, {LZMA_VLI_UNKNOWN, nullptr}};
        out->resize(lzma_stream_buffer_bound(in.size()));
        size_t size = 0;
        const lzma_ret result =
            lzma_stream_buffer_encode(filters, LZMA_CHECK_CRC64, nullptr, in.data(), in.size(),
                                      out->data(), &size, out->size());
        if (result != LZMA_OK) {
            return Error::Make(ErrorKind::Io, "",
                               result == LZMA_MEM_ERROR ? "no memory to compress" : "xz failed");
        }
        out->resize(size);
        return {};
    }

    kit::Status Decompress(std::span<const uint8_t> in, size_t limit, Bytes* out) override {
        const auto content = ContentSize(in);
        if (!content) return content.error();
        if (*content > limit) return Error::Make(ErrorKind::TooLarge, "", "frame");
        out->resize(*content);
        size_t at = 0, size = 0;
        uint64_t memory = kMostMemory;
        const lzma_ret result = lzma_stream_buffer_decode(
            &memory, 0, nullptr, in.data(), &at, in.size(), out->data(), &size, out->size());
        if (result == LZMA_MEMLIMIT_ERROR) return Error::Make(ErrorKind::TooLarge, "", "frame");
        if (result == LZMA_MEM_ERROR) {
            return Error::Make(ErrorKind::Io, "", "no memory to decompress");
        }
        if (result != LZMA_OK) return Damaged("xz stream");
        if (at != in.size() || size != out->size()) return Damaged("not exactly one xz stream");
        return {};
    }

    kit::Status DecompressFirst(std::span<const uint8_t> in, size_t limit, Bytes* out,
                                size_t* used) override {
        *used = 0;
        out->resize(limit);
        size_t size = 0;
        uint64_t memory = kMostMemory;
        const lzma_ret result = lzma_stream_buffer_decode(&memory, 0, nullptr, in.data(), used,
                                                          in.size(), out->data(), &size, limit);
        if (result == LZMA_MEM_ERROR) {
            return Error::Make(ErrorKind::Io, "", "no memory to decompress");
        }
        if (result != LZMA_OK) return Damaged("no whole xz stream");
        out->resize(size);
        return {};
    }

private:
    lzma_options_lzma fOptions{};
    bool fUsable = false;
};

class KTXz : public KTLevelCruncher {
public:
    KTXz() : KTLevelCruncher(kFacts) {}
    std::unique_ptr<KTCruncherContext> NewContext() const override {
        return std::make_unique<XzContext>(Level());
    }
};

}  // namespace

extern "C" KTCruncher* instantiate_ktcruncher() {
    try {
        return new KTXz;
    } catch (...) {
        return nullptr;
    }
}
