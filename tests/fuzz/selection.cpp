// Selection rules, one a line. The matcher must agree with what the words say: rules in order, the
// last that covers an entry decides.
#include <cstdlib>
#include <string>
#include <vector>

#include "core/selection/KTSelection.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

bool Naive(const std::vector<core::SelectionRule>& rules, std::string_view path) {
    bool taken = false;
    for (const auto& rule : rules) {
        if (rule.Covers(path)) taken = rule.include;
    }
    return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 2000) return 0;  // the comparison is quadratic
    BMessage selection;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    while (!input.empty()) {
        const size_t end = std::min(input.find('\n'), input.size());
        selection.Add(core::kSelectionField, input.substr(0, end));
        input.remove_prefix(std::min(end + 1, input.size()));
    }
    const auto rules = core::selection::Rules(selection);
    const core::SelectionMatcher matcher(rules);

    std::vector<std::string> paths{"", "/new"};
    for (const auto& rule : rules) {
        Require(core::SelectionRule::Parse(rule.Text()).has_value());
        for (size_t at = rule.path.find('/', 1); at != std::string::npos;
             at = rule.path.find('/', at + 1)) {
            paths.push_back(rule.path.substr(0, at));
        }
        paths.push_back(rule.path);
        paths.push_back(rule.path + "/new");
        paths.push_back(rule.path + "x");
    }
    for (const auto& path : paths) {
        const bool taken = Naive(rules, path);
        Require(matcher.Includes(path) == taken);
        bool some = taken;
        bool uniform = true;
        for (const auto& entry : paths) {
            if (entry.size() <= path.size() || !entry.starts_with(path + '/')) continue;
            const bool other = Naive(rules, entry);
            some |= other;
            uniform &= other == taken;
        }
        Require(matcher.MayInclude(path) || !some);
        Require(!matcher.IsUniform(path) || uniform);
    }

    if (!rules.empty()) {
        const auto& rule = rules.front();
        const int32_t before = selection.Count(core::kSelectionField);
        core::selection::Record(selection, rule.include, rule.path, rule.subtree);
        const int32_t count = selection.Count(core::kSelectionField);
        Require(count <= before &&
                selection.FindString(core::kSelectionField, count - 1) == rule.Text());
    }
    return 0;
}
