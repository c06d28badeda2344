// KTZstd: zstd frames that carry their content size and a checksum.
//
// Settings, besides "addon": "level" (int32, 1 to 19, default 3).
#pragma once

#include "addons/KTCruncher.h"

class KTZstd : public KTCruncher {
public:
    static constexpr char kAddOn[] = "KTZstd";
    static constexpr int32_t kMinLevel = 1, kMaxLevel = 19, kDefaultLevel = 3;

    KTZstd() { SetSettings(BMessage()); }

    int32_t Archive(BMessage* message, bool deep) const override;
    bool HasSettings() const override { return true; }
    void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                      const char* language) override;
    void SetSettings(const BMessage& settings) override;
    const char* MenuName() const override { return "Zstandard"; }
    const char* Description() const override { return fDescription.c_str(); }
    const char* Suffix() const override { return ".zst"; }
    const char* StockCommand() const override { return "zstd -d"; }
    std::unique_ptr<KTCruncherContext> NewContext() const override;
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override;

private:
    int32_t fLevel = kDefaultLevel;
    std::string fDescription;
    bool fGerman = false;
};
