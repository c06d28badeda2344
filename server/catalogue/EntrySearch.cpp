#include "server/catalogue/EntrySearch.h"

#include <unistd.h>

#include <algorithm>
#include <unordered_map>

#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/NameIndex.h"

namespace server {

namespace {

constexpr size_t kLongestPath = size_t{64} * 1024;

// Entries with their paths; those of directories are remembered, as matches often lie together.
class Places {
public:
    Places(CatalogueReader& catalogue, const NameIndex& index)
        : fCatalogue(catalogue), fIndex(index) {}

    // "/Volume/folder/name"; "" for an impossible place.
    std::string PathOf(const CatalogueEntry& entry, int32_t parent) {
        const std::string* above = DirectoryPath(parent);
        return above ? *above + "/" + entry.name : "";
    }

private:
    const std::string* DirectoryPath(int32_t id) {
        // From the inside out to what is known: ids fall on the way up, so it ends.
        std::vector<std::pair<int32_t, std::string>> unknown;
        size_t length = 0;
        while (id != kCatalogueRoot && !fPaths.contains(id)) {
            auto entry = fCatalogue.EntryAt(id);
            const auto parent = fIndex.ParentOf(id);
            if (!entry || !parent) return nullptr;
            length += entry->name.size() + 1;
            if (length > kLongestPath) return nullptr;
            unknown.emplace_back(id, std::move(entry->name));
            id = *parent;
        }
        const std::string* path = id == kCatalogueRoot ? &fRoot : &fPaths.at(id);
        for (auto below = unknown.rbegin(); below != unknown.rend(); ++below) {
            path = &fPaths.emplace(below->first, *path + "/" + below->second).first->second;
        }
        return path;
    }

    CatalogueReader& fCatalogue;
    const NameIndex& fIndex;
    const std::string fRoot;
    std::unordered_map<int32_t, std::string> fPaths;
};

}  // namespace

struct EntrySearch::Match {
    std::string path;
    CatalogueListing listing;
    int32_t id = 0;
};

void EntrySearch::Prepare(const std::string& backup) {
    const std::string path = fStore.NamesPathOf(backup);
    const auto info = fStore.Find(backup);
    if (!info || info->isLocked || NameIndex::Open(path)) return;
    if (auto built = NameIndex::Build(fStore.PathOf(backup), path); !built) {
        fDamaged(backup, built.error());
    }
    // Deleted meanwhile: nobody else removes it any more.
    if (!fStore.Find(backup)) ::unlink(path.c_str());
}

BMessage EntrySearch::Find(const std::string& text, int32_t most) {
    const std::string folded = NameIndex::Folded(text);
    const auto wanted = static_cast<size_t>(std::clamp(most, 1, kMost));
    BMessage answer(core::code::kFoundEntries);
    size_t count = 0;
    for (const auto& backup : fStore.Backups()) {
        if (count > wanted) break;
        if (backup.isLocked) continue;
        Prepare(backup.name);
        // One more tells that there is more.
        auto found = FindIn(backup.name, folded, wanted + 1 - count);
        if (!found && found.error().kind == kit::ErrorKind::Damaged) {
            // Perhaps it is only the index.
            ::unlink(fStore.NamesPathOf(backup.name).c_str());
            Prepare(backup.name);
            found = FindIn(backup.name, folded, wanted + 1 - count);
        }
        if (!found) {
            fDamaged(backup.name, found.error());
            continue;
        }
        for (const Match& match : *found) {
            if (++count > wanted) break;
            answer.Add("backup", backup.name);
            answer.Add("path", match.path);
            answer.Add("type", match.listing.type);
            answer.Add("size", match.listing.size);
            answer.Add("date", match.listing.date);
            answer.Add("index", match.id);
        }
    }
    if (count == 0) return BMessage(core::code::kNone);
    if (count > wanted) answer.Add("more", int32_t{1});
    return answer;
}

kit::Result<std::vector<EntrySearch::Match>> EntrySearch::FindIn(const std::string& backup,
                                                                 const std::string& folded,
                                                                 size_t most) const {
    auto index = NameIndex::Open(fStore.NamesPathOf(backup));
    if (!index) return index.error();
    auto catalogue = CatalogueReader::Open(fStore.PathOf(backup));
    if (!catalogue) return catalogue.error();
    Places places(*catalogue, *index);
    std::vector<Match> matches;
    bool sound = true;
    const kit::Status found = index->Find(folded, [&](int32_t id) {
        const auto entry = catalogue->EntryAt(id);
        const auto parent = index->ParentOf(id);
        Match match;
        if (entry && parent) match.path = places.PathOf(*entry, *parent);
        sound = !match.path.empty() && match.path.find('\0') == std::string::npos;
        if (!sound) return false;
        match.id = id;
        match.listing = ListingOf(*entry, *parent == kCatalogueRoot);
        matches.push_back(std::move(match));
        return matches.size() < most;
    });
    if (!sound) return kit::Error::Make(kit::ErrorKind::Damaged, fStore.PathOf(backup), "places");
    if (!found) return found.error();
    return matches;
}

}  // namespace server
