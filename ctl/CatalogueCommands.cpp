#include <cstdio>

#include "ctl/BackupTree.h"
#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

ExitCode List(ServerConnection& server, bool json) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto backups = ListBackups(server);
    if (!backups) return Fail(kMoreServerSilent);
    auto document = nlohmann::ordered_json::array();
    for (const auto& backup : *backups) {
        if (json) {
            document.push_back(BackupJson(backup));
        } else {
            std::printf("%s\n", BackupLine(backup).c_str());
        }
    }
    if (json) {
        PrintJson(document);
    } else if (backups->empty()) {
        Say(kMoreNoBackups);
    }
    return ExitCode::Good;
}

ExitCode Browse(ServerConnection& server, const BrowseOptions& options) {
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    ExitCode problem = ExitCode::Failed;
    const auto backup = FindBackup(server, options.backup, &problem);
    if (!backup) return problem;
    const PasswordSource passwords(options.passwordFd);
    BackupTree tree(server, *backup, passwords);
    const auto entry = tree.Find(options.path);
    if (!entry) return ExitCode::Failed;
    auto entries = entry->HoldsOthers() ? tree.Children(entry->path)
                                        : std::optional(std::vector<TreeEntry>{*entry});
    if (!entries) return ExitCode::Failed;
    auto document = nlohmann::ordered_json::array();
    for (const auto& child : *entries) {
        if (options.json) {
            document.push_back({{"name", child.Name()},
                                {"path", child.path},
                                {"type", EntryTypeWords(child.type)},
                                {"size", child.size},
                                {"date", child.date}});
        } else {
            std::printf(
                "%s\n",
                EntryLine(child.HoldsOthers() ? -1 : child.size, child.date, child.Name()).c_str());
        }
    }
    if (options.json) {
        PrintJson(document);
    } else if (entries->empty()) {
        Say(kMoreCtlEmptyFolder);
    }
    return ExitCode::Good;
}

}  // namespace ctl
