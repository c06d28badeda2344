#include "server/engine/NewOnDisk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "core/protocol/Texts.h"

namespace server {

NewOnDisk::NewOnDisk(CatalogueReader& catalogue, const SavedSelection& saved,
                     const std::string& root, const std::vector<core::SelectionRule>& rules,
                     JobReport& report, JobControl& control)
    : fCatalogue(catalogue),
      fReport(report),
      fControl(control),
      fTree(catalogue, [](std::string_view) {}),
      fSaved(saved) {
    for (const core::SelectionRule& rule : rules) {
        if (rule.path != root && !rule.path.starts_with(root + "/")) continue;
        core::SelectionRule onDisk = rule;
        onDisk.path = rule.path.substr(root.size());
        if (!onDisk.path.empty()) {
            fRules.push_back(std::move(onDisk));
        } else if (rule.subtree) {
            // The backup as a whole is all of its volumes.
            for (const std::string& volume : Volumes()) {
                onDisk.path = "/" + volume;
                fRules.push_back(onDisk);
            }
        }
    }
}

std::vector<std::string> NewOnDisk::Volumes() {
    std::vector<std::string> names;
    const auto top = fCatalogue.DirectoryAt(kCatalogueRoot);
    if (!top) return names;
    std::ignore = fCatalogue.Entries(*top, [&](const CatalogueEntry& entry) {
        names.push_back(entry.name);
        return true;
    });
    return names;
}

void NewOnDisk::Look(const std::vector<BVolume>& volumes, const std::vector<OwnFiles>& own) {
    const core::SelectionMatcher matcher(fRules);
    TreeWalk walk(matcher, own, TreeWalk::Order::Sorted);
    for (const std::string& name : Volumes()) {
        const BVolume* volume = BVolumeRoster::ByName(volumes, name);
        const auto entry = fCatalogue.Lookup(name);
        if (!volume || !entry) continue;  // told by who compares
        if (!walk.Run(name, volume->mountPoint, entry->id, *this)) return;
    }
}

void NewOnDisk::Enter(const WalkNode& node, int64_t tag, int fd, int code) {
    if (fd < 0) Unreadable(node.path, code);
    fTree.Open(static_cast<int32_t>(tag), node.path);
}

void NewOnDisk::Entry(const WalkNode& node) {
    if (fTree.Find(node.name) || node.type == DT_SOCK) return;
    if (!fSaved.Includes(node.path)) return;
    struct stat info;
    if (node.type == DT_UNKNOWN &&
        (::fstatat(node.parent, node.name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
         S_ISSOCK(info.st_mode))) {
        return;
    }
    Tell(node.path, "is not in the backup");
}

std::optional<int64_t> NewOnDisk::SubDirectory(const WalkNode& node) {
    const CatalogueEntry* entry = fTree.Find(node.name);
    if (entry) return S_ISDIR(entry->mode) ? std::optional<int64_t>(entry->id) : std::nullopt;
    if (node.included && fSaved.Includes(node.path)) {
        Tell(node.path, "is not in the backup, nor what is below it");
    }
    return std::nullopt;
}

void NewOnDisk::EndOfEntries(int64_t) {
    fTree.Close();
}

void NewOnDisk::Unreadable(std::string_view path, int code) {
    if (code == ENOENT || code == ENOTDIR) return;  // told by who compares
    ++fUnread;
    fReport.Error(core::text::kSourceNoAccess, {path}, std::strerror(code));
}

void NewOnDisk::Tell(std::string_view path, const char* what) {
    ++fCount;
    fReport.ErrorWords(std::string(path) + ": " + what);
}

}  // namespace server
