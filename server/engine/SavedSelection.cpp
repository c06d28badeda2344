#include "server/engine/SavedSelection.h"

namespace server {

namespace {

std::vector<core::SelectionRule> RulesOf(CatalogueReader& catalogue) {
    std::vector<core::SelectionRule> rules;
    if (const auto origin = catalogue.Origin()) {
        for (const std::string& words : origin->rules) {
            if (auto rule = core::SelectionRule::Parse(words)) rules.push_back(std::move(*rule));
        }
    }
    return rules;
}

}  // namespace

SavedSelection::SavedSelection(CatalogueReader& catalogue) : fMatcher(RulesOf(catalogue)) {}

}  // namespace server
