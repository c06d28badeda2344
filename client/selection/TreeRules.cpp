#include "client/selection/TreeRules.h"

#include <algorithm>

using core::kSelectionField;

std::vector<std::string> TreeRules::Components(std::string_view rule) {
    constexpr size_t kFirst = 9;  // behind the keyword and the leading "/"
    std::vector<std::string> components;
    if (rule.size() <= kFirst || rule[kFirst - 1] != '/') return components;
    rule.remove_prefix(kFirst);
    while (!rule.empty()) {
        const size_t end = std::min(rule.find('/'), rule.size());
        const std::string_view component = rule.substr(0, end);
        if (component.empty() || component == "*") break;
        components.emplace_back(component);
        rule.remove_prefix(std::min(end + 1, rule.size()));
    }
    return components;
}

void TreeRules::Clear() {
    fMessage.Clear();
    fOpen.clear();
    fGone.clear();
    fMatcher.reset();
}

void TreeRules::Record(bool include, std::string_view path, bool subtree) {
    core::selection::Record(fMessage, include, path, subtree);
    fMatcher.reset();
}

int32_t TreeRules::IndexOf(std::string_view rule) const {
    const int32_t count = fMessage.Count(kSelectionField);
    for (int32_t i = 0; i < count; ++i)
        if (fMessage.FindString(kSelectionField, i) == rule) return i;
    return -1;
}

bool TreeRules::Has(std::string_view rule) const {
    return IndexOf(rule) >= 0;
}

void TreeRules::Drop(std::string_view rule) {
    const int32_t index = IndexOf(rule);
    if (index < 0) return;
    fMessage.RemoveAt(kSelectionField, index);
    fMatcher.reset();
}

void TreeRules::Forget(std::string_view directory) {
    // A new rule takes all of them away; then it goes itself.
    Record(false, directory, true);
    Drop(core::SelectionRule{false, true, std::string(directory)}.Text());
}

void TreeRules::Replace(std::string_view rule, const core::SelectionRule& by) {
    const int32_t index = IndexOf(rule);
    if (index < 0) return;
    fMessage.Set(kSelectionField, by.Text(), index);
    fMatcher.reset();
}

void TreeRules::Gone(std::string_view path, bool subtree) {
    Record(false, path, subtree);
    fGone.insert(std::string(path));
}

void TreeRules::Returned(std::string_view path) {
    const auto gone = fGone.find(std::string(path));
    if (gone == fGone.end()) return;
    fGone.erase(gone);
    core::SelectionRule rule{false, true, std::string(path)};
    if (!Has(rule.Text())) rule.subtree = false;
    if (!Has(rule.Text())) return;  // the user has decided otherwise since
    Drop(rule.Text());
    if (!Matcher().Includes(path)) Record(true, path, rule.subtree);
}

const core::SelectionMatcher& TreeRules::Matcher() const {
    if (!fMatcher) fMatcher.emplace(core::selection::Rules(fMessage));
    return *fMatcher;
}
