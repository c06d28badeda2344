// What a backup was to hold: the selection that it was made by. Directories on the way to that are
// in it, too, but nobody asked for them.
//
// Any thread.
#pragma once

#include <string_view>

#include "core/selection/KTSelection.h"
#include "server/catalogue/CatalogueReader.h"

namespace server {

class SavedSelection {
public:
    explicit SavedSelection(CatalogueReader& catalogue);
    // "/Volume/path".
    bool Includes(std::string_view path) const { return fMatcher.Includes(path); }

private:
    core::SelectionMatcher fMatcher;
};

}  // namespace server
