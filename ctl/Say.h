// What backupctl says to people, in the language of the environment. Nothing of it is in JSON.
#pragma once

#include <cstdio>
#include <string>

#include "core/locale/MoreTexts.h"
#include "core/report/Format.h"

namespace ctl {

// Chooses the language by LC_ALL, LC_MESSAGES and LANG, from the language files beside the program.
// Before anything is said.
void UseLanguageOfEnvironment(const std::string& programFolder);
// "Deutsch" for "de_AT.UTF-8"; "" for what there is no other language for.
std::string LanguageFor(const std::string& locale);

// A text of the table with its arguments, and a line feed, on standard output.
template <class... Arguments>
void Say(int32_t textId, const Arguments&... arguments) {
    std::printf("%s\n", core::FormatTextOf(textId, arguments...).c_str());
    std::fflush(stdout);
}
// The same on standard error.
template <class... Arguments>
void Note(int32_t textId, const Arguments&... arguments) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", core::FormatTextOf(textId, arguments...).c_str());
}

}  // namespace ctl
