// KTZstd: zstd frames that carry their content size and a checksum.
#include "addons/KTZstd/ZstdContext.h"
#include "addons/common/KTLevelCruncher.h"

namespace {

constexpr KTLevelFacts kFacts = {
    .addOn = "KTZstd",
    .menuName = "Zstandard",
    .format = "zstd",
    .suffix = ".zst",
    .stockCommand = "zstd -d",
    .least = 1,
    .most = 19,
    .usual = 3,
    .title = "Zstandard Settings",
    .titleGerman = "Zstandard-Einstellungen",
    .hint = "1 is the fastest, 19 the smallest, 3 is usual.",
    .hintGerman = "1 ist am schnellsten, 19 packt am dichtesten, 3 ist üblich.",
};

class KTZstd : public KTLevelCruncher {
public:
    KTZstd() : KTLevelCruncher(kFacts) {}
    std::unique_ptr<KTCruncherContext> NewContext() const override {
        return std::make_unique<ZstdContext>(Level());
    }
};

}  // namespace

extern "C" KTCruncher* instantiate_ktcruncher() {
    try {
        return new KTZstd;
    } catch (...) {
        return nullptr;
    }
}
