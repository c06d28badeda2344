// TreeRules: the rules of a tree of entries as they are recorded, also those whose rows have not
// been read yet. Paths are rule paths ("/Volume/dir/file") without the "/*". Main thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "core/selection/KTSelection.h"
#include "kit/message/BMessage.h"

class TreeRules {
public:
    // A rule that was applied before the row it is about was there.
    struct Open {
        std::string text;
        bool read = false;  // directories on its way are to be read for it
    };

    // The parts of a rule's path; empty for what names no entry.
    static std::vector<std::string> Components(std::string_view rule);

    const BMessage& Message() const { return fMessage; }
    bool IsEmpty() const { return fMessage.IsEmpty(); }
    void Clear();

    void Record(bool include, std::string_view path, bool subtree);
    bool Has(std::string_view rule) const;
    void Drop(std::string_view rule);
    // Drops every rule at or below a directory.
    void Forget(std::string_view directory);
    // Puts another rule in its place in the order.
    void Replace(std::string_view rule, const core::SelectionRule& by);

    // A marked entry is no longer there: it is excluded as if it had been unmarked, until it is
    // there again. Programs that save by deleting and writing anew must not talk a file out of a
    // backup.
    void Gone(std::string_view path, bool subtree);
    void Returned(std::string_view path);

    std::vector<Open>& OpenRules() { return fOpen; }
    bool HasOpen() const { return !fOpen.empty(); }

    const core::SelectionMatcher& Matcher() const;

private:
    int32_t IndexOf(std::string_view rule) const;  // -1: not there

    BMessage fMessage;
    std::vector<Open> fOpen;
    std::unordered_set<std::string> fGone;
    mutable std::optional<core::SelectionMatcher> fMatcher;
};
