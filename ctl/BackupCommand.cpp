#include <cstdio>
#include <ctime>

#include "ctl/BackupJob.h"
#include "ctl/Backups.h"
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

// A job for what has changed since the backup that is named.
std::optional<BMessage> JobOnBase(ServerConnection& server, const BackupOptions& options,
                                  const Compression& compression, ExitCode* problem) {
    const bool incremental = !options.incremental.empty();
    const auto base =
        FindBackup(server, incremental ? options.incremental : options.differential, problem);
    if (!base) return std::nullopt;
    BMessage job = BackupJob({}, AbsoluteTarget(options.target), compression,
                             options.title.empty() ? base->title : options.title, options.onHold);
    BuildOn(job, incremental ? core::JobType::Incremental : core::JobType::Differential,
            base->baseId != 0 ? base->baseId : base->jobId);
    return job;
}

}  // namespace

ExitCode Backup(ServerConnection& server, const BackupOptions& options) {
    const auto compression = ParseCompression(options.compress);
    if (!compression) return Fail(compression.error().Text(), ExitCode::Usage);
    // What has changed is asked of the backup that is built on, not of the command line.
    const bool onBase = !options.incremental.empty() || !options.differential.empty();
    if (options.paths.empty() != onBase) {
        return Fail(core::TextOf(onBase ? kMoreCtlPathsOfBase : kMoreCtlNoPaths), ExitCode::Usage);
    }
    if (onBase && (options.protect || options.passwordFd))
        return Fail(core::TextOf(kMoreCtlProtectionOfBase), ExitCode::Usage);
    std::optional<core::Schedule> schedule;
    if (!options.when.IsEmpty()) {
        const auto wanted = Changed({}, options.when, ::time(nullptr), core::Zone::OfSystem());
        if (!wanted) return Fail(wanted.error().Text(), ExitCode::Usage);
        schedule = *wanted;
    }
    std::optional<BMessage> job;
    if (!onBase) {
        const auto sources = MapSources(options.paths, BVolumeRoster().Volumes());
        if (!sources) return Fail(sources.error().Text(), ExitCode::Usage);
        if (!options.json) {
            for (const auto& note : sources->notes)
                std::fprintf(stderr, "%s\n", note.c_str());
        }
        job = BackupJob(*sources, AbsoluteTarget(options.target), *compression,
                        options.title.empty() ? DefaultTitle(options.paths) : options.title,
                        options.onHold);
    }
    if (auto connected = server.Connect(); !connected) return Fail(connected.error().Text());
    if (onBase) {
        ExitCode problem = ExitCode::Failed;
        job = JobOnBase(server, options, *compression, &problem);
        if (!job) return problem;
    }
    if (options.protect || options.passwordFd) {
        const auto password = PasswordSource(options.passwordFd).AskNew();
        if (!password) return ExitCode::Failed;
        Protect(*job, password->Text());
    }
    if (schedule) job->Set("scheduler", schedule->ToRecord());
    return SubmitAndWatch(server, std::move(*job),
                          {.onHold = options.onHold,
                           .schedule = schedule,
                           .json = options.json,
                           .verbose = options.verbose});
}

}  // namespace ctl
