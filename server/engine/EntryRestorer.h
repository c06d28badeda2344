// Brings single entries of a backup back: reads the member from the stream, makes the file, link or
// device under another name or none, and gives it its own name when it is whole.
//
// One thread each.
#pragma once

#include <memory>
#include <string>

#include "server/archive/TarReader.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/FrameCursor.h"
#include "server/engine/JobReport.h"
#include "server/engine/MetadataWriter.h"
#include "server/engine/RestoreTarget.h"

namespace server {

enum class Overwrite : int32_t { No = 0, OnlyOlder = 1, Rename = 2, Yes = 3 };

// One item of the work: an entry and the directory that it goes to.
struct RestoreItem {
    CatalogueEntry entry;
    std::string path;  // "/Volume/directory/name", as reports name it and the stream has it
    std::shared_ptr<const RestoreTarget> target;
    std::string directory;  // below the target
    std::string name;       // there
};

// What an existing entry in the way makes of a new one.
enum class WayIs { Free, Kept, Blocked };
// Looks whether `name` is taken and clears the way as the mode says. `modified`, in nanoseconds, is
// the new one's. Blocked was told as an error; Kept is counted by the caller.
WayIs ClearTheWay(int directory, const std::string& name, const std::string& shown,
                  Overwrite overwrite, int64_t modified, JobReport& report);

class EntryRestorer {
public:
    enum class Outcome { Done, Kept, Failed, TargetFull, Aborted };

    EntryRestorer(const BackupContent& content, CatalogueReader& catalogue, JobReport& report,
                  JobControl& control, RestoreLosses& losses, Overwrite overwrite);

    // Everything but hard links to other entries. What goes wrong is told.
    Outcome Restore(const RestoreItem& item);
    // A further name of something that was restored before. Failed, and nothing is told, where the
    // target cannot do that: its content has to be restored.
    Outcome Link(const RestoreItem& item, const RestoreItem& first);
    // The header of a directory.
    kit::Result<archive::ReadMember> ReadHeader(const CatalogueEntry& entry, int64_t frame,
                                                int64_t offset);

private:
    Outcome Unreadable(const RestoreItem& item, const kit::Error& error);
    Outcome Refused(const RestoreItem& item, int code);
    bool EnterDirectory(const RestoreItem& item);
    Outcome MakeFile(const RestoreItem& item, const archive::ReadMember& member);
    Outcome Fill(const RestoreItem& item, const archive::ReadMember& member, int fd);
    Outcome CopyTo(const RestoreItem& item, int fd, int64_t offset, int64_t length);
    Outcome MakeSpecial(const RestoreItem& item, const archive::ReadMember& member);
    // Gives what lies under `temporary` (or, where that is empty, what `fd` holds) its name.
    Outcome Publish(const RestoreItem& item, int fd, const std::string& temporary);
    std::string TemporaryName();

    FrameCursor fCursor;
    JobReport& fReport;
    JobControl& fControl;
    MetadataWriter fMetadata;
    const Overwrite fOverwrite;

    // The directory that is open, because the next entry is likely to go there too.
    std::shared_ptr<const RestoreTarget> fTarget;
    std::string fDirectory;
    kit::UniqueFd fOpen;
    bool fInherits = false;      // new entries get an access list from it
    bool fCanBeNameless = true;  // the file system has files without names
    uint64_t fTemporaries = 0;
};

}  // namespace server
