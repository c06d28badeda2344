#include <cstdio>

#include "ctl/BackupJob.h"
#include "ctl/Commands.h"
#include "ctl/JobWatch.h"
#include "ctl/Output.h"
#include "ctl/Password.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

std::string DefaultTitle(const std::vector<std::string>& paths) {
    std::string names;
    for (size_t i = 0; i < paths.size(); ++i)
        names += (i > 0 ? ", " : "") + paths[i];
    constexpr size_t kMost = 200;
    return core::FormatTextOf(kMoreCtlBackupTitle, names).substr(0, kMost);
}

}  // namespace

ExitCode Backup(ServerConnection& server, const BackupOptions& options) {
    const auto compression = ParseCompression(options.compress);
    if (!compression) return Fail(compression.error().Text(), ExitCode::Usage);
    const auto sources = MapSources(options.paths, BVolumeRoster().Volumes());
    if (!sources) return Fail(sources.error().Text(), ExitCode::Usage);
    if (!options.json) {
        for (const auto& note : sources->notes)
            std::fprintf(stderr, "%s\n", note.c_str());
    }
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    BMessage job = BackupJob(*sources, AbsoluteTarget(options.target), *compression,
                             options.title.empty() ? DefaultTitle(options.paths) : options.title,
                             options.onHold);
    if (options.protect || options.passwordFd) {
        const auto password = PasswordSource(options.passwordFd).AskNew();
        if (!password) return ExitCode::Failed;
        Protect(job, password->Text());
    }
    return SubmitAndWatch(
        server, std::move(job),
        {.onHold = options.onHold, .json = options.json, .verbose = options.verbose});
}

}  // namespace ctl
