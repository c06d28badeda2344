#include <algorithm>

#include "ctl/BackupJob.h"
#include "ctl/Commands.h"
#include "ctl/JobWatch.h"
#include "ctl/Output.h"
#include "ctl/RestoreJob.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"

namespace ctl {

using enum core::MoreText;

namespace {

// What the paths mean, each once; the backup as a whole is its volumes. Nothing: that was told.
std::optional<std::vector<TreeEntry>> EntriesOf(BackupTree& tree,
                                                const std::vector<std::string>& paths) {
    std::vector<TreeEntry> entries;
    const auto add = [&](const TreeEntry& entry) {
        const bool known = std::any_of(entries.begin(), entries.end(), [&](const TreeEntry& other) {
            return other.path == entry.path;
        });
        if (!known) entries.push_back(entry);
    };
    for (const auto& path : paths) {
        const auto entry = tree.Find(path);
        if (!entry) return std::nullopt;
        if (entry->path != "/") {
            add(*entry);
            continue;
        }
        const auto volumes = tree.Children("/");
        if (!volumes) return std::nullopt;
        for (const auto& volume : *volumes)
            add(volume);
    }
    return entries;
}

// Two of them would go to the same place.
const TreeEntry* FirstOfTwoNamesakes(const std::vector<TreeEntry>& entries) {
    for (auto one = entries.begin(); one != entries.end(); ++one) {
        if (std::any_of(std::next(one), entries.end(),
                        [&](const TreeEntry& other) { return other.Name() == one->Name(); }))
            return &*one;
    }
    return nullptr;
}

// Connects, and finds what the user named; a protected one is unlocked. What went wrong is said.
std::optional<ListedBackup> OpenBackup(ServerConnection& server, const std::string& named,
                                       const PasswordSource& passwords, ExitCode* problem) {
    if (auto connected = server.Connect(); !connected) {
        *problem = Fail(connected.error().Text());
        return std::nullopt;
    }
    auto backup = FindBackup(server, named, problem);
    if (!backup || Unlock(server, *backup, passwords)) return backup;
    *problem = ExitCode::Failed;
    return std::nullopt;
}

std::string TitleOf(const ListedBackup& backup) {
    return backup.title.empty() ? backup.name : backup.title;
}

}  // namespace

ExitCode Restore(ServerConnection& server, const RestoreOptions& options) {
    const auto overwrite = ParseOverwrite(options.overwrite);
    if (!overwrite) return WrongUse(kMoreCtlBadOverwrite, options.overwrite);
    const PasswordSource passwords(options.passwordFd);
    ExitCode problem = ExitCode::Failed;
    const auto backup = OpenBackup(server, options.backup, passwords, &problem);
    if (!backup) return problem;
    BackupTree tree(server, *backup, passwords);
    const auto entries = EntriesOf(tree, options.paths);
    if (!entries) return ExitCode::Failed;
    if (entries->empty()) return Fail(kMoreCtlEmptyBackup, backup->name);
    std::optional<std::string> target;
    if (!options.target.empty()) {
        target = AbsoluteTarget(options.target);
        if (const auto* entry = FirstOfTwoNamesakes(*entries)) {
            return WrongUse(kMoreCtlNamesakes, entry->Name());
        }
    }
    return SubmitAndWatch(
        server,
        RestoreJob(*backup, *entries, target, *overwrite,
                   core::FormatTextOf(kMoreCtlRestoreTitle, TitleOf(*backup))),
        {.type = core::JobType::Restore, .json = options.json, .verbose = options.verbose});
}

ExitCode Compare(ServerConnection& server, const CompareOptions& options) {
    for (const auto& item : options.items)
        if (!IsCompareItem(item)) return WrongUse(kMoreCtlBadCompareItem, item);
    const PasswordSource passwords(options.passwordFd);
    ExitCode problem = ExitCode::Failed;
    const auto backup = OpenBackup(server, options.backup, passwords, &problem);
    if (!backup) return problem;
    BackupTree tree(server, *backup, passwords);
    const auto entries =
        EntriesOf(tree, options.paths.empty() ? std::vector<std::string>{"/"} : options.paths);
    if (!entries) return ExitCode::Failed;
    if (entries->empty()) return Fail(kMoreCtlEmptyBackup, backup->name);
    return SubmitAndWatch(
        server,
        CompareJob(*backup, *entries, options.items,
                   core::FormatTextOf(kMoreCtlCompareTitle, TitleOf(*backup))),
        {.type = core::JobType::Compare, .json = options.json, .verbose = options.verbose});
}

ExitCode Verify(ServerConnection& server, const VerifyOptions& options) {
    const PasswordSource passwords(options.passwordFd);
    ExitCode problem = ExitCode::Failed;
    const auto backup = OpenBackup(server, options.backup, passwords, &problem);
    if (!backup) return problem;
    return SubmitAndWatch(
        server, VerifyJob(*backup, core::FormatTextOf(kMoreCtlVerifyTitle, TitleOf(*backup))),
        {.type = core::JobType::Verify, .json = options.json, .verbose = options.verbose});
}

}  // namespace ctl
