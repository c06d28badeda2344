// KTLz4: lz4 frames that carry their content size and a checksum.
#include <lz4frame.h>

#include "addons/common/KTLevelCruncher.h"

using kit::Error;
using kit::ErrorKind;

namespace {

constexpr KTLevelFacts kFacts = {
    .addOn = "KTLz4",
    .menuName = "LZ4",
    .format = "lz4",
    .suffix = ".lz4",
    .stockCommand = "lz4 -d",
    .least = 1,
    .most = 12,
    .usual = 1,
    .title = "LZ4 Settings",
    .titleGerman = "LZ4-Einstellungen",
    .hint = "1 is the fastest by far and usual, 12 the smallest.",
    .hintGerman = "1 ist bei weitem am schnellsten und üblich, 12 packt am dichtesten.",
};

class Lz4Context : public KTCruncherContext {
public:
    explicit Lz4Context(int32_t level) : fUnpack(nullptr, &LZ4F_freeDecompressionContext) {
        fPreferences.compressionLevel = level;
        fPreferences.frameInfo.blockSizeID = LZ4F_max4MB;
        fPreferences.frameInfo.contentChecksumFlag = LZ4F_contentChecksumEnabled;
    }

    kit::Status Compress(std::span<const uint8_t> in, Bytes* out) override {
        fPreferences.frameInfo.contentSize = in.size();
        out->resize(LZ4F_compressFrameBound(in.size(), &fPreferences));
        const size_t size =
            LZ4F_compressFrame(out->data(), out->size(), in.data(), in.size(), &fPreferences);
        if (LZ4F_isError(size)) return Error::Make(ErrorKind::Io, "", LZ4F_getErrorName(size));
        out->resize(size);
        return {};
    }

    kit::Status Decompress(std::span<const uint8_t> in, size_t limit, Bytes* out) override {
        size_t used = 0;
        kit::Status status = DecompressFirst(in, limit, out, &used);
        if (status && used != in.size())
            return Error::Make(ErrorKind::Damaged, "", "not exactly one lz4 frame");
        return status;
    }

    kit::Status DecompressFirst(std::span<const uint8_t> in, size_t limit, Bytes* out,
                                size_t* used) override {
        *used = 0;
        if (!fUnpack) {
            LZ4F_dctx* context = nullptr;
            if (LZ4F_isError(LZ4F_createDecompressionContext(&context, LZ4F_VERSION))) {
                return Error::Make(ErrorKind::Io, "", "no memory to decompress");
            }
            fUnpack.reset(context);
        }
        LZ4F_resetDecompressionContext(fUnpack.get());
        LZ4F_frameInfo_t info{};
        size_t at = in.size();
        const size_t header = LZ4F_getFrameInfo(fUnpack.get(), &info, in.data(), &at);
        if (LZ4F_isError(header) || info.frameType != LZ4F_frame) {
            return Error::Make(ErrorKind::Damaged, "", "not an lz4 frame");
        }
        // Where there is no content the format has no room for its size: both read 0.
        if (info.contentSize > limit) return Error::Make(ErrorKind::TooLarge, "", "frame");
        out->resize(info.contentSize);
        for (size_t done = 0;;) {
            size_t taken = in.size() - at, given = out->size() - done;
            const size_t wanted = LZ4F_decompress(fUnpack.get(), out->data() + done, &given,
                                                  in.data() + at, &taken, nullptr);
            if (LZ4F_isError(wanted)) {
                return Error::Make(ErrorKind::Damaged, "", LZ4F_getErrorName(wanted));
            }
            at += taken;
            done += given;
            if (wanted == 0) {
                *used = at;
                if (done == out->size()) return {};
                return Error::Make(ErrorKind::Damaged, "", "lz4 frame too short");
            }
            if (taken == 0 && given == 0) {
                return Error::Make(ErrorKind::Damaged, "", "lz4 frame too short or too long");
            }
        }
    }

private:
    LZ4F_preferences_t fPreferences{};
    std::unique_ptr<LZ4F_dctx, decltype(&LZ4F_freeDecompressionContext)> fUnpack;
};

class KTLz4 : public KTLevelCruncher {
public:
    KTLz4() : KTLevelCruncher(kFacts) {}
    std::unique_ptr<KTCruncherContext> NewContext() const override {
        return std::make_unique<Lz4Context>(Level());
    }
};

}  // namespace

extern "C" KTCruncher* instantiate_ktcruncher() {
    try {
        return new KTLz4;
    } catch (...) {
        return nullptr;
    }
}
