#include "server/catalogue/CatalogueCopy.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "core/selection/KTSelection.h"
#include "server/archive/Format.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/catalogue/CatalogueTables.h"
#include "server/catalogue/CatalogueWriter.h"

namespace server {

namespace {

using kit::Status;

constexpr size_t kLongestPath = size_t{64} << 10;
constexpr int64_t kAskEvery = 10'000;  // rows

kit::Error DamagedFile(const std::string& path, const char* what) {
    return kit::Error::Make(kit::ErrorKind::Damaged, path, what);
}

// Views, triggers, indices, tables made otherwise: all of it could do or cost what nobody expects.
// Before anything is asked of a table.
Status CheckTables(const std::string& path) {
    auto database = Database::OpenReadOnly(path);
    if (!database) return database.error();
    Statement rows = database->Prepare("SELECT type, name, sql, rootpage FROM sqlite_schema");
    size_t known = 0;
    while (rows.Next()) {
        const std::string name = rows.Text(1), sql = rows.Text(2);
        const bool isOurs = rows.Text(0) == "table" && rows.Integer(3) > 0 &&
                            std::ranges::any_of(kCatalogueTables, [&](const auto& table) {
                                return table.name == name && table.sql == sql;
                            });
        if (!isOurs || ++known > std::size(kCatalogueTables)) return DamagedFile(path, "tables");
    }
    if (auto status = rows.Result(); !status) return status;
    if (known < std::size(kCatalogueTables)) return DamagedFile(path, "tables");
    return {};
}

class Copy {
public:
    Copy(CatalogueReader& from, const std::string& path, const std::function<bool()>& mayGoOn)
        : fFrom(from), fPath(path), fMayGoOn(mayGoOn) {}

    kit::Result<CopiedCatalogue> To(const std::string& path, const std::string& name) {
        if (auto status = TakeOrigin(name); !status) return status.error();
        auto writer = CatalogueWriter::Create(path, fCopied.origin);
        if (!writer) return writer.error();
        fTo = writer->get();
        for (const auto step :
             {&Copy::TakeFrames, &Copy::TakeDirectories, &Copy::TakeEntries, &Copy::TakeGone}) {
            if (auto status = (this->*step)(); !status) return status.error();
        }
        if (auto status = fTo->Finish(); !status) return status.error();
        return std::move(fCopied);
    }

private:
    Status Damaged(const char* what) const { return DamagedFile(fPath, what); }
    Status Ask() {
        if (++fRows % kAskEvery != 0 || fMayGoOn()) return {};
        return kit::Error::Make(kit::ErrorKind::Aborted, fPath);
    }

    Status TakeOrigin(const std::string& name) {
        auto origin = fFrom.Origin();
        if (!origin) return origin.error();
        for (const std::string& backup : origin->chain)
            if (!archive::IsBackupName(backup)) return Damaged("chain");
        if (origin->chain.back() != name) return Damaged("of another backup");
        for (const std::string& rule : origin->rules)
            if (!core::SelectionRule::Parse(rule)) return Damaged("selection");
        fCopied.origin = std::move(*origin);
        return {};
    }

    Status TakeFrames() {
        const auto sources = static_cast<int32_t>(fCopied.origin.chain.size());
        int32_t source = 0;
        Status sound;
        const Status read = fFrom.Frames([&](const CatalogueFrame& frame) {
            // Those of a base come before the ones that are built on it.
            if (frame.id != fFrames || frame.source < source || frame.source >= sources ||
                frame.medium < 1 || frame.offset < 0 || frame.size < 0 || frame.content < 0 ||
                frame.content > static_cast<int64_t>(archive::kFrameSize)) {
                sound = Damaged("frames");
            } else {
                sound = Ask();
            }
            if (!sound) return false;
            source = frame.source;
            ++fFrames;
            fTo->AddFrame(frame);
            return true;
        });
        return sound ? read : sound;
    }

    bool IsPlace(int64_t frame, int64_t offset) const {
        return frame == -1 || (frame >= 0 && frame < fFrames && offset >= 0 &&
                               offset <= static_cast<int64_t>(archive::kFrameSize));
    }

    Status TakeDirectories() {
        Statement rows = fFrom.File().Prepare(
            "SELECT id, first, count, frame, offset FROM directories ORDER BY id");
        while (rows.Next()) {
            const int64_t id = rows.Integer(0), first = rows.Integer(1), count = rows.Integer(2);
            const bool isRoot = fDirectories.empty();
            constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
            if ((id == kCatalogueRoot) != isRoot || id < 0 || count < 0 || count > kMost ||
                first < 0 || first > kMost - count || (count > 0 && first <= id) ||
                (!isRoot && id <= fDirectories.back().id) ||
                !IsPlace(rows.Integer(3), rows.Integer(4))) {
                return Damaged("directories");
            }
            fDirectories.push_back({static_cast<int32_t>(id), static_cast<int32_t>(first),
                                    static_cast<int32_t>(count), rows.Integer(3), rows.Integer(4)});
            fTo->AddDirectory(fDirectories.back());
            if (auto status = Ask(); !status) return status;
        }
        if (auto status = rows.Result(); !status) return status;
        return fDirectories.empty() ? Damaged("no volumes") : Status();
    }

    // Each entry is in one directory, and each directory that holds something is an entry.
    Status TakeEntries() {
        std::vector<CatalogueDirectory> holders;
        std::ranges::copy_if(fDirectories, std::back_inserter(holders),
                             [](const auto& directory) { return directory.count > 0; });
        std::ranges::sort(holders, {}, &CatalogueDirectory::first);
        int32_t end = 1;
        for (const CatalogueDirectory& holder : holders) {
            if (holder.first != end) return Damaged("places");
            end = holder.first + holder.count;
        }
        auto holder = holders.begin();
        auto directory = std::next(fDirectories.begin());
        std::string before;
        int32_t next = 1;
        std::vector<bool> isLinkable(1);  // by id: what a hard link may point to
        Status sound;
        const Status read = fFrom.Entries({0, 1, end - 1}, [&](const CatalogueEntry& entry) {
            while (holder != holders.end() && next == holder->first + holder->count)
                ++holder;
            const bool isFirst = holder != holders.end() && next == holder->first;
            const bool isDirectory = S_ISDIR(entry.mode);
            const bool hasRow = directory != fDirectories.end() && directory->id == entry.id;
            const bool isVolume = holder != holders.end() && holder->id == kCatalogueRoot;
            if (entry.id != next || !IsName(entry.name) || (!isFirst && entry.name <= before) ||
                isDirectory != hasRow || (isVolume && !isDirectory) || entry.size < 0 ||
                !IsPlace(entry.frame, entry.offset)) {
                sound = Damaged("entries");
            } else if (entry.link != 0 && (isDirectory || entry.link < 0 || entry.link >= next ||
                                           !isLinkable[static_cast<size_t>(entry.link)])) {
                sound = Damaged("hard links");
            } else {
                sound = Ask();
            }
            if (!sound) return false;
            if (hasRow) ++directory;
            isLinkable.push_back(!isDirectory && entry.link == 0);
            Count(entry, isDirectory);
            before = entry.name;
            ++next;
            fTo->AddEntry(entry, entry.name);
            return true;
        });
        if (!sound || !read) return sound ? read : sound;
        return next == end && directory == fDirectories.end() && CountEntries() == end - 1
                   ? Status()
                   : Damaged("entries");
    }

    int64_t CountEntries() {
        Statement count = fFrom.File().Prepare("SELECT count(*) FROM entries");
        return count.Next() ? count.Integer(0) : -1;
    }

    static bool IsName(std::string_view name) {
        return !name.empty() && name.size() < 4096 && name != "." && name != ".." &&
               name.find('/') == std::string_view::npos &&
               name.find('\0') == std::string_view::npos;
    }

    void Count(const CatalogueEntry& entry, bool isDirectory) {
        if (isDirectory) return;
        ++fCopied.files;
        if (entry.link != 0 || !S_ISREG(entry.mode)) return;
        const int64_t room = std::numeric_limits<int64_t>::max() - fCopied.bytes;
        fCopied.bytes += std::min(entry.size, room);
    }

    Status TakeGone() {
        Status sound;
        const Status read = fFrom.Gone([&](std::string_view path) {
            sound = path.empty() || path.size() > kLongestPath ||
                            path.find('\0') != std::string_view::npos
                        ? Damaged("gone")
                        : Ask();
            if (sound) fTo->AddGone(path);
            return sound.ok();
        });
        return sound ? read : sound;
    }

    CatalogueReader& fFrom;
    const std::string& fPath;
    const std::function<bool()>& fMayGoOn;
    CatalogueWriter* fTo = nullptr;
    CopiedCatalogue fCopied;
    std::vector<CatalogueDirectory> fDirectories;
    int64_t fFrames = 0;
    int64_t fRows = 0;
};

}  // namespace

kit::Result<CopiedCatalogue> CopyCatalogue(const std::string& from, const std::string& to,
                                           const std::string& name,
                                           const std::function<bool()>& mayGoOn) {
    if (auto status = CheckTables(from); !status) return status.error();
    auto reader = CatalogueReader::Open(from);
    if (!reader) return reader.error();
    // What is not there once a page is broken must not be made up of what lies beside it.
    (void)reader->File().Execute("PRAGMA cell_size_check=ON");
    return Copy(*reader, from, mayGoOn).To(to, name);
}

}  // namespace server
