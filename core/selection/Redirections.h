// Redirections: where restored entries are to go instead of the place they came from. A selection
// holds them as strings in pairs at equal indexes: "source" is "REDIREC " or "CLEAR   " (8
// characters each) followed by a path ("/Backup/Volume/path", "/*" for all that is below), and
// "redirect" is the target, an absolute path of this machine (" " with a CLEAR record). A later
// record wins for what it covers; CLEAR takes earlier ones back. Paths are bytes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kit/message/BMessage.h"

namespace core {

inline constexpr char kSourceField[] = "source";
inline constexpr char kRedirectField[] = "redirect";

struct Redirection {
    std::string source;  // without "/*"
    bool subtree = false;
    std::string target;  // "" takes earlier ones back
};

class Redirections {
public:
    Redirections() = default;
    explicit Redirections(const BMessage& selection);

    // The record that decides about an entry; null when none does, or it was taken back.
    const Redirection* Of(std::string_view path) const;
    bool IsEmpty() const { return fRecords.empty(); }
    const std::vector<Redirection>& Records() const { return fRecords; }  // in their order
    int Refused() const { return fRefused; }  // records that cannot be understood

    // --- recording, as a person sends entries elsewhere -----------------------------------------
    // Older pairs are kept.
    static void Record(BMessage& selection, std::string_view path, bool subtree,
                       std::string_view target);
    // Removes the pairs whose source begins with the path (of a file: a plain prefix).
    static void Remove(BMessage& selection, std::string_view path, bool subtree);
    // Removes them and adds the CLEAR record.
    static void RecordClear(BMessage& selection, std::string_view path, bool subtree);

private:
    std::vector<Redirection> fRecords;
    int fRefused = 0;
};

}  // namespace core
