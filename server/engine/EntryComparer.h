// Compares single entries of a backup with what is on disk under their names, and tells each thing
// in which they differ. Each side is read once, and only as far as is asked for.
//
// One thread each.
#pragma once

#include <sys/stat.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "server/archive/TarReader.h"
#include "server/engine/CompareItems.h"
#include "server/engine/FrameCursor.h"
#include "server/engine/JobReport.h"
#include "server/engine/NodeRecords.h"
#include "server/engine/RestoreTarget.h"

namespace server {

// A node on disk, whatever names it has.
struct DiskNode {
    uint64_t device = 0, node = 0;
    bool operator==(const DiskNode&) const = default;
};

struct CompareItem {
    CatalogueEntry entry;  // of a directory or hard link with the place of the header that counts
    std::string path;      // "/Volume/directory/name", as reports name it
    std::shared_ptr<const RestoreTarget> volume;
    std::string directory;  // below it
    std::string name;       // there
    // Its data and attributes were compared under another name, with this node.
    std::optional<DiskNode> compared;
};

class EntryComparer {
public:
    enum class Outcome { Same, Different, Unreadable, Aborted };

    EntryComparer(const BackupContent& content, CatalogueReader& catalogue,
                  const CompareItems& items, JobReport& report, JobControl& control);

    // Unreadable: one side, or a part of it, could not be looked at.
    Outcome Compare(const CompareItem& item);
    // The node that was compared last, where it has several names.
    std::optional<DiskNode> Shared() const;

private:
    using Attributes = std::map<std::string, std::string, std::less<>>;

    bool EnterDirectory(const CompareItem& item);
    void CompareFacts(const CompareItem& item);
    void CompareCreation(const CompareItem& item);
    void CompareContent(const CompareItem& item);
    void CompareLink(const CompareItem& item, const archive::ReadMember& member);
    void CompareDevice(const CompareItem& item, const archive::ReadMember& member);
    void CompareAttributes(const CompareItem& item, const archive::ReadMember& member);
    void CompareData(const CompareItem& item, const archive::ReadMember& member);
    // False: no more is to be read of this file.
    bool CompareExtent(const CompareItem& item, int fd, int64_t offset, int64_t length);
    bool CompareHole(const CompareItem& item, int fd, int64_t offset, int64_t end);
    bool ReadDisk(const CompareItem& item, int fd, int64_t offset, size_t size);

    void Worse(Outcome outcome);
    void Differs(int32_t textId, KTReportLine line);
    void DiffersInWords(const CompareItem& item, const std::string& what);
    void NoAccess(const CompareItem& item, int code);
    void Unreadable(int32_t textId, const CompareItem& item, std::string_view reason);
    bool DataDiffers(const CompareItem& item);  // false, for returning it

    FrameCursor fCursor;
    const CompareItems& fItems;
    JobReport& fReport;
    JobControl& fControl;
    NodeRecords fRecords;
    Bytes fBlock;

    // The directory that is open, because the next entry is likely to be there too.
    std::shared_ptr<const RestoreTarget> fVolume;
    std::string fDirectory;
    kit::UniqueFd fOpen;

    // The entry at hand.
    struct statx fDisk {};
    Outcome fOutcome = Outcome::Same;
    int64_t fTold = 0;  // bytes of progress
};

}  // namespace server
