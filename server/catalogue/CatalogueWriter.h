// Writes the catalogue of a backup under way into a new file, on a thread of its own: the backup
// only hands rows over. Rows are only ever appended: the children of a directory one after another,
// before those of any directory below it.
//
// Entries and directories come from one thread, frames may come from another.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "kit/support/Result.h"
#include "server/catalogue/CatalogueTypes.h"
#include "server/sqlite/Database.h"

namespace server {

class CatalogueWriter {
public:
    static kit::Result<std::unique_ptr<CatalogueWriter>> Create(const std::string& path,
                                                                const CatalogueOrigin& origin);
    ~CatalogueWriter();  // an unfinished file is removed

    // The id that the next entry gets: where a directory's children will begin.
    int32_t NextId() const { return fNextId; }
    // `entry.id` and `entry.name` are not looked at. Returns the id; 0 when the catalogue holds no
    // more.
    int32_t AddEntry(const CatalogueEntry& entry, std::string_view name);
    void AddDirectory(const CatalogueDirectory& directory);
    void AddFrame(const CatalogueFrame& frame);
    // "Volume/path" of what the backup before had and this one has no more. All that was below it
    // is gone with it.
    void AddGone(std::string_view path);

    bool HasFailed() const;
    // Waits until all rows are in the file and closes it. Nothing may be added after it.
    kit::Status Finish();

    const std::string& Path() const { return fPath; }

private:
    struct EntryRow {
        CatalogueEntry entry;  // without its name
        size_t nameEnd = 0;    // in `names`
    };
    struct Batch {
        std::vector<EntryRow> entries;
        Bytes names;
        std::vector<CatalogueDirectory> directories;
        std::vector<CatalogueFrame> frames;
        std::vector<std::string> gone;
        size_t Rows() const { return entries.size() + directories.size() + gone.size(); }
    };

    CatalogueWriter(std::string path, Database database);
    void HandOver();
    void WriteBatches();
    struct Inserts {
        Statement entry, directory, frame, gone;
    };
    kit::Status Write(const Batch& batch, Inserts& inserts);

    std::string fPath;
    std::unique_ptr<Database> fDatabase;
    bool fFinished = false;
    int32_t fNextId = 1;
    std::unique_ptr<Batch> fFilling;

    mutable std::mutex fMutex;
    std::condition_variable fChanged;
    std::deque<std::unique_ptr<Batch>> fWaiting;
    std::vector<std::unique_ptr<Batch>> fSpare;
    std::vector<CatalogueFrame> fFrames;
    bool fEnd = false;
    kit::Status fStatus;
    std::thread fThread;
};

}  // namespace server
