// The catalogues of all backups known here: one SQLite file per backup below one folder, opened
// when somebody asks. docs/formats.md has the tables.
//
// Any thread; a reader that is listing does not hold up a backup that is being written.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "kit/message/BMessage.h"
#include "kit/support/Result.h"
#include "server/archive/KeyFile.h"

namespace server {

// What is known of a backup without opening its tree.
struct BackupInfo {
    std::string name;  // "20261122T201530-0000001a"
    std::string title;
    core::JobType type = core::JobType::Full;
    int32_t jobId = 0;
    int32_t baseId = 0;                // of the set's full backup; 0: it is one itself
    std::vector<std::string> builtOn;  // all that it needs besides itself, the oldest first
    int64_t start = 0;                 // seconds since the epoch
    int64_t files = 0, bytes = 0;
    bool isProtected = false;
    archive::Protection protection;  // of a protected one
    std::string addon;               // destination add-on
    BMessage volumeSettings;         // its settings: where the data lies
    std::string mediaName;           // in words
    bool isRemovable = false;        // it lies on discs that may be in the drive or not
    Bytes manifest;                  // of one that takes several, as it stands on the last

    // --- of one that came by insert ---
    std::string folder;     // of its data on the destination; "": its name
    bool isLoose = false;   // no manifest can be read: it is what lies in its folder
    bool isLocked = false;  // its tree is still sealed, and comes with the password

    const std::string& Folder() const { return folder.empty() ? name : folder; }
    // It ended unexpectedly, or lost what says what it is.
    bool IsCut() const { return isLoose || !folder.empty(); }
    // Others can be built on it.
    bool IsBase() const { return type == core::JobType::Full && !IsCut(); }
};

class CatalogueStore {
public:
    // One backup on its way out: nobody begins to use it any more. Ended without Finish it stays.
    // Not longer than the store.
    class Removal {
    public:
        Removal(Removal&&) noexcept;
        Removal& operator=(Removal&&) = delete;
        ~Removal();
        const BackupInfo& Info() const { return *fInfo; }
        // Removes its catalogue. After an error the backup is still known if Find gives it; else
        // only the disk could not be told for good.
        kit::Status Finish();

    private:
        friend class CatalogueStore;
        Removal(CatalogueStore& store, std::shared_ptr<const BackupInfo> info);
        CatalogueStore* fStore;
        std::shared_ptr<const BackupInfo> fInfo;
    };

    explicit CatalogueStore(std::string folder);
    ~CatalogueStore();
    // Makes the folder, reads which backups there are. What cannot be read is left out and told by
    // Problems; a damaged file is set aside.
    kit::Status Open();
    const std::vector<std::string>& Problems() const;  // of Open, in words

    std::vector<BackupInfo> Backups() const;  // newest first
    std::optional<BackupInfo> Find(const std::string& name) const;
    std::optional<BackupInfo> FindByJob(int32_t jobId) const;

    // The file in which a new catalogue is written, and its taking over when the backup stands. The
    // engine writes through CatalogueWriter (server/catalogue/CatalogueWriter.h).
    std::string PathForNew(const std::string& name) const;
    std::string PathOf(const std::string& name) const;       // for readers of their own
    std::string NamesPathOf(const std::string& name) const;  // its NameIndex, where it has one
    // One that is known already, and locked, is replaced.
    kit::Status Adopt(const std::string& name, const BackupInfo& info);
    // Whether a new catalogue of that name is being written: a backup or an insert is under way.
    bool IsBeingMade(const std::string& name) const;

    // For who works with the backup: it is not removed while anyone holds what this gives. Null:
    // there is no such backup, or it is being removed.
    std::shared_ptr<const BackupInfo> Use(const std::string& name) const;
    // NotFound: there is none, or somebody else removes it. Denied: it is in use.
    kit::Result<Removal> BeginRemoval(const std::string& name);

    // The answer to 'KTLR' for `path` ("/" or "/Backup name/Volume/…", "index" where one was sent):
    // code 'KTLi' with the children's arrays, or with "locked"; or 'NONE'. An error when the
    // catalogue is damaged.
    kit::Result<BMessage> List(std::string_view path, std::optional<int32_t> index) const;
    // 'KTLi' with only this backup, for the notice after a finished one.
    BMessage ListOne(const std::string& name) const;

private:
    struct Impl;
    std::unique_ptr<Impl> fImpl;
};

}  // namespace server
