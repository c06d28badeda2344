// A translation in gettext's .po form, as far as it is needed here: entries with a context,
// multi-line strings, flags. Obsolete entries are skipped. Plural forms are refused: no text has
// them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace locale_build {

struct PoEntry {
    int line = 0;         // of its msgid
    std::string context;  // "" when it has none
    std::string id;
    std::string translation;
    bool fuzzy = false;  // the translator has to look at it again
};

struct PoProblem {
    int line = 0;
    std::string words;
};

class PoFile {
public:
    // The whole file or nothing, with the first problem in `problem`. `text` is UTF-8; lines may
    // end in CR LF.
    static std::optional<PoFile> Parse(std::string_view text, PoProblem* problem);

    // All entries but the header, in the file's order. No two have the same context and id.
    const std::vector<PoEntry>& Entries() const { return fEntries; }
    // A line of the header ("Language" gives "de"); "" when it has none.
    std::string Header(std::string_view name) const;

private:
    std::vector<PoEntry> fEntries;
    std::string fHeader;
};

}  // namespace locale_build
