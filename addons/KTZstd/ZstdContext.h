// Compresses into zstd frames with content size and checksum, and back. In a header of its own
// because the server packs its catalogues the same way.
#pragma once

#include <zstd.h>

#include <memory>

#include "addons/KTCruncher.h"

class ZstdContext : public KTCruncherContext {
public:
    explicit ZstdContext(int32_t level)
        : fPack(ZSTD_createCCtx(), &ZSTD_freeCCtx), fUnpack(nullptr, &ZSTD_freeDCtx) {
        if (!fPack) return;
        ZSTD_CCtx_setParameter(fPack.get(), ZSTD_c_compressionLevel, level);
        ZSTD_CCtx_setParameter(fPack.get(), ZSTD_c_checksumFlag, 1);
    }

    kit::Status Compress(std::span<const uint8_t> in, Bytes* out) override {
        if (!fPack) return kit::Error::Make(kit::ErrorKind::Io, "", "no memory to compress");
        out->resize(ZSTD_compressBound(in.size()));
        size_t size = ZSTD_compress2(fPack.get(), out->data(), out->size(), in.data(), in.size());
        if (ZSTD_isError(size))
            return kit::Error::Make(kit::ErrorKind::Io, "", ZSTD_getErrorName(size));
        out->resize(size);
        return {};
    }

    kit::Status Decompress(std::span<const uint8_t> in, size_t limit, Bytes* out) override {
        const unsigned long long size = ZSTD_getFrameContentSize(in.data(), in.size());
        if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN) {
            return kit::Error::Make(kit::ErrorKind::Damaged, "", "not a zstd frame of known size");
        }
        if (size > limit) return kit::Error::Make(kit::ErrorKind::TooLarge, "", "frame");
        if (ZSTD_findFrameCompressedSize(in.data(), in.size()) != in.size()) {
            return kit::Error::Make(kit::ErrorKind::Damaged, "", "not exactly one zstd frame");
        }
        if (!fUnpack) fUnpack.reset(ZSTD_createDCtx());
        if (!fUnpack) return kit::Error::Make(kit::ErrorKind::Io, "", "no memory to decompress");
        out->resize(size);
        size_t got =
            ZSTD_decompressDCtx(fUnpack.get(), out->data(), out->size(), in.data(), in.size());
        if (ZSTD_isError(got)) {
            return kit::Error::Make(kit::ErrorKind::Damaged, "", ZSTD_getErrorName(got));
        }
        if (got != size)
            return kit::Error::Make(kit::ErrorKind::Damaged, "", "zstd frame too short");
        return {};
    }

    kit::Status DecompressFirst(std::span<const uint8_t> in, size_t limit, Bytes* out,
                                size_t* used) override {
        const size_t size = ZSTD_findFrameCompressedSize(in.data(), in.size());
        *used = ZSTD_isError(size) ? 0 : size;
        if (*used == 0) return kit::Error::Make(kit::ErrorKind::Damaged, "", "no whole zstd frame");
        return Decompress(in.first(*used), limit, out);
    }

private:
    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> fPack;
    std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> fUnpack;
};
