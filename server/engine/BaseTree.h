// The tree of the backup that another one is built on, asked in step with the walk of the disk:
// directory by directory, names in byte order. What the walk passes over is gone.
//
// One thread.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "server/catalogue/CatalogueReader.h"

namespace server {

class BaseTree {
public:
    // `gone` is told the paths ("/Volume/dir/name") of what is no more, each once and without what
    // was below it. The catalogue must outlive this.
    using Gone = std::function<void(std::string_view path)>;
    BaseTree(CatalogueReader& catalogue, Gone gone)
        : fCatalogue(catalogue), fGone(std::move(gone)) {}

    // Takes up the directory of that id; 0: there was none, all in it is new. `path` is
    // "/Volume/…",
    // "" for the volumes.
    void Open(int32_t directory, std::string_view path);
    // Names in order. The entry that the base has under it; null for what is new.
    const CatalogueEntry* Find(std::string_view name);
    // An entry that Find gave became something else: what it was is gone.
    void Replaced(const CatalogueEntry& entry) { Tell(entry); }
    // The rest of the directory is gone.
    void Close();
    std::optional<CatalogueDirectory> DirectoryAt(int32_t id) { return fCatalogue.DirectoryAt(id); }

    // Whether a node is still what the base saved: its data, and everything that the header has.
    // An entry that was not saved as it should is never the same.
    static bool IsSame(const CatalogueEntry& entry, const struct stat& info);

private:
    void Tell(const CatalogueEntry& entry) { fGone(fPath + "/" + entry.name); }

    CatalogueReader& fCatalogue;
    const Gone fGone;
    std::string fPath;
    std::optional<CatalogueEntry> fNext;   // the first that was not passed yet
    std::optional<CatalogueEntry> fFound;  // what Find gave last
};

}  // namespace server
