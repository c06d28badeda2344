#include "server/catalogue/CatalogueStore.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <set>

#include "kit/support/UniqueFd.h"
#include "server/archive/Format.h"
#include "server/catalogue/CatalogueReader.h"

namespace server {

namespace {

using kit::Error;
using kit::ErrorKind;
using kit::Status;

constexpr std::string_view kSuffix = ".db";
constexpr std::string_view kNewSuffix = ".new";
constexpr std::string_view kNamesSuffix = ".names";
constexpr std::string_view kDamagedSuffix = ".damaged";
constexpr int32_t kBackupType = -1;

// What only this machine's copy has: the one on the destination is without it.
constexpr char kBackupTable[] =
    "CREATE TABLE backup(name TEXT NOT NULL, title TEXT NOT NULL, type INTEGER NOT NULL,"
    " job_id INTEGER NOT NULL, base_id INTEGER NOT NULL, start INTEGER NOT NULL,"
    " files INTEGER NOT NULL, bytes INTEGER NOT NULL, protected INTEGER NOT NULL,"
    " addon TEXT NOT NULL, volume BLOB NOT NULL, media_name TEXT NOT NULL)";
constexpr char kProtectionTable[] =
    "CREATE TABLE protection(recipient TEXT NOT NULL, key_file BLOB NOT NULL)";
constexpr char kDiscsTable[] = "CREATE TABLE discs(manifest BLOB NOT NULL)";

constexpr char kInsertedTable[] =
    "CREATE TABLE inserted(folder TEXT NOT NULL, loose INTEGER NOT NULL, locked INTEGER NOT NULL)";

// What is only known of one that came by insert; others do not have the table.
Status WriteInserted(Database& database, const BackupInfo& info) {
    if (Status status = database.Execute(kInsertedTable); !status) return status;
    Statement insert = database.Prepare("INSERT INTO inserted VALUES(?1,?2,?3)");
    insert.Bind(1, std::string_view(info.folder))
        .Bind(2, int64_t{info.isLoose})
        .Bind(3, int64_t{info.isLocked});
    return insert.Run();
}

Status ReadInserted(Database& database, BackupInfo* info) {
    Statement table = database.Prepare("SELECT 1 FROM sqlite_schema WHERE name = 'inserted'");
    if (!table.Next()) return table.Result();
    Statement row = database.Prepare("SELECT folder, loose, locked FROM inserted");
    if (!row.Next()) return row.Result();
    info->folder = row.Text(0);
    info->isLoose = row.Integer(1) != 0;
    info->isLocked = row.Integer(2) != 0;
    return {};
}

Status WriteProtection(Database& database, const archive::Protection& protection) {
    if (Status status = database.Execute(kProtectionTable); !status) return status;
    Statement insert = database.Prepare("INSERT INTO protection VALUES(?1,?2)");
    insert.Bind(1, std::string_view(protection.recipient))
        .Bind(2, std::span<const uint8_t>(protection.keyFile));
    return insert.Run();
}

Status WriteDiscs(Database& database, const BackupInfo& info) {
    if (Status status = database.Execute(kDiscsTable); !status) return status;
    Statement insert = database.Prepare("INSERT INTO discs VALUES(?1)");
    insert.Bind(1, std::span<const uint8_t>(info.manifest));
    return insert.Run();
}

// Only a backup on a removable medium has the table.
void ReadDiscs(CatalogueReader& reader, BackupInfo* info) {
    Statement known = reader.File().Prepare(
        "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'discs'");
    if (!known.Next()) return;
    info->isRemovable = true;
    Statement row = reader.File().Prepare("SELECT manifest FROM discs");
    if (!row.Next()) return;
    const auto bytes = row.Blob(0);
    info->manifest.assign(bytes.begin(), bytes.end());
}

Status WriteInfo(const std::string& path, const BackupInfo& info) {
    auto database = Database::OpenScratch(path);
    if (!database) return database.error();
    Database::Transaction transaction(*database);
    if (Status status = database->Execute(kBackupTable); !status) return status;
    const Bytes settings = info.volumeSettings.Flatten();
    Statement insert =
        database->Prepare("INSERT INTO backup VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12)");
    insert.Bind(1, std::string_view(info.name))
        .Bind(2, std::string_view(info.title))
        .Bind(3, static_cast<int64_t>(info.type))
        .Bind(4, int64_t{info.jobId})
        .Bind(5, int64_t{info.baseId})
        .Bind(6, info.start)
        .Bind(7, info.files)
        .Bind(8, info.bytes)
        .Bind(9, int64_t{info.isProtected})
        .Bind(10, std::string_view(info.addon))
        .Bind(11, std::span<const uint8_t>(settings))
        .Bind(12, std::string_view(info.mediaName));
    if (Status status = insert.Run(); !status) return status;
    if (info.isProtected) {
        if (Status status = WriteProtection(*database, info.protection); !status) return status;
    }
    if (info.isRemovable) {
        if (Status status = WriteDiscs(*database, info); !status) return status;
    }
    if (info.IsCut() || info.isLocked) {
        if (Status status = WriteInserted(*database, info); !status) return status;
    }
    return transaction.Commit();
}

kit::Result<BackupInfo> ReadInfo(const std::string& path) {
    auto reader = CatalogueReader::Open(path);
    if (!reader) return reader.error();
    Statement row = reader->File().Prepare(
        "SELECT name, title, type, job_id, base_id, start, files, bytes, protected, addon, volume,"
        " media_name FROM backup");
    if (!row.Next()) return Error::Make(ErrorKind::Damaged, path, "says not what it is");
    BackupInfo info;
    info.name = row.Text(0);
    info.title = row.Text(1);
    const int64_t type = row.Integer(2);
    info.jobId = static_cast<int32_t>(row.Integer(3));
    info.baseId = static_cast<int32_t>(row.Integer(4));
    info.start = row.Integer(5);
    info.files = row.Integer(6);
    info.bytes = row.Integer(7);
    info.isProtected = row.Integer(8) != 0;
    info.addon = row.Text(9);
    auto settings = BMessage::Unflatten(row.Blob(10));
    info.mediaName = row.Text(11);
    if (type < 1 || type > 3 || !settings) return Error::Make(ErrorKind::Damaged, path, "values");
    info.type = static_cast<core::JobType>(type);
    info.volumeSettings = std::move(*settings);
    auto origin = reader->Origin();
    if (!origin || origin->chain.back() != info.name)
        return Error::Make(ErrorKind::Damaged, path, "chain");
    origin->chain.pop_back();
    info.builtOn = std::move(origin->chain);
    ReadDiscs(*reader, &info);
    if (info.isProtected) {
        Statement key = reader->File().Prepare("SELECT recipient, key_file FROM protection");
        if (!key.Next()) return Error::Make(ErrorKind::Damaged, path, "has no key");
        info.protection.recipient = key.Text(0);
        const auto bytes = key.Blob(1);
        info.protection.keyFile.assign(bytes.begin(), bytes.end());
    }
    if (Status status = ReadInserted(reader->File(), &info); !status) return status.error();
    return info;
}

Status SyncPath(const std::string& path, int flags) {
    kit::UniqueFd fd(::open(path.c_str(), flags | O_CLOEXEC));
    if (!fd.IsOpen()) return Error::FromErrno(errno, path, "open");
    if (::fsync(fd.Get()) != 0) return Error::FromErrno(errno, path, "sync");
    return {};
}

void AddBackup(BMessage& list, const BackupInfo& info) {
    list.Add("type", kBackupType);
    list.Add("mode", static_cast<int32_t>(info.type));
    list.Add("name", info.name);
    list.Add("date", BTime::FromSeconds(info.start));
    list.Add("title", info.title);
    list.Add("base_id", info.baseId);
    list.Add("job_id", info.jobId);
    list.Add("size", int64_t{-1});
    list.Add("medianr", int32_t{1});
    list.Add("offset", int64_t{0});
    list.Add("index", kCatalogueRoot);
}

// The children's arrays, each column filled as one block.
kit::Result<BMessage> ListChildren(CatalogueReader& reader, const CatalogueDirectory& directory) {
    const bool volumes = directory.id == kCatalogueRoot;
    std::vector<int32_t> types, media, ids;
    std::vector<BTime> dates;
    std::vector<int64_t> sizes, offsets;
    BMessage list(core::code::kCatalogue);
    const Status status =
        reader.Children(directory, [&](const CatalogueEntry& entry, const CatalogueFrame& frame) {
            // A name that no message can hold is in no healthy catalogue.
            if (!list.Add("name", entry.name)) return true;
            const CatalogueListing listing = ListingOf(entry, volumes);
            types.push_back(listing.type);
            dates.push_back(listing.date);
            sizes.push_back(listing.size);
            media.push_back(frame.medium);
            offsets.push_back(frame.offset);
            ids.push_back(entry.id);
            return true;
        });
    if (!status) return status.error();
    if (types.empty()) return BMessage(core::code::kNone);
    list.AddArray<int32_t>("type", types);
    list.AddArray<BTime>("date", dates);
    list.AddArray<int64_t>("size", sizes);
    list.AddArray<int32_t>("medianr", media);
    list.AddArray<int64_t>("offset", offsets);
    list.AddArray<int32_t>("index", ids);
    return list;
}

}  // namespace

struct CatalogueStore::Impl {
    std::string folder;
    mutable std::mutex mutex;
    std::vector<std::string> problems;
    // By name: oldest first. Whoever uses a backup holds its information.
    std::map<std::string, std::shared_ptr<const BackupInfo>> backups;
    std::set<std::string> leaving;

    std::string PathOf(const std::string& name) const {
        return folder + "/" + name + std::string(kSuffix);
    }
};

CatalogueStore::CatalogueStore(std::string folder) : fImpl(std::make_unique<Impl>()) {
    fImpl->folder = std::move(folder);
}

CatalogueStore::~CatalogueStore() = default;

Status CatalogueStore::Open() {
    const std::string& folder = fImpl->folder;
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return Error::FromErrno(errno, folder, "make directory");
    }
    DIR* directory = ::opendir(folder.c_str());
    if (!directory) return Error::FromErrno(errno, folder, "open");
    std::vector<std::string> files;
    while (const dirent* entry = ::readdir(directory))
        files.emplace_back(entry->d_name);
    ::closedir(directory);

    std::lock_guard lock(fImpl->mutex);
    fImpl->backups.clear();
    fImpl->problems.clear();
    for (const std::string& file : files) {
        const std::string path = folder + "/" + file;
        if (file.ends_with(kNewSuffix)) {
            ::unlink(path.c_str());  // of a backup that was never completed
            continue;
        }
        if (!file.ends_with(kSuffix)) continue;
        const std::string name = file.substr(0, file.size() - kSuffix.size());
        auto info = ReadInfo(path);
        if (info && info->name != name) {
            info = Error::Make(ErrorKind::Damaged, path, "is the catalogue of " + info->name);
        }
        if (info) {
            fImpl->backups.emplace(name, std::make_shared<const BackupInfo>(std::move(*info)));
            continue;
        }
        std::string words =
            "The catalogue of the backup '" + name + "' cannot be read: " + info.error().Text();
        const std::string aside = path + std::string(kDamagedSuffix);
        if (info.error().kind == ErrorKind::Damaged && ::rename(path.c_str(), aside.c_str()) == 0) {
            words += ". It was set aside as " + aside;
        }
        fImpl->problems.push_back(std::move(words));
    }
    for (const std::string& file : files) {
        if (!file.ends_with(kNamesSuffix)) continue;
        const std::string name = file.substr(0, file.size() - kNamesSuffix.size());
        if (!fImpl->backups.contains(name)) ::unlink((folder + "/" + file).c_str());
    }
    return {};
}

const std::vector<std::string>& CatalogueStore::Problems() const {
    return fImpl->problems;
}

std::vector<BackupInfo> CatalogueStore::Backups() const {
    std::lock_guard lock(fImpl->mutex);
    std::vector<BackupInfo> all;
    for (const auto& [name, info] : fImpl->backups)
        all.push_back(*info);
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.start > b.start; });
    return all;
}

std::optional<BackupInfo> CatalogueStore::Find(const std::string& name) const {
    std::lock_guard lock(fImpl->mutex);
    auto found = fImpl->backups.find(name);
    if (found == fImpl->backups.end()) return std::nullopt;
    return *found->second;
}

std::optional<BackupInfo> CatalogueStore::FindByJob(int32_t jobId) const {
    std::lock_guard lock(fImpl->mutex);
    for (const auto& [name, info] : fImpl->backups) {
        if (info->jobId == jobId) return *info;
    }
    return std::nullopt;
}

std::string CatalogueStore::PathForNew(const std::string& name) const {
    return fImpl->folder + "/" + name + std::string(kNewSuffix);
}

std::string CatalogueStore::PathOf(const std::string& name) const {
    return fImpl->PathOf(name);
}

std::string CatalogueStore::NamesPathOf(const std::string& name) const {
    return fImpl->folder + "/" + name + std::string(kNamesSuffix);
}

Status CatalogueStore::Adopt(const std::string& name, const BackupInfo& info) {
    if (!archive::IsBackupName(name) || info.name != name) {
        return Error::Make(ErrorKind::Invalid, name, "no backup's name");
    }
    const std::string path = PathForNew(name);
    if (::access(path.c_str(), F_OK) != 0) return Error::FromErrno(errno, path, "open");
    if (Status status = WriteInfo(path, info); !status) return status;
    if (Status status = SyncPath(path, O_RDONLY); !status) return status;
    const std::string final = fImpl->PathOf(name);
    if (::rename(path.c_str(), final.c_str()) != 0) {
        return Error::FromErrno(errno, path, "rename");
    }
    ::unlink(NamesPathOf(name).c_str());  // of one that was locked
    if (Status status = SyncPath(fImpl->folder, O_RDONLY | O_DIRECTORY); !status) return status;
    std::lock_guard lock(fImpl->mutex);
    fImpl->backups.insert_or_assign(name, std::make_shared<const BackupInfo>(info));
    return {};
}

bool CatalogueStore::IsBeingMade(const std::string& name) const {
    return ::access(PathForNew(name).c_str(), F_OK) == 0;
}

std::shared_ptr<const BackupInfo> CatalogueStore::Use(const std::string& name) const {
    std::lock_guard lock(fImpl->mutex);
    auto found = fImpl->backups.find(name);
    if (found == fImpl->backups.end() || fImpl->leaving.contains(name)) return nullptr;
    return found->second;
}

kit::Result<CatalogueStore::Removal> CatalogueStore::BeginRemoval(const std::string& name) {
    std::lock_guard lock(fImpl->mutex);
    auto found = fImpl->backups.find(name);
    if (found == fImpl->backups.end() || fImpl->leaving.contains(name)) {
        return Error::Make(ErrorKind::NotFound, name);
    }
    // Others get theirs under the lock, from the map's own.
    if (found->second.use_count() > 1) return Error::Make(ErrorKind::Denied, name, "is in use");
    fImpl->leaving.insert(name);
    return Removal(*this, found->second);
}

CatalogueStore::Removal::Removal(CatalogueStore& store, std::shared_ptr<const BackupInfo> info)
    : fStore(&store), fInfo(std::move(info)) {}

CatalogueStore::Removal::Removal(Removal&& other) noexcept
    : fStore(std::exchange(other.fStore, nullptr)), fInfo(std::move(other.fInfo)) {}

CatalogueStore::Removal::~Removal() {
    if (!fStore) return;
    std::lock_guard lock(fStore->fImpl->mutex);
    fStore->fImpl->leaving.erase(fInfo->name);
}

Status CatalogueStore::Removal::Finish() {
    Impl& impl = *fStore->fImpl;
    const std::string path = impl.PathOf(fInfo->name);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        return Error::FromErrno(errno, path, "delete");
    }
    // A slow disk holds up nobody: what is leaving is still known meanwhile.
    Status synced = SyncPath(impl.folder, O_RDONLY | O_DIRECTORY);
    std::lock_guard lock(impl.mutex);
    impl.backups.erase(fInfo->name);
    // Last: who makes it beside this sees now that the backup is gone.
    ::unlink(fStore->NamesPathOf(fInfo->name).c_str());
    return synced;
}

kit::Result<BMessage> CatalogueStore::List(std::string_view path, std::optional<int32_t>) const {
    while (path.starts_with('/'))
        path.remove_prefix(1);
    while (path.ends_with('/'))
        path.remove_suffix(1);
    if (path.empty()) {
        std::lock_guard lock(fImpl->mutex);
        if (fImpl->backups.empty()) return BMessage(core::code::kNone);
        BMessage list(core::code::kCatalogue);
        for (const auto& [name, info] : fImpl->backups)
            AddBackup(list, *info);
        return list;
    }
    const size_t slash = path.find('/');
    const std::string backup(path.substr(0, slash));
    const std::string_view below = slash == std::string_view::npos ? "" : path.substr(slash + 1);
    std::string file;
    {
        std::lock_guard lock(fImpl->mutex);
        const auto found = fImpl->backups.find(backup);
        if (found == fImpl->backups.end()) return BMessage(core::code::kNone);
        if (found->second->isLocked) {
            BMessage locked(core::code::kCatalogue);
            locked.Add("locked", int32_t{1});
            return locked;
        }
        file = fImpl->PathOf(backup);
    }
    auto reader = CatalogueReader::Open(file);
    if (!reader) return reader.error();
    int32_t id = kCatalogueRoot;
    if (!below.empty()) {
        // The path names the entry exactly and is found as quickly as the index would be.
        auto entry = reader->Lookup(below);
        if (!entry) return BMessage(core::code::kNone);
        id = entry->id;
    }
    auto directory = reader->DirectoryAt(id);
    if (!directory) return BMessage(core::code::kNone);
    return ListChildren(*reader, *directory);
}

BMessage CatalogueStore::ListOne(const std::string& name) const {
    auto info = Find(name);
    if (!info) return BMessage(core::code::kNone);
    BMessage list(core::code::kCatalogue);
    AddBackup(list, *info);
    return list;
}

}  // namespace server
