// Makes the catalogue of a backup from its media, member by member: every byte is read. What is not
// whole is left out and told.
//
// One thread.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "server/archive/TarReader.h"
#include "server/engine/FrameScanner.h"
#include "server/engine/JobReport.h"
#include "server/engine/TreeBuilder.h"

namespace server {

class MediaIndex {
public:
    MediaIndex(const BackupContent& content, CatalogueStore& catalogues, JobReport& report,
               JobControl& control);

    // Writes PathForNew(info->name) and fills in files and bytes. `base`: the backup it is built on
    // directly, null for none. False: nothing can be had of it, or the job is to end.
    bool Run(const BackupInfo* base, BackupInfo* info);

private:
    bool TakeBase(const BackupInfo& base, const BackupInfo& info);
    void TakeGone();
    void TakeMembers();
    enum class Step { Member, EndMark, Lost, End };
    Step Next(archive::ReadMember* member, CatalogueEntry* entry);
    bool Put(const archive::ReadMember& member, const CatalogueEntry& entry);
    void TellLost(const std::string& path);

    // The stream as it comes out of the frames. After a gap nothing is read until Resume was
    // called.
    kit::Status Read(std::span<uint8_t> into);
    kit::Status Skip(int64_t size);
    bool HasMore();
    kit::Status Advance();  // to the next frame

    const BackupContent& fContent;
    CatalogueStore& fCatalogues;
    JobReport& fReport;
    JobControl& fControl;
    FrameScanner fScanner;
    TreeBuilder fTree;
    std::unique_ptr<CatalogueWriter> fCatalogue;
    std::set<std::string, std::less<>> fVolumes;  // that the manifest names
    FrameScanner::Frame fFrame;
    size_t fAt = 0;        // in its content
    int64_t fNumber = -1;  // of the frame
    int32_t fSource = 0;   // its place in the chain
    bool fIsLost = false;  // what comes next may be in the middle of something
    bool fIsEnd = false;
    bool fHasEndMark = false;
    int64_t fMembers = 0;
};

}  // namespace server
