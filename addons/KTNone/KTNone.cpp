// KTNone: no compression. A frame is its content.
#include <algorithm>

#include "addons/KTCruncher.h"

namespace {

class NoneContext : public KTCruncherContext {
public:
    kit::Status Compress(std::span<const uint8_t> in, Bytes* out) override {
        out->assign(in.begin(), in.end());
        return {};
    }
    kit::Status Decompress(std::span<const uint8_t> in, size_t limit, Bytes* out) override {
        if (in.size() > limit) return kit::Error::Make(kit::ErrorKind::TooLarge, "", "frame");
        out->assign(in.begin(), in.end());
        return {};
    }
    kit::Status DecompressFirst(std::span<const uint8_t> in, size_t limit, Bytes* out,
                                size_t* used) override {
        *used = std::min(in.size(), limit);
        return Decompress(in.first(*used), limit, out);
    }
};

class KTNone : public KTCruncher {
public:
    int32_t Archive(BMessage* message, bool) const override {
        message->Set("addon", "KTNone");
        return 0;
    }
    bool HasSettings() const override { return false; }
    void ShowSettings(KTSettingsHost*, const BMessenger&, const char*) override {}
    void SetSettings(const BMessage&) override {}
    const char* MenuName() const override { return "None"; }
    const char* Description() const override { return "No compression"; }
    const char* Suffix() const override { return ""; }
    const char* StockCommand() const override { return ""; }
    std::unique_ptr<KTCruncherContext> NewContext() const override {
        return std::make_unique<NoneContext>();
    }
    bool ApplySettings(const BMessage&, const BMessenger&, std::string*) override { return true; }
};

}  // namespace

extern "C" KTCruncher* instantiate_ktcruncher() {
    try {
        return new KTNone;
    } catch (...) {
        return nullptr;
    }
}
