#include "core/selection/Redirections.h"

#include <algorithm>

#include "core/selection/KTSelection.h"

namespace core {

namespace {

constexpr std::string_view kRedirect = "REDIREC ";
constexpr std::string_view kClear = "CLEAR   ";
constexpr std::string_view kNoTarget = " ";

// Absolute, without "." and "..", and without a slash at the end.
bool IsPlainPath(std::string_view path) {
    if (path == "/") return true;
    return SelectionRule::Parse("INCLUDE " + std::string(path)).has_value();
}

std::string Source(std::string_view word, std::string_view path, bool subtree) {
    return std::string(word) + std::string(path) + (subtree ? "/*" : "");
}

}  // namespace

Redirections::Redirections(const BMessage& selection) {
    for (int32_t i = 0; i < selection.Count(kSourceField); ++i) {
        const std::string source = selection.Get<std::string>(kSourceField, "", i);
        std::string target = selection.Get<std::string>(kRedirectField, "", i);
        const bool redirect = source.starts_with(kRedirect);
        while (target.size() > 1 && target.ends_with('/'))
            target.pop_back();
        const auto rule = SelectionRule::Parse(
            "INCLUDE " + source.substr(std::min(source.size(), kRedirect.size())));
        if ((!redirect && !source.starts_with(kClear)) || !rule ||
            (redirect && !IsPlainPath(target))) {
            ++fRefused;
            continue;
        }
        fRecords.push_back({rule->path, rule->subtree, redirect ? target : ""});
    }
}

const Redirection* Redirections::Of(std::string_view path) const {
    for (size_t i = fRecords.size(); i-- > 0;) {
        const Redirection& one = fRecords[i];
        if (!SelectionRule{true, one.subtree, one.source}.Covers(path)) continue;
        return one.target.empty() ? nullptr : &one;
    }
    return nullptr;
}

void Redirections::Record(BMessage& selection, std::string_view path, bool subtree,
                          std::string_view target) {
    selection.Add(kSourceField, Source(kRedirect, path, subtree));
    selection.Add(kRedirectField, target);
}

void Redirections::Remove(BMessage& selection, std::string_view path, bool subtree) {
    const std::string key = std::string(path) + (subtree ? "/" : "");
    for (int32_t i = selection.Count(kSourceField); i-- > 0;) {
        const auto source = selection.FindString(kSourceField, i);
        if (!source || source->size() < kRedirect.size() ||
            !source->substr(kRedirect.size()).starts_with(key))
            continue;
        selection.RemoveAt(kSourceField, i);
        selection.RemoveAt(kRedirectField, i);
    }
}

void Redirections::RecordClear(BMessage& selection, std::string_view path, bool subtree) {
    Remove(selection, path, subtree);
    selection.Add(kSourceField, Source(kClear, path, subtree));
    selection.Add(kRedirectField, kNoTarget);
}

}  // namespace core
