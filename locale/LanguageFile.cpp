#include "locale/LanguageFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>

#include "kit/storage/FileIo.h"
#include "kit/storage/NodeAttributes.h"

namespace locale_build {
namespace {

constexpr std::string_view kMorePrefix = "more-";

std::string ContextOf(bool more, size_t index) {
    return (more ? std::string(kMorePrefix) : std::string()) + std::to_string(index);
}

// The kinds of the arguments that a text takes ("ld", "s" ...), in order; nothing when a '%' begins
// nothing that is known.
std::optional<std::vector<std::string>> Placeholders(std::string_view text) {
    std::vector<std::string> kinds;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') continue;
        const size_t start = ++i;
        i = text.find_first_not_of("-+ #0", i);
        if (i != std::string_view::npos) i = text.find_first_not_of("0123456789.", i);
        if (i == std::string_view::npos) return std::nullopt;
        std::string kind;
        if (text[i] == 'l' || text[i] == 'L' || text[i] == 'h') kind += text[i++];
        if (i == text.size()) return std::nullopt;
        if (text[i] == '%') {
            if (i != start) return std::nullopt;
            continue;
        }
        if (std::string_view("dioxXucsfeEgG").find(text[i]) == std::string_view::npos) {
            return std::nullopt;
        }
        kinds.push_back(kind + text[i]);
    }
    return kinds;
}

// Blanks (no tabs, no line breaks) at one end: other words are put there.
std::string_view OuterBlanks(std::string_view text, bool atEnd) {
    if (text.find_first_not_of(' ') == std::string_view::npos) return text;
    return atEnd ? text.substr(text.find_last_not_of(' ') + 1)
                 : text.substr(0, text.find_first_not_of(' '));
}

std::string Quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                out += c;
        }
    }
    return out + '"';
}

std::string AtLine(int line, const std::string& words) {
    return "line " + std::to_string(line) + ": " + words;
}

class Builder {
public:
    Builder(const PoFile& translation, const Texts& texts) : fTexts(texts) {
        ReadName(translation);
        Collect(translation);
    }

    Language Make() {
        fLanguage.message.Add("kt:app_id", kAppID);
        fLanguage.message.Add("kt:language", fLanguage.name);
        AddTexts("kt:text", fTexts.table, false);
        AddTexts("kt:more", fTexts.more, true);
        return std::move(fLanguage);
    }

private:
    void ReadName(const PoFile& translation) {
        fLanguage.name = translation.Header("X-Language-Name");
        if (fLanguage.name.empty() || fLanguage.name.size() > kLongestLanguage ||
            fLanguage.name.find('/') != std::string::npos) {
            fLanguage.errors.push_back("the header has no usable X-Language-Name");
        }
    }

    // The English text that a context means; null when there is none.
    const char* English(std::string_view context) const {
        const bool more = context.starts_with(kMorePrefix);
        if (more) context.remove_prefix(kMorePrefix.size());
        size_t index = 0;
        const auto read = std::from_chars(context.data(), context.data() + context.size(), index);
        if (read.ec != std::errc() || read.ptr != context.data() + context.size()) return nullptr;
        const auto& table = more ? fTexts.more : fTexts.table;
        return index < table.size() ? table[index] : nullptr;
    }

    void Collect(const PoFile& translation) {
        for (const PoEntry& entry : translation.Entries()) {
            const char* english = English(entry.context);
            if (!english) {
                fLanguage.errors.push_back(
                    AtLine(entry.line, "there is no text '" + entry.context + "'"));
                continue;
            }
            if (entry.fuzzy || entry.translation.empty() || entry.id != english) continue;
            if (const auto words = Mismatch(english, entry.translation); !words.empty()) {
                fLanguage.errors.push_back(
                    AtLine(entry.line, "text '" + entry.context + "': " + words));
                continue;
            }
            fTranslations[entry.context] = entry.translation;
        }
    }

    void AddTexts(const char* field, std::span<const char* const> table, bool more) {
        for (size_t i = 0; i < table.size(); ++i) {
            const auto found = fTranslations.find(ContextOf(more, i));
            if (found != fTranslations.end()) {
                fLanguage.message.Add(field, found->second);
                continue;
            }
            fLanguage.message.Add(field, table[i]);
            if (*table[i]) fLanguage.missing.push_back(ContextOf(more, i) + " " + Quoted(table[i]));
        }
    }

    const Texts& fTexts;
    Language fLanguage;
    std::map<std::string, std::string> fTranslations;
};

void AddEntries(std::span<const char* const> table, bool more, std::string* out) {
    for (size_t i = 0; i < table.size(); ++i) {
        const std::string_view text = table[i];
        if (text.empty()) continue;
        *out += '\n';
        if (text.find('%') != std::string_view::npos) *out += "#, c-format\n";
        *out +=
            "msgctxt " + Quoted(ContextOf(more, i)) + "\nmsgid " + Quoted(text) + "\nmsgstr \"\"\n";
    }
}

}  // namespace

std::string Mismatch(std::string_view english, std::string_view translation) {
    const auto wanted = Placeholders(english);
    const auto given = Placeholders(translation);
    if (!wanted) return "the English text has a '%' that is no placeholder";
    if (!given) return "a '%' that is no placeholder";
    if (*wanted != *given) return "the placeholders differ from the English ones in kind or order";
    const auto breaks = [](std::string_view text) { return std::ranges::count(text, '\n'); };
    if (breaks(english) != breaks(translation)) return "another number of line breaks";
    const auto tabbed = [](std::string_view text) { return text.find('\t') != text.npos; };
    if (tabbed(english) != tabbed(translation)) return "tabs where there are none, or none left";
    if (OuterBlanks(english, false) != OuterBlanks(translation, false) ||
        OuterBlanks(english, true) != OuterBlanks(translation, true)) {
        return "other blanks at the beginning or the end";
    }
    return {};
}

Language MakeLanguage(const PoFile& translation, const Texts& texts) {
    return Builder(translation, texts).Make();
}

kit::Status WriteLanguageFile(const Language& language, const std::string& folder) {
    return kit::ReplaceFile(
        folder + '/' + language.name, language.message.Flatten(), [&](const std::string& file) {
            if (::chmod(file.c_str(), 0644) != 0)
                return kit::Status(kit::Error::FromErrno(errno, file));
            const auto named = kit::WriteAttribute(file, "kt:language", language.name);
            if (!named && named.error().kind != kit::ErrorKind::Unsupported) return named;
            return kit::Status();
        });
}

std::string MakeTemplate(const Texts& texts) {
    std::string out =
        "# Template for translations of Velmora Backup. Written by `languagefile template`.\n"
        "#\n"
        "# The context of a text is its number. Placeholders keep their kind and order. Tabs in "
        "the\n"
        "# lines of reports align the values behind the labels.\n"
        "msgid \"\"\n"
        "msgstr \"\"\n"
        "\"Project-Id-Version: velmora-backup\\n\"\n"
        "\"MIME-Version: 1.0\\n\"\n"
        "\"Content-Type: text/plain; charset=UTF-8\\n\"\n"
        "\"Content-Transfer-Encoding: 8bit\\n\"\n"
        "\"Language: \\n\"\n"
        "\"X-Language-Name: \\n\"\n";
    AddEntries(texts.table, false, &out);
    AddEntries(texts.more, true, &out);
    return out;
}

}  // namespace locale_build
