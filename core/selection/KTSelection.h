// Selection rules: what a job covers. "INCLUDE " or "EXCLUDE ", then "/Volume/path"; "/*" at the
// end covers a directory and all below it, any other rule exactly its entry. The last rule that
// covers an entry decides. Paths are bytes. Restore records ("REDIREC ", "CLEAR   ") are no rules
// and are skipped.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/message/BMessage.h"

namespace core {

inline constexpr char kSelectionField[] = "SELECTION";

struct SelectionRule {
    bool include = true;
    bool subtree = false;  // ended in "/*"
    std::string path;      // "/Volume/dir/file", no trailing slash, without the "/*"

    // Nothing for text that is no rule: an empty, "." or ".." component, a bare "/*".
    static std::optional<SelectionRule> Parse(std::string_view text);
    std::string Text() const;
    bool Covers(std::string_view entryPath) const;
};

// The rules of one "SELECTION" field as they are recorded while a person marks and unmarks.
namespace selection {
// Replaces every rule at or below the path by one new rule at the end. `subtree`: a directory or
// volume. A file's key is a plain prefix: recording /Disk/a also removes the rule for /Disk/ab.
void Record(BMessage& selection, bool include, std::string_view path, bool subtree);
// Appends `rule` as the last one unless it is the last one already; an earlier copy is removed.
void EnsureLast(BMessage& selection, std::string_view rule);
// Parsed rules in order; what cannot be parsed is left out and counted.
std::vector<SelectionRule> Rules(const BMessage& selection, int* refused = nullptr);
}  // namespace selection

// Decides for a whole tree. Made once from the rules; asking is const and may be done from any
// thread. An answer costs a binary search among the rules' paths, whatever their number.
class SelectionMatcher {
public:
    explicit SelectionMatcher(std::vector<SelectionRule> rules);

    // Whether the entry itself is taken.
    bool Includes(std::string_view entryPath) const;
    // Whether anything at or below the directory may be taken: false lets a walk skip it.
    bool MayInclude(std::string_view directoryPath) const;
    // Whether every entry below the directory gets the same answer as the directory: no need to ask
    // again.
    bool IsUniform(std::string_view directoryPath) const;

private:
    // What the rules say about one path. Numbers are places in fRules, -1: none.
    struct Place {
        int32_t rule = 0;     // any rule of this path, for its text
        int32_t parent = -1;  // the nearest place above
        int32_t exact = -1;   // the last rule for the entry alone, unless a later one covers it
        int32_t cover = -1;   // the last rule that covers all from here down, its own or from above
    };
    std::string_view PathOf(const Place& place) const {
        return fRules[static_cast<size_t>(place.rule)].path;
    }
    const Place* Nearest(std::string_view path) const;
    size_t FirstAtOrBelow(std::string_view path) const;
    size_t EndOfBelow(std::string_view path, size_t first) const;
    bool Takes(int32_t rule) const {
        return rule >= 0 && fRules[static_cast<size_t>(rule)].include;
    }

    std::vector<SelectionRule> fRules;
    std::vector<Place> fPlaces;  // sorted so that all below a path follow it
    // How many of the first n places hold a rule that still counts, by what it says.
    std::vector<int32_t> fIncludesBefore, fExcludesBefore;
};

}  // namespace core
