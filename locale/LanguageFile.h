// Makes a language file out of a translation, and the template that translations start from.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/message/BMessage.h"
#include "kit/support/Result.h"
#include "locale/PoFile.h"

namespace locale_build {

inline constexpr char kAppID[] = "velmora backup locale";
inline constexpr size_t kLongestLanguage = 63;  // bytes that readers of the file's attribute take

// The English texts, by id. The context of a translation is the id; that of our own additions is
// "more-" and their position. An empty text is reserved and has no translation.
struct Texts {
    std::span<const char* const> table;
    std::span<const char* const> more;
};

struct Language {
    BMessage message;  // what the file holds
    std::string name;
    // What makes the file unusable, each with its line.
    std::vector<std::string> errors;
    // Texts that stay English: without a translation, or translated from what no longer is the
    // English text.
    std::vector<std::string> missing;
};

Language MakeLanguage(const PoFile& translation, const Texts& texts);

// Writes folder/NAME and gives it the attribute that names the language. Where the file system has
// no attributes that is no failure: readers then take the name from within.
kit::Status WriteLanguageFile(const Language& language, const std::string& folder);

std::string MakeTemplate(const Texts& texts);

// Why `translation` cannot stand in for `english` when arguments are filled in or it is put beside
// other words: placeholders of another kind or order, lost line breaks, tabs or outer blanks. ""
// when it can.
std::string Mismatch(std::string_view english, std::string_view translation);

}  // namespace locale_build
