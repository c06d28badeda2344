// The language of the texts, and of Qt's own dialogs with it. Main thread.
#pragma once

#include <string>
#include <vector>

namespace client {

inline constexpr char kTextAppId[] = "velmora backup locale";
inline constexpr char kDefaultLanguage[] = "English";

// Gives the locale its id and the built-in texts.
void InstallBuiltInTexts();
// Where language files lie: the user's own before those of the program.
std::vector<std::string> LanguageFolders(const std::string& programFolder,
                                         const std::string& userFolder);
// Takes the language of that name from the first folder that has it, English otherwise, and Qt's
// translation for it where there is one.
void UseLanguage(const std::vector<std::string>& folders, const std::string& name);

}  // namespace client
