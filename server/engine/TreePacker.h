// Turns the walk of the selected trees into the backup: members of the tar stream, rows of the
// catalogue, lines of the report. Nothing that happens to a single entry ends it; every such thing
// is named.
//
// One thread.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "server/archive/TarMember.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/engine/BaseTree.h"
#include "server/engine/FileContent.h"
#include "server/engine/FrameStream.h"
#include "server/engine/HardLinks.h"
#include "server/engine/JobReport.h"
#include "server/engine/NodeRecords.h"
#include "server/engine/TreeWalk.h"

namespace server {

class TreePacker : public TreeVisitor {
public:
    struct Totals {
        int64_t entries = 0;  // everything
        int64_t files = 0;    // not directories
        int64_t bytes = 0;    // of file data, each hard-linked file once
        int64_t taken = 0;    // what the selection asked for, without directories on the way to it
        // Of these, what went into the stream: all, unless the backup builds on another.
        int64_t savedFiles = 0, savedBytes = 0;
    };

    // With a base, what is as it was there is only noted, with its place there. The base's
    // catalogue is read in step.
    TreePacker(FrameStream& stream, CatalogueWriter& catalogue, JobReport& report,
               JobControl& control, CatalogueReader* base = nullptr);

    // The volumes' own rows, which come before everything else. Gives their tags.
    std::vector<int64_t> AddVolumes(const std::vector<BVolume>& volumes);
    // Ends the stream. False when it failed.
    bool Finish();

    const Totals& Done() const { return fTotals; }

    bool MayGoOn() override;
    void Enter(const WalkNode& node, int64_t tag, int fd, int code) override;
    void Entry(const WalkNode& node) override;
    std::optional<int64_t> SubDirectory(const WalkNode& node) override;
    void EndOfEntries(int64_t tag) override;
    void Unreadable(std::string_view path, int code) override;
    void OtherMount(std::string_view path) override;
    void LeftOut(std::string_view directory, const OwnFiles& own) override;

private:
    enum class Packed { Done, TryAgain, NotThere, Ended };

    bool TakeFromBase(const WalkNode& node);
    bool TakeLinkFromBase(const WalkNode& node, const struct stat& info,
                          const CatalogueEntry& entry);
    void PackDirectory(int fd, int parent, const char* name);
    void PackRegular(const WalkNode& node);
    Packed PackOpenFile(const WalkNode& node, int fd, bool mayTryAgain);
    Packed PackContent(const WalkNode& node, int fd, const struct stat& info,
                       std::span<const archive::Extent> extents, bool mayTryAgain,
                       const FrameStream::Place& place, bool* incomplete);
    bool PackHardLink(const WalkNode& node, const struct stat& info);
    void PackSpecial(const WalkNode& node);
    FrameStream::Place PackHeader(archive::TarMember member, const struct stat& info,
                                  std::string_view path, int64_t dataSize);
    int32_t AddRow(const WalkNode& node, const struct stat& info, const FrameStream::Place& place,
                   int32_t link, bool incomplete);
    void CountSaved(int64_t bytes);
    void AttributesLost(std::string_view path, int code);

    FrameStream& fStream;
    CatalogueWriter& fCatalogue;
    JobReport& fReport;
    JobControl& fControl;
    NodeRecords fNodes;
    HardLinks fLinks;
    Totals fTotals;
    CatalogueDirectory fDirectory;  // the one whose entries are being told
    struct stat fDirectoryInfo {};
    std::string fDirectoryPath;
    bool fIsPacked = true;  // else it is as in the base, until something in it is saved
    std::optional<BaseTree> fBase;
    std::set<const OwnFiles*> fOwnTold;
    archive::PaxRecords fRecords;
    Bytes fHeader;
    bool fOnTheWay = true;
};

}  // namespace server
