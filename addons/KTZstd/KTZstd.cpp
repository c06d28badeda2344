#include "addons/KTZstd/KTZstd.h"

#include <algorithm>
#include <cstring>

#include "addons/KTZstd/ZstdContext.h"

int32_t KTZstd::Archive(BMessage* message, bool) const {
    message->Set("addon", kAddOn);
    message->Set("level", fLevel);
    return 0;
}

void KTZstd::SetSettings(const BMessage& settings) {
    fLevel = std::clamp(settings.Get<int32_t>("level", kDefaultLevel), kMinLevel, kMaxLevel);
    fDescription = "zstd, level " + std::to_string(fLevel);
}

void KTZstd::ShowSettings(KTSettingsHost* parent, const BMessenger& target, const char* language) {
    if (!parent) return;
    fGerman = language && std::strcmp(language, "Deutsch") == 0;
    BMessage values;
    Archive(&values, true);
    BMessage level;
    level.Add("key", "level");
    level.Add("kind", "integer");
    level.Add("label", fGerman ? "Stufe (1 bis 19)" : "Level (1 to 19)");
    level.Add("min", int64_t{kMinLevel});
    level.Add("max", int64_t{kMaxLevel});
    level.Add("hint", fGerman ? "1 ist am schnellsten, 19 packt am dichtesten, 3 ist üblich."
                              : "1 is the fastest, 19 the smallest, 3 is usual.");
    BMessage window;
    window.Add("title", fGerman ? "Zstandard-Einstellungen" : "Zstandard Settings");
    window.Add("values", values);
    window.Add("field", level);
    parent->OpenSettings(window, this, target);
}

bool KTZstd::ApplySettings(const BMessage& values, const BMessenger& target, std::string* problem) {
    const int32_t level = values.Get<int32_t>("level", fLevel);
    if (level < kMinLevel || level > kMaxLevel) {
        if (problem) {
            *problem = fGerman ? "Die Stufe muss zwischen 1 und 19 liegen!"
                               : "The level must be between 1 and 19!";
        }
        return false;
    }
    const bool changed = level != fLevel;
    BMessage settings;
    settings.Add("level", level);
    SetSettings(settings);
    if (changed) target.SendMessage("crnw"_code);
    return true;
}

std::unique_ptr<KTCruncherContext> KTZstd::NewContext() const {
    return std::make_unique<ZstdContext>(fLevel);
}

extern "C" KTCruncher* instantiate_ktcruncher() {
    try {
        return new KTZstd;
    } catch (...) {
        return nullptr;
    }
}
