#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "ctl/BackupJob.h"
#include "ctl/Commands.h"
#include "ctl/FoundBackups.h"
#include "ctl/JobWatch.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

ExitCode Scan(ServerConnection& server, const ScanOptions& options) {
    if (!IsDirectory(options.folder)) return Fail(kMoreCtlNoDirectory, Printable(options.folder));
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const auto found = FindBackups(server, AbsoluteTarget(options.folder));
    if (!found) return Fail(kMoreServerSilent);
    if (options.json) {
        auto document = nlohmann::ordered_json::array();
        for (const auto& backup : *found) {
            document.push_back({{"id", backup.id},
                                {"title", backup.title},
                                {"date", backup.date},
                                {"protected", backup.isProtected},
                                {"known", backup.isKnown}});
        }
        PrintJson(document);
        return ExitCode::Good;
    }
    for (const auto& backup : *found)
        std::printf("%s\n", FoundLine(backup).c_str());
    if (found->empty()) Say(kMoreCtlNoneFound, Printable(options.folder));
    return ExitCode::Good;
}

ExitCode Insert(ServerConnection& server, const InsertOptions& options) {
    if (!IsDirectory(options.folder)) return Fail(kMoreCtlNoDirectory, Printable(options.folder));
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    const std::string folder = AbsoluteTarget(options.folder);
    const auto found = FindBackups(server, folder);
    if (!found) return Fail(kMoreServerSilent);
    std::vector<FoundBackup> chosen;
    for (const auto& text : options.backups) {
        const auto meant = MeantBackups(*found, text);
        if (meant.empty())
            return Fail(kMoreCtlNotOnMedium, Printable(text), Printable(options.folder));
        if (meant.size() > 1) {
            const ExitCode problem = Fail(kMoreCtlSeveralBackups, text);
            for (const auto& backup : meant)
                std::fprintf(stderr, "    %s\n", FoundLine(backup).c_str());
            return problem;
        }
        chosen.push_back(meant.front());
    }
    WatchOptions watch{
        .type = core::JobType::Insert, .json = options.json, .verbose = options.verbose};
    for (const auto& backup : chosen)
        watch.inserted.push_back(backup.id);
    return SubmitAndWatch(
        server, InsertJob(folder, chosen, core::FormatTextOf(kMoreCtlInsertTitle, folder)), watch);
}

}  // namespace ctl
