// Walks what a selection takes of one backup's catalogue, in the order in which it lies in the
// stream: a directory, what is in it, then its directories. Only what the selection may reach is
// looked at.
//
// One thread; the reader is its own.
#pragma once

#include <string>
#include <string_view>

#include "core/selection/KTSelection.h"
#include "server/catalogue/CatalogueReader.h"

namespace server {

class CatalogueVisitor {
public:
    virtual ~CatalogueVisitor() = default;
    // Paths are "/Backup/Volume/directory/…". `taken`: the selection takes the directory itself,
    // else it is only on the way. False: nothing below it is to be told.
    virtual bool Enter(const std::string& path, const CatalogueEntry& entry,
                       const CatalogueDirectory& directory, bool taken) = 0;
    virtual void Entry(const std::string& directory, const CatalogueEntry& entry) = 0;
    virtual bool MayGoOn() = 0;
};

class CatalogueWalk {
public:
    // `rules` are those of the matcher; both must outlive it.
    CatalogueWalk(CatalogueReader& catalogue, const core::SelectionMatcher& matcher,
                  const std::vector<core::SelectionRule>& rules);

    // `root` is "/Backup". An error where the catalogue cannot be read; what was told until then
    // stands.
    kit::Status Run(const std::string& root, CatalogueVisitor& visitor);
    // Entries that were left out because no entry can have such a name, or such a place.
    int64_t Refused() const { return fRefused; }

private:
    struct Open {
        std::string path;
        CatalogueEntry entry;
    };
    kit::Status List(const std::string& path, const CatalogueDirectory& directory,
                     CatalogueVisitor& visitor, std::vector<Open>* below);
    std::vector<std::string> NamesBelow(const std::string& path) const;

    CatalogueReader& fCatalogue;
    const core::SelectionMatcher& fMatcher;
    const std::vector<core::SelectionRule>& fRules;
    int64_t fRefused = 0;
};

}  // namespace server
