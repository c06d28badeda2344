// Reads one backup's catalogue: a path, the children of a directory, where an entry's data lies.
// The file may come from a foreign medium: whatever is in it, a call gives rows or an error.
//
// One thread at a time; readers are made where they are needed (some 100 µs).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "kit/message/Types.h"
#include "kit/support/Result.h"
#include "server/catalogue/CatalogueTypes.h"
#include "server/sqlite/Database.h"

namespace server {

class CatalogueReader {
public:
    // Unsupported: made by a later version.
    static kit::Result<CatalogueReader> Open(const std::string& path);

    std::optional<CatalogueEntry> EntryAt(int32_t id);
    std::optional<CatalogueDirectory> DirectoryAt(int32_t id);
    std::optional<CatalogueFrame> FrameAt(int64_t id);
    int64_t CountFrames();
    int64_t FirstFrameOf(int32_t source);  // 0 where it has none
    // All of them in their order; `visit` returns false to stop.
    kit::Status Frames(const std::function<bool(const CatalogueFrame& frame)>& visit);
    // Damaged where it says what cannot be.
    kit::Result<CatalogueOrigin> Origin();
    // Paths that the backup before had; `visit` returns false to stop.
    kit::Status Gone(const std::function<bool(std::string_view path)>& visit);

    // The child of that name, by bisecting.
    std::optional<CatalogueEntry> Find(const CatalogueDirectory& directory, std::string_view name);
    // "Volume/directory/name"; "" gives nothing: the root is no entry.
    std::optional<CatalogueEntry> Lookup(std::string_view path);

    // Entries in byte order of their names, each with the place of its data's frame; `visit`
    // returns false to stop. The medium and offset of a directory's own header are not in it.
    using Visitor = std::function<bool(const CatalogueEntry& entry, const CatalogueFrame& frame)>;
    kit::Status Children(const CatalogueDirectory& directory, const Visitor& visit);

    // One after the other, without places: List, then Next until there is none. Nothing else may
    // be listed meanwhile.
    void List(const CatalogueDirectory& directory);
    std::optional<CatalogueEntry> Next();
    kit::Status Entries(const CatalogueDirectory& directory,
                        const std::function<bool(const CatalogueEntry& entry)>& visit);

    Database& File() { return *fDatabase; }

private:
    explicit CatalogueReader(Database database);

    // The statements end before the database.
    std::unique_ptr<Database> fDatabase;
    Statement fEntry, fDirectory, fFrame, fEntries;
};

// How clients are told of an entry.
struct CatalogueListing {
    int32_t type = 0;
    int64_t size = 0;  // -1: it holds others
    BTime date;
};
CatalogueListing ListingOf(const CatalogueEntry& entry, bool isVolume);

// Below a volume 0 file (also devices and FIFOs), 1 directory, 2 symbolic link; a volume itself
// is 3.
int32_t CatalogueTypeOf(uint32_t mode);
inline constexpr int32_t kCatalogueVolumeType = 3;

}  // namespace server
