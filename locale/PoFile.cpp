#include "locale/PoFile.h"

#include <set>
#include <utility>

namespace locale_build {
namespace {

bool IsUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const int more = first < 0x80             ? 0
                         : (first & 0xE0) == 0xC0 ? 1
                         : (first & 0xF0) == 0xE0 ? 2
                         : (first & 0xF8) == 0xF0 ? 3
                                                  : -1;
        if (more < 0 || text.size() - i <= static_cast<size_t>(more)) return false;
        char32_t code = more == 0 ? first : first & (0x3F >> more);
        for (int k = 1; k <= more; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        constexpr char32_t kLowest[] = {0, 0x80, 0x800, 0x10000};
        if (code < kLowest[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += static_cast<size_t>(more) + 1;
    }
    return true;
}

std::string_view Trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// What a quoted string stands for, appended to `out`; words of complaint when it is malformed.
std::string Unquote(std::string_view quoted, std::string* out) {
    if (quoted.size() < 2 || quoted.front() != '"') return "a string in double quotes is expected";
    for (size_t i = 1; i < quoted.size(); ++i) {
        const char c = quoted[i];
        if (c == '"') return i + 1 == quoted.size() ? "" : "something follows the closing quote";
        if (c != '\\') {
            *out += c;
            continue;
        }
        if (++i == quoted.size()) break;
        constexpr std::string_view kNames = "ntr\\\"abfv";
        constexpr std::string_view kMeant = "\n\t\r\\\"\a\b\f\v";
        const auto known = kNames.find(quoted[i]);
        if (known == std::string_view::npos) {
            return std::string("unknown escape \\") + quoted[i];
        }
        *out += kMeant[known];
    }
    return "the closing quote is missing";
}

class Parser {
public:
    std::optional<PoProblem> Run(std::string_view text);

    std::vector<PoEntry> entries;
    std::string header;

private:
    enum class Part { None, Context, Id, Translation };

    bool Line(std::string_view line);
    bool Keyword(std::string_view line);
    bool Finish();  // the entry under way is complete: keep it
    bool Fail(std::string words) {
        fProblem = {fLine, std::move(words)};
        return false;
    }

    PoProblem fProblem;
    int fLine = 0;
    Part fPart = Part::None;
    PoEntry fEntry;
    bool fNextIsFuzzy = false;
    bool fHasHeader = false;
    std::set<std::pair<std::string, std::string>> fSeen;
};

std::optional<PoProblem> Parser::Run(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (text.starts_with(kMark)) text.remove_prefix(kMark.size());
    while (!text.empty()) {
        ++fLine;
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.find('\0') != std::string_view::npos) {
            Fail("a NUL byte");
            return fProblem;
        }
        if (!IsUtf8(line)) {
            Fail("not UTF-8");
            return fProblem;
        }
        if (!Line(Trim(line))) return fProblem;
    }
    ++fLine;
    if (!Finish()) return fProblem;
    return std::nullopt;
}

bool Parser::Line(std::string_view line) {
    if (line.empty()) return true;
    if (line.front() == '#') {
        // A comment stands before its entry, so the one under way ends here.
        if (fPart == Part::Translation && !Finish()) return false;
        if (line.starts_with("#,") && line.find("fuzzy") != std::string_view::npos) {
            fNextIsFuzzy = true;
        }
        return true;
    }
    if (line.front() != '"') return Keyword(line);
    std::string* into = fPart == Part::Context       ? &fEntry.context
                        : fPart == Part::Id          ? &fEntry.id
                        : fPart == Part::Translation ? &fEntry.translation
                                                     : nullptr;
    if (!into) return Fail("a string that belongs to nothing");
    const std::string complaint = Unquote(line, into);
    return complaint.empty() || Fail(complaint);
}

bool Parser::Keyword(std::string_view line) {
    const auto end = line.find_first_of(" \t\"");
    const std::string_view word = line.substr(0, end);
    std::string value;
    const std::string complaint =
        Unquote(end == std::string_view::npos ? "" : Trim(line.substr(end)), &value);
    if (word == "msgid_plural" || word.starts_with("msgstr["))
        return Fail("plural forms are not used");
    if (word != "msgctxt" && word != "msgid" && word != "msgstr") {
        return Fail("unknown word '" + std::string(word) + "'");
    }
    if (!complaint.empty()) return Fail(complaint);
    if (word == "msgctxt") {
        if (!Finish()) return false;
        fPart = Part::Context;
        fEntry.context = std::move(value);
    } else if (word == "msgid") {
        if (fPart != Part::Context && !Finish()) return false;
        fPart = Part::Id;
        fEntry.line = fLine;
        fEntry.id = std::move(value);
    } else {
        if (fPart != Part::Id) return Fail("msgstr without a msgid before it");
        fPart = Part::Translation;
        fEntry.translation = std::move(value);
        fEntry.fuzzy = fNextIsFuzzy;
        fNextIsFuzzy = false;
    }
    return true;
}

bool Parser::Finish() {
    if (fPart == Part::None) return true;
    if (fPart != Part::Translation) return Fail("the entry before has no msgstr");
    fPart = Part::None;
    PoEntry entry = std::exchange(fEntry, {});
    if (entry.id.empty() && entry.context.empty()) {
        if (std::exchange(fHasHeader, true)) return Fail("a second header");
        header = std::move(entry.translation);
        return true;
    }
    if (!fSeen.emplace(entry.context, entry.id).second) {
        fLine = entry.line;
        return Fail("a second translation of the same text");
    }
    entries.push_back(std::move(entry));
    return true;
}

}  // namespace

std::optional<PoFile> PoFile::Parse(std::string_view text, PoProblem* problem) {
    Parser parser;
    if (auto found = parser.Run(text)) {
        *problem = std::move(*found);
        return std::nullopt;
    }
    PoFile file;
    file.fEntries = std::move(parser.entries);
    file.fHeader = std::move(parser.header);
    return file;
}

std::string PoFile::Header(std::string_view name) const {
    std::string_view rest = fHeader;
    while (!rest.empty()) {
        const auto end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (line.starts_with(name) && line.substr(name.size()).starts_with(':')) {
            return std::string(Trim(line.substr(name.size() + 1)));
        }
    }
    return {};
}

}  // namespace locale_build
