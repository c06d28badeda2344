// What all compressors share whose only setting is a level: settings, window, names. A compressor
// adds its contexts.
//
// Settings, besides "addon": "level" (int32). A foreign one is brought within the limits.
#pragma once

#include "addons/KTCruncher.h"

struct KTLevelFacts {
    const char* addOn;
    const char* menuName;
    const char* format;  // as the description has it: "zstd, level 3"
    const char* suffix;
    const char* stockCommand;
    int32_t least, most, usual;  // levels
    const char *title, *titleGerman;
    const char *hint, *hintGerman;
};

class KTLevelCruncher : public KTCruncher {
public:
    explicit KTLevelCruncher(const KTLevelFacts& facts);  // kept: facts are constants

    int32_t Archive(BMessage* message, bool deep) const override;
    bool HasSettings() const override { return true; }
    void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                      const char* language) override;
    void SetSettings(const BMessage& settings) override;
    const char* MenuName() const override { return fFacts.menuName; }
    const char* Description() const override { return fDescription.c_str(); }
    const char* Suffix() const override { return fFacts.suffix; }
    const char* StockCommand() const override { return fFacts.stockCommand; }
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override;

protected:
    int32_t Level() const { return fLevel; }

private:
    void SetLevel(int32_t level);

    const KTLevelFacts& fFacts;
    int32_t fLevel = 0;
    std::string fDescription;
    bool fGerman = false;  // the language that the settings window was last shown in
};
