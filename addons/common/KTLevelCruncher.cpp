#include "addons/common/KTLevelCruncher.h"

#include <algorithm>
#include <cstring>

KTLevelCruncher::KTLevelCruncher(const KTLevelFacts& facts) : fFacts(facts) {
    SetLevel(facts.usual);
}

void KTLevelCruncher::SetLevel(int32_t level) {
    fLevel = level;
    fDescription = std::string(fFacts.format) + ", level " + std::to_string(level);
}

int32_t KTLevelCruncher::Archive(BMessage* message, bool) const {
    message->Set("addon", fFacts.addOn);
    message->Set("level", fLevel);
    return 0;
}

void KTLevelCruncher::SetSettings(const BMessage& settings) {
    SetLevel(std::clamp(settings.Get<int32_t>("level", fFacts.usual), fFacts.least, fFacts.most));
}

void KTLevelCruncher::ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                                   const char* language) {
    if (!parent) return;
    fGerman = language && std::strcmp(language, "Deutsch") == 0;
    const std::string least = std::to_string(fFacts.least), most = std::to_string(fFacts.most);
    BMessage values;
    Archive(&values, true);
    BMessage level;
    level.Add("key", "level");
    level.Add("kind", "integer");
    level.Add("label", fGerman ? "Stufe (" + least + " bis " + most + ")"
                               : "Level (" + least + " to " + most + ")");
    level.Add("min", int64_t{fFacts.least});
    level.Add("max", int64_t{fFacts.most});
    level.Add("hint", fGerman ? fFacts.hintGerman : fFacts.hint);
    BMessage window;
    window.Add("title", fGerman ? fFacts.titleGerman : fFacts.title);
    window.Add("values", values);
    window.Add("field", level);
    parent->OpenSettings(window, this, target);
}

bool KTLevelCruncher::ApplySettings(const BMessage& values, const BMessenger& target,
                                    std::string* problem) {
    const int32_t level = values.Get<int32_t>("level", fLevel);
    if (level < fFacts.least || level > fFacts.most) {
        const std::string least = std::to_string(fFacts.least), most = std::to_string(fFacts.most);
        if (problem) {
            *problem = fGerman ? "Die Stufe muss zwischen " + least + " und " + most + " liegen!"
                               : "The level must be between " + least + " and " + most + "!";
        }
        return false;
    }
    const bool changed = level != fLevel;
    SetLevel(level);
    if (changed) target.SendMessage("crnw"_code);
    return true;
}
