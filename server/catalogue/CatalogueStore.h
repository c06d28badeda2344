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

namespace server {

// What is known of a backup without opening its tree.
struct BackupInfo {
    std::string name;  // "20261122T201530-0000001a"
    std::string title;
    core::JobType type = core::JobType::Full;
    int32_t jobId = 0;
    int32_t baseId = 0;  // 0: none
    int64_t start = 0;   // seconds since the epoch
    int64_t files = 0, bytes = 0;
    bool isProtected = false;
    std::string addon;        // destination add-on
    BMessage volumeSettings;  // its settings: where the data lies
    std::string mediaName;    // in words
};

class CatalogueStore {
public:
    explicit CatalogueStore(std::string folder);
    ~CatalogueStore();
    kit::Status
    Open();  // makes the folder, reads which backups there are; a damaged file is set aside

    std::vector<BackupInfo> Backups() const;  // newest first
    std::optional<BackupInfo> Find(const std::string& name) const;
    std::optional<BackupInfo> FindByJob(int32_t jobId) const;

    // The file in which a new catalogue is written, and its taking over when the backup stands. The
    // engine writes through CatalogueWriter (server/catalogue/CatalogueWriter.h).
    std::string PathForNew(const std::string& name) const;
    std::string PathOf(const std::string& name) const;  // for readers of their own
    kit::Status Adopt(const std::string& name, const BackupInfo& info);
    kit::Status Remove(const std::string& name);

    // The answer to 'KTLR' for `path` ("/" or "/Backup name/Volume/…", "index" where one was sent):
    // code 'KTLi' with the children's arrays, or 'NONE'.
    BMessage List(std::string_view path, std::optional<int32_t> index) const;
    // 'KTLi' with only this backup, for the notice after a finished one.
    BMessage ListOne(const std::string& name) const;

private:
    struct Impl;
    std::unique_ptr<Impl> fImpl;
};

}  // namespace server
