#include "server/engine/CatalogueWalk.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>

namespace server {

namespace {

// A name that no entry has: what the rules say about it they say about every name they do not know.
constexpr std::string_view kNobody("\0", 1);

bool IsName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace

CatalogueWalk::CatalogueWalk(CatalogueReader& catalogue, const core::SelectionMatcher& matcher,
                             const std::vector<core::SelectionRule>& rules)
    : fCatalogue(catalogue), fMatcher(matcher), fRules(rules) {}

kit::Status CatalogueWalk::Run(const std::string& root, CatalogueVisitor& visitor) {
    const auto top = fCatalogue.DirectoryAt(kCatalogueRoot);
    if (!top) return kit::Error::Make(kit::ErrorKind::Damaged, root, "no volumes");
    std::vector<Open> open;
    if (auto status = List(root, *top, visitor, &open); !status) return status;
    // Ids grow on the way down, so a directory that claims to hold one above it ends here.
    while (!open.empty() && visitor.MayGoOn()) {
        Open next = std::move(open.back());
        open.pop_back();
        const auto directory = fCatalogue.DirectoryAt(next.entry.id);
        if (!directory || (directory->count > 0 && directory->first <= next.entry.id)) {
            return kit::Error::Make(kit::ErrorKind::Damaged, next.path, "directory");
        }
        const bool taken = fMatcher.Includes(next.path);
        if (!visitor.Enter(next.path, next.entry, *directory, taken)) continue;
        if (auto status = List(next.path, *directory, visitor, &open); !status) return status;
    }
    return {};
}

kit::Status CatalogueWalk::List(const std::string& path, const CatalogueDirectory& directory,
                                CatalogueVisitor& visitor, std::vector<Open>* below) {
    const size_t first = below->size();
    std::string child;
    const bool uniform = fMatcher.IsUniform(path) && fMatcher.Includes(path);
    const auto one = [&](const CatalogueEntry& entry) {
        if (!visitor.MayGoOn()) return false;
        // At the top there are volumes and nothing else.
        const bool isTop = directory.id == kCatalogueRoot;
        if (!IsName(entry.name) || (isTop && !S_ISDIR(entry.mode))) {
            ++fRefused;
            return true;
        }
        if (S_ISDIR(entry.mode)) {
            child = path + "/" + entry.name;
            if (uniform || fMatcher.MayInclude(child)) below->push_back({child, entry});
        } else if (uniform || fMatcher.Includes(path + "/" + entry.name)) {
            visitor.Entry(path, entry);
        }
        return true;
    };
    if (uniform || fMatcher.Includes(path + "/" + std::string(kNobody))) {
        if (auto status = fCatalogue.Entries(directory, one); !status) return status;
    } else {
        // Only names that a rule knows can be taken: a huge directory need not be read for a few.
        for (const std::string& name : NamesBelow(path)) {
            if (const auto entry = fCatalogue.Find(directory, name)) one(*entry);
        }
    }
    // The stack gives the last one first.
    std::reverse(below->begin() + static_cast<std::ptrdiff_t>(first), below->end());
    return {};
}

std::vector<std::string> CatalogueWalk::NamesBelow(const std::string& path) const {
    std::set<std::string> names;
    for (const core::SelectionRule& rule : fRules) {
        if (rule.path.size() <= path.size() + 1 || !rule.path.starts_with(path) ||
            rule.path[path.size()] != '/') {
            continue;
        }
        const size_t begin = path.size() + 1;
        names.insert(rule.path.substr(begin, rule.path.find('/', begin) - begin));
    }
    return {names.begin(), names.end()};
}

}  // namespace server
