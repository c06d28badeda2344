// Walks the disk below what a comparison is about and tells what the backup does not have. What was
// never to be in the backup is not missing in it: what its own selection left out, sockets, other
// mounts, the backup's own machinery.
//
// One thread.
#pragma once

#include <string>
#include <vector>

#include "core/selection/KTSelection.h"
#include "kit/storage/BVolume.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BaseTree.h"
#include "server/engine/JobReport.h"
#include "server/engine/SavedSelection.h"
#include "server/engine/TreeWalk.h"

namespace server {

class NewOnDisk : private TreeVisitor {
public:
    // `root` is "/Backup", `rules` are those of the job. All must outlive it.
    NewOnDisk(CatalogueReader& catalogue, const SavedSelection& saved, const std::string& root,
              const std::vector<core::SelectionRule>& rules, JobReport& report,
              JobControl& control);

    void Look(const std::vector<BVolume>& volumes, const std::vector<OwnFiles>& own);
    int64_t Count() const { return fCount; }    // of what is new
    int64_t Unread() const { return fUnread; }  // directories that could not be read

private:
    bool MayGoOn() override { return fControl.MayGoOn(); }
    void Enter(const WalkNode& node, int64_t tag, int fd, int code) override;
    void Entry(const WalkNode& node) override;
    std::optional<int64_t> SubDirectory(const WalkNode& node) override;
    void EndOfEntries(int64_t tag) override;
    void Unreadable(std::string_view path, int code) override;
    void OtherMount(std::string_view) override {}
    void LeftOut(std::string_view, const OwnFiles&) override {}

    std::vector<std::string> Volumes();
    void Tell(std::string_view path, const char* what);

    CatalogueReader& fCatalogue;
    JobReport& fReport;
    JobControl& fControl;
    BaseTree fTree;
    std::vector<core::SelectionRule> fRules;  // of the job, as paths on disk
    const SavedSelection& fSaved;
    int64_t fCount = 0, fUnread = 0;
};

}  // namespace server
