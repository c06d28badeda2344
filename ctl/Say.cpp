#include "ctl/Say.h"

#include <cstdlib>

#include "core/locale/KTLocale.h"
#include "core/locale/TextTable.h"

namespace ctl {

std::string LanguageFor(const std::string& locale) {
    const std::string code = locale.substr(0, locale.find_first_of("_.@"));
    return code == "de" ? "Deutsch" : "";
}

void UseLanguageOfEnvironment(const std::string& programFolder) {
    auto* texts = KTLocale::GetInstance();
    texts->SetAppID("velmora backup locale");
    texts->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
    texts->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        const std::string language = LanguageFor(value);
        // Without its file the texts stay English.
        if (!language.empty()) texts->SetLanguage(programFolder + "/locale", language.c_str());
        return;
    }
}

}  // namespace ctl
