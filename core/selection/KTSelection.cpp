#include "core/selection/KTSelection.h"

#include <algorithm>
#include <numeric>

namespace core {

namespace {

constexpr std::string_view kInclude = "INCLUDE ";
constexpr std::string_view kExclude = "EXCLUDE ";
constexpr std::string_view kRedirect = "REDIREC ";
constexpr std::string_view kClearRecord = "CLEAR   ";
constexpr size_t kKeywordSize = 8;
constexpr std::string_view kBelow = "/*";

bool IsSoundPath(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view component = path.substr(0, path.find('/'));
        if (component.empty() || component == "." || component == "..") return false;
        path.remove_prefix(component.size());
    }
    return true;
}

bool IsBelow(std::string_view path, std::string_view directory) {
    return path.size() > directory.size() && path.starts_with(directory) &&
           path[directory.size()] == '/';
}

bool IsAtOrBelow(std::string_view path, std::string_view directory) {
    return path == directory || IsBelow(path, directory);
}

// Byte-wise, but "/" before everything else: all below a directory follow it at once, with no
// sibling like "dir-2" in between.
bool PathLess(std::string_view a, std::string_view b) {
    const auto [endA, endB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (endB == b.end()) return false;
    if (endA == a.end()) return true;
    const auto rank = [](char c) { return c == '/' ? -1 : int{static_cast<unsigned char>(c)}; };
    return rank(*endA) < rank(*endB);
}

std::string_view WithoutTrailingSlash(std::string_view path) {
    if (path.ends_with('/')) path.remove_suffix(1);
    return path;
}

}  // namespace

// --- one rule -----------------------------------------------------------------------------------

std::optional<SelectionRule> SelectionRule::Parse(std::string_view text) {
    SelectionRule rule;
    if (text.starts_with(kInclude)) {
        rule.include = true;
    } else if (text.starts_with(kExclude)) {
        rule.include = false;
    } else {
        return std::nullopt;
    }
    text.remove_prefix(kKeywordSize);
    if (text.ends_with(kBelow)) {
        rule.subtree = true;
        text.remove_suffix(kBelow.size());
    }
    if (!IsSoundPath(text)) return std::nullopt;
    rule.path = text;
    return rule;
}

std::string SelectionRule::Text() const {
    std::string text(include ? kInclude : kExclude);
    text += path;
    if (subtree) text += kBelow;
    return text;
}

bool SelectionRule::Covers(std::string_view entryPath) const {
    return subtree ? IsAtOrBelow(entryPath, path) : entryPath == path;
}

// --- recording ----------------------------------------------------------------------------------

namespace selection {

namespace {

template <class Predicate>
void RemoveRulesIf(BMessage& selection, Predicate goes) {
    const int32_t count = selection.Count(kSelectionField, B_STRING_TYPE);
    int32_t first = 0;
    while (first < count && !goes(*selection.FindString(kSelectionField, first)))
        ++first;
    if (first == count && count > 0) return;  // mostly: thousands of rules are recorded one by one
    std::vector<std::string> kept;
    for (int32_t i = 0; i < count; ++i) {
        const std::string_view rule = *selection.FindString(kSelectionField, i);
        if (i < first || !goes(rule)) kept.emplace_back(rule);
    }
    selection.Remove(kSelectionField);  // also one of a foreign type, which would refuse rules
    for (const std::string& rule : kept)
        selection.Add(kSelectionField, rule);
}

}  // namespace

void Record(BMessage& selection, bool include, std::string_view path, bool subtree) {
    std::string rule(include ? kInclude : kExclude);
    rule += path;
    if (subtree) rule += kBelow;
    const std::string key = subtree ? std::string(path) + '/' : std::string(path);
    RemoveRulesIf(selection, [&key](std::string_view text) {
        return text.size() >= kKeywordSize && text.substr(kKeywordSize).starts_with(key);
    });
    selection.Add(kSelectionField, rule);
}

void EnsureLast(BMessage& selection, std::string_view rule) {
    const int32_t count = selection.Count(kSelectionField, B_STRING_TYPE);
    if (count > 0 && selection.FindString(kSelectionField, count - 1) == rule) return;
    RemoveRulesIf(selection, [rule](std::string_view text) { return text == rule; });
    selection.Add(kSelectionField, rule);
}

std::vector<SelectionRule> Rules(const BMessage& selection, int* refused) {
    std::vector<SelectionRule> rules;
    int bad = 0;
    const int32_t count = selection.Count(kSelectionField, B_STRING_TYPE);
    for (int32_t i = 0; i < count; ++i) {
        const std::string_view text = *selection.FindString(kSelectionField, i);
        if (auto rule = SelectionRule::Parse(text)) {
            rules.push_back(std::move(*rule));
        } else if (!text.starts_with(kRedirect) && !text.starts_with(kClearRecord)) {
            ++bad;
        }
    }
    if (refused) *refused = bad;
    return rules;
}

}  // namespace selection

// --- matching -----------------------------------------------------------------------------------

SelectionMatcher::SelectionMatcher(std::vector<SelectionRule> rules) : fRules(std::move(rules)) {
    std::vector<int32_t> order(fRules.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [this](int32_t a, int32_t b) {
        return PathLess(fRules[static_cast<size_t>(a)].path, fRules[static_cast<size_t>(b)].path);
    });

    for (const int32_t index : order) {
        const SelectionRule& rule = fRules[static_cast<size_t>(index)];
        if (fPlaces.empty() || PathOf(fPlaces.back()) != rule.path) {
            int32_t above = static_cast<int32_t>(fPlaces.size()) - 1;
            while (above >= 0 && !IsBelow(rule.path, PathOf(fPlaces[static_cast<size_t>(above)]))) {
                above = fPlaces[static_cast<size_t>(above)].parent;
            }
            const int32_t cover = above < 0 ? -1 : fPlaces[static_cast<size_t>(above)].cover;
            fPlaces.push_back({index, above, -1, cover});
        }
        Place& place = fPlaces.back();
        if (rule.subtree) {
            place.cover = std::max(place.cover, index);
        } else {
            place.exact = std::max(place.exact, index);
        }
    }

    // A rule that a later one covers wholly says nothing any more: only what still counts makes a
    // directory worth a visit.
    fIncludesBefore.assign(1, 0);
    fExcludesBefore.assign(1, 0);
    for (Place& place : fPlaces) {
        if (place.exact < place.cover) place.exact = -1;
        const int32_t inherited =
            place.parent < 0 ? -1 : fPlaces[static_cast<size_t>(place.parent)].cover;
        bool includes = false;
        bool excludes = false;
        for (const int32_t rule : {place.exact, place.cover == inherited ? -1 : place.cover}) {
            if (rule >= 0) (Takes(rule) ? includes : excludes) = true;
        }
        fIncludesBefore.push_back(fIncludesBefore.back() + (includes ? 1 : 0));
        fExcludesBefore.push_back(fExcludesBefore.back() + (excludes ? 1 : 0));
    }
}

// The place of the path itself or of the nearest directory above it; null when there is none.
const SelectionMatcher::Place* SelectionMatcher::Nearest(std::string_view path) const {
    const auto after = std::upper_bound(
        fPlaces.begin(), fPlaces.end(), path,
        [this](std::string_view p, const Place& place) { return PathLess(p, PathOf(place)); });
    auto index = static_cast<int32_t>(after - fPlaces.begin()) - 1;
    while (index >= 0) {
        const Place& place = fPlaces[static_cast<size_t>(index)];
        if (IsAtOrBelow(path, PathOf(place))) return &place;
        index = place.parent;
    }
    return nullptr;
}

size_t SelectionMatcher::FirstAtOrBelow(std::string_view path) const {
    const auto first = std::lower_bound(
        fPlaces.begin(), fPlaces.end(), path,
        [this](const Place& place, std::string_view p) { return PathLess(PathOf(place), p); });
    return static_cast<size_t>(first - fPlaces.begin());
}

size_t SelectionMatcher::EndOfBelow(std::string_view path, size_t first) const {
    const auto end = std::partition_point(
        fPlaces.begin() + static_cast<ptrdiff_t>(first), fPlaces.end(),
        [this, path](const Place& place) { return IsAtOrBelow(PathOf(place), path); });
    return static_cast<size_t>(end - fPlaces.begin());
}

bool SelectionMatcher::Includes(std::string_view entryPath) const {
    const std::string_view path = WithoutTrailingSlash(entryPath);
    const Place* place = Nearest(path);
    if (!place) return false;
    if (place->exact >= 0 && PathOf(*place) == path) return Takes(place->exact);
    return Takes(place->cover);
}

bool SelectionMatcher::MayInclude(std::string_view directoryPath) const {
    const std::string_view path = WithoutTrailingSlash(directoryPath);
    const Place* place = Nearest(path);
    if (place && Takes(place->cover)) return true;
    const size_t first = FirstAtOrBelow(path);
    return fIncludesBefore[EndOfBelow(path, first)] > fIncludesBefore[first];
}

bool SelectionMatcher::IsUniform(std::string_view directoryPath) const {
    const std::string_view path = WithoutTrailingSlash(directoryPath);
    const bool answer = Includes(path);
    const Place* place = Nearest(path);
    if (answer != (place && Takes(place->cover))) return false;
    size_t first = FirstAtOrBelow(path);
    const size_t end = EndOfBelow(path, first);
    if (first < end && PathOf(fPlaces[first]) == path) ++first;
    const auto& others = answer ? fExcludesBefore : fIncludesBefore;
    return others[end] == others[first];
}

}  // namespace core
