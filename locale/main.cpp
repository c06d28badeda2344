// languagefile: the step of the build that turns translations into language files.
//
//     languagefile build [--strict] TRANSLATION.po FOLDER    writes FOLDER/NAME, NAME as in the
//     header languagefile template FILE.pot                         writes the template
//
// Missing translations are told but do no harm (the text stays English), with --strict they do.

#include <fstream>
#include <iostream>
#include <iterator>

#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"
#include "locale/LanguageFile.h"

namespace {

using namespace locale_build;

Texts OurTexts() {
    return {core::kTextTable, core::kMoreTextTable};
}

int Build(const std::string& source, const std::string& folder, bool strict) {
    std::ifstream file(source, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::cerr << source << ": cannot be read\n";
        return 1;
    }
    PoProblem problem;
    const auto translation = PoFile::Parse(text, &problem);
    if (!translation) {
        std::cerr << source << ":" << problem.line << ": " << problem.words << "\n";
        return 1;
    }
    const Language language = MakeLanguage(*translation, OurTexts());
    for (const auto& error : language.errors)
        std::cerr << source << ": " << error << "\n";
    for (const auto& missing : language.missing) {
        std::cerr << source << ": not translated: " << missing << "\n";
    }
    if (!language.errors.empty() || (strict && !language.missing.empty())) return 1;

    const auto written = WriteLanguageFile(language, folder);
    if (!written) std::cerr << written.error().Text() << "\n";
    return written ? 0 : 1;
}

int Template(const std::string& path) {
    const std::string text = MakeTemplate(OurTexts());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) std::cerr << path << ": cannot be written\n";
    return file ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "template" && arguments.size() == 2) return Template(arguments[1]);
    const bool strict = arguments.size() == 4 && arguments[1] == "--strict";
    if (command == "build" && (arguments.size() == 3 || strict)) {
        return Build(arguments[arguments.size() - 2], arguments.back(), strict);
    }
    std::cerr << "usage: languagefile build [--strict] TRANSLATION.po FOLDER\n"
                 "       languagefile template FILE.pot\n";
    return 2;
}
