#include "server/catalogue/CatalogueReader.h"

#include <sys/stat.h>

namespace server {

namespace {

// The columns of an entry in the order in which ReadEntry takes them.
#define VELMORA_ENTRY_COLUMNS                                                               \
    "e.id, e.name, e.mode, e.uid, e.gid, e.size, e.modified, e.changed, e.frame, e.offset," \
    " e.link, e.incomplete, e.node"

constexpr int kEntryColumns = 13;

CatalogueEntry ReadEntry(const Statement& row) {
    CatalogueEntry entry;
    entry.id = static_cast<int32_t>(row.Integer(0));
    entry.name = row.Text(1);
    entry.mode = static_cast<uint32_t>(row.Integer(2));
    entry.uid = static_cast<uint32_t>(row.Integer(3));
    entry.gid = static_cast<uint32_t>(row.Integer(4));
    entry.size = row.Integer(5);
    entry.modified = row.Integer(6);
    entry.changed = row.Integer(7);
    entry.frame = row.Integer(8);
    entry.offset = row.Integer(9);
    entry.link = static_cast<int32_t>(row.Integer(10));
    entry.incomplete = row.Integer(11) != 0;
    entry.node = static_cast<uint64_t>(row.Integer(12));
    return entry;
}

#define VELMORA_FRAME_COLUMNS "f.id, f.medium, f.offset, f.size, f.content, f.hash, f.source"

CatalogueFrame ReadFrame(const Statement& row, int first = 0) {
    CatalogueFrame frame;
    frame.id = row.Integer(first);
    frame.medium = static_cast<int32_t>(row.Integer(first + 1));
    frame.offset = row.Integer(first + 2);
    frame.size = row.Integer(first + 3);
    frame.content = row.Integer(first + 4);
    frame.hash = static_cast<uint64_t>(row.Integer(first + 5));
    frame.source = static_cast<int32_t>(row.Integer(first + 6));
    return frame;
}

}  // namespace

kit::Result<CatalogueReader> CatalogueReader::Open(const std::string& path) {
    auto database = Database::OpenReadOnly(path);
    if (!database) return database.error();
    // A hostile file must not bring code of its own along.
    if (auto set = database->Execute("PRAGMA trusted_schema=OFF"); !set) return set.error();
    {
        Statement version = database->Prepare("SELECT version FROM catalogue");
        if (!version.Next()) {
            if (auto result = version.Result(); !result) return result.error();
            return kit::Error::Make(kit::ErrorKind::Damaged, path, "no catalogue");
        }
        if (version.Integer(0) > kCatalogueVersion) {
            return kit::Error::Make(kit::ErrorKind::Unsupported, path, "made by a later version");
        }
    }
    CatalogueReader reader(std::move(*database));
    for (Statement* statement :
         {&reader.fEntry, &reader.fDirectory, &reader.fFrame, &reader.fEntries}) {
        if (!statement->Result()) {
            return kit::Error::Make(kit::ErrorKind::Damaged, path, "tables");
        }
    }
    return reader;
}

CatalogueReader::CatalogueReader(Database database)
    : fDatabase(std::make_unique<Database>(std::move(database))),
      fEntry(fDatabase->Prepare("SELECT " VELMORA_ENTRY_COLUMNS " FROM entries e WHERE e.id = ?1")),
      fDirectory(fDatabase->Prepare(
          "SELECT id, first, count, frame, offset FROM directories WHERE id = ?1")),
      fFrame(fDatabase->Prepare("SELECT " VELMORA_FRAME_COLUMNS " FROM frames f WHERE f.id = ?1")),
      fEntries(fDatabase->Prepare("SELECT " VELMORA_ENTRY_COLUMNS
                                  " FROM entries e WHERE e.id >= ?1 AND e.id < ?2 ORDER BY e.id")) {
}

std::optional<CatalogueEntry> CatalogueReader::EntryAt(int32_t id) {
    if (!fEntry.Reset().Bind(1, int64_t{id}).Next()) return std::nullopt;
    return ReadEntry(fEntry);
}

std::optional<CatalogueDirectory> CatalogueReader::DirectoryAt(int32_t id) {
    if (!fDirectory.Reset().Bind(1, int64_t{id}).Next()) return std::nullopt;
    CatalogueDirectory directory;
    directory.id = id;
    const int64_t first = fDirectory.Integer(1), count = fDirectory.Integer(2);
    if (first < 0 || count < 0 || first + count > INT32_MAX) return std::nullopt;
    directory.first = static_cast<int32_t>(first);
    directory.count = static_cast<int32_t>(count);
    directory.frame = fDirectory.Integer(3);
    directory.offset = fDirectory.Integer(4);
    return directory;
}

std::optional<CatalogueFrame> CatalogueReader::FrameAt(int64_t id) {
    if (!fFrame.Reset().Bind(1, id).Next()) return std::nullopt;
    return ReadFrame(fFrame);
}

int64_t CatalogueReader::CountFrames() {
    Statement count = fDatabase->Prepare("SELECT count(*) FROM frames");
    return count.Next() ? count.Integer(0) : 0;
}

int64_t CatalogueReader::FirstFrameOf(int32_t source) {
    Statement first = fDatabase->Prepare("SELECT min(id) FROM frames WHERE source = ?1");
    return first.Bind(1, int64_t{source}).Next() ? first.Integer(0) : 0;
}

kit::Status CatalogueReader::Frames(const std::function<bool(const CatalogueFrame& frame)>& visit) {
    Statement rows =
        fDatabase->Prepare("SELECT " VELMORA_FRAME_COLUMNS " FROM frames f ORDER BY f.id");
    while (rows.Next()) {
        if (!visit(ReadFrame(rows))) return {};
    }
    return rows.Result();
}

kit::Result<CatalogueOrigin> CatalogueReader::Origin() {
    const auto texts = [this](const char* query, size_t most,
                              std::vector<std::string>* into) -> kit::Status {
        Statement rows = fDatabase->Prepare(query);
        while (rows.Next()) {
            if (into->size() == most)
                return kit::Error::Make(kit::ErrorKind::Damaged, "catalogue", "too many rows");
            into->emplace_back(rows.Text(0));
        }
        return rows.Result();
    };
    CatalogueOrigin origin;
    kit::Status status = texts("SELECT name FROM chain ORDER BY id", kMostInChain, &origin.chain);
    if (status) status = texts("SELECT rule FROM selection ORDER BY id", kMostRules, &origin.rules);
    if (!status) return status.error();
    if (origin.chain.empty()) {
        return kit::Error::Make(kit::ErrorKind::Damaged, "catalogue", "chain");
    }
    return origin;
}

kit::Status CatalogueReader::Gone(const std::function<bool(std::string_view path)>& visit) {
    Statement rows = fDatabase->Prepare("SELECT path FROM gone");
    while (rows.Next()) {
        if (!visit(rows.Text(0))) return {};
    }
    return rows.Result();
}

std::optional<CatalogueEntry> CatalogueReader::Find(const CatalogueDirectory& directory,
                                                    std::string_view name) {
    int32_t low = directory.first, high = directory.first + directory.count;
    while (low < high) {
        const int32_t middle = low + (high - low) / 2;
        auto entry = EntryAt(middle);
        if (!entry) return std::nullopt;
        const int order = std::string_view(entry->name).compare(name);
        if (order == 0) return entry;
        if (order < 0) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return std::nullopt;
}

std::optional<CatalogueEntry> CatalogueReader::Lookup(std::string_view path) {
    std::optional<CatalogueEntry> entry;
    int32_t parent = kCatalogueRoot;
    while (!path.empty()) {
        const size_t slash = path.find('/');
        const std::string_view name = path.substr(0, slash);
        path = slash == std::string_view::npos ? "" : path.substr(slash + 1);
        auto directory = DirectoryAt(parent);
        if (!directory) return std::nullopt;
        entry = Find(*directory, name);
        if (!entry) return std::nullopt;
        parent = entry->id;
    }
    return entry;
}

kit::Status CatalogueReader::Children(const CatalogueDirectory& directory, const Visitor& visit) {
    Statement rows = fDatabase->Prepare(
        "SELECT " VELMORA_ENTRY_COLUMNS ", " VELMORA_FRAME_COLUMNS
        " FROM entries e"
        " LEFT JOIN frames f ON f.id = e.frame WHERE e.id >= ?1 AND e.id < ?2 ORDER BY e.id");
    rows.Bind(1, int64_t{directory.first}).Bind(2, int64_t{directory.first} + directory.count);
    while (rows.Next()) {
        if (!visit(ReadEntry(rows), ReadFrame(rows, kEntryColumns))) return {};
    }
    return rows.Result();
}

void CatalogueReader::List(const CatalogueDirectory& directory) {
    fEntries.Reset()
        .Bind(1, int64_t{directory.first})
        .Bind(2, int64_t{directory.first} + directory.count);
}

std::optional<CatalogueEntry> CatalogueReader::Next() {
    if (!fEntries.Next()) return std::nullopt;
    return ReadEntry(fEntries);
}

kit::Status CatalogueReader::Entries(
    const CatalogueDirectory& directory,
    const std::function<bool(const CatalogueEntry& entry)>& visit) {
    List(directory);
    while (const auto entry = Next()) {
        if (!visit(*entry)) return {};
    }
    return fEntries.Result();
}

CatalogueListing ListingOf(const CatalogueEntry& entry, bool isVolume) {
    CatalogueListing listing;
    listing.type = isVolume ? kCatalogueVolumeType : CatalogueTypeOf(entry.mode);
    const bool holdsOthers = listing.type == 1 || isVolume;
    listing.size = holdsOthers ? -1 : entry.size;
    const int64_t second = 1'000'000'000;
    int64_t seconds = entry.modified / second;
    if (entry.modified % second < 0) --seconds;
    listing.date = BTime::FromSeconds(seconds);
    return listing;
}

int32_t CatalogueTypeOf(uint32_t mode) {
    return S_ISDIR(mode) ? 1 : S_ISLNK(mode) ? 2 : 0;
}

}  // namespace server
