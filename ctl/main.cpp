// backupctl: backups from the command line, by the same server as the window.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>

#include "ctl/Commands.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "kit/support/EndSignals.h"

namespace {

using core::TextOf;
using ctl::ExitCode;
using enum core::MoreText;

// A command that was chosen: how it is run, and how often Ctrl-C tells it before it ends the
// program.
struct Chosen {
    std::function<ExitCode(ctl::ServerConnection&)> run;
    int told = 0;
};
constexpr int kToldOfJobs = 2;

// All options of all commands, while the command line is read.
struct Options {
    ctl::CommonOptions common;
    ctl::BackupOptions backup;
    ctl::BrowseOptions browse;
    ctl::FindOptions find;
    ctl::RestoreOptions restore;
    ctl::CompareOptions compare;
    ctl::VerifyOptions verify;
    ctl::DeleteOptions remove;
    ctl::ScanOptions scan;
    ctl::InsertOptions insert;
    std::string job;
    std::string action;  // of the queue; "": list it
    ctl::ScheduleCommand schedule;
    std::string report;
    bool follow = false;
};

CLI::App* Add(CLI::App& app, const char* name, int32_t words, Chosen* chosen, Chosen choice) {
    auto* command = app.add_subcommand(name, TextOf(words));
    command->group(TextOf(kMoreCtlHelpCommands));
    command->get_help_ptr()->group(TextOf(kMoreCtlHelpOptions));
    command->callback([chosen, choice = std::move(choice)] { *chosen = choice; });
    return command;
}

// One with options of its own, to which the common ones are added when it is run.
template <class Own>
CLI::App* Add(CLI::App& app, const char* name, int32_t words, Chosen* chosen,
              const Options& options, Own& own, ExitCode (*run)(ctl::ServerConnection&, const Own&),
              int told = 0) {
    const auto runWithAll = [&options, &own, run](ctl::ServerConnection& server) {
        static_cast<ctl::CommonOptions&>(own) = options.common;
        return run(server, own);
    };
    return Add(app, name, words, chosen, {runWithAll, told});
}

void AddPasswordFd(CLI::App* command, Options& options) {
    command->add_option("--password-fd", options.common.passwordFd, TextOf(kMoreCtlHelpPasswordFd))
        ->type_name("N")
        ->check(CLI::NonNegativeNumber.description(""));
}

void AddVerbose(CLI::App* command, Options& options) {
    command->add_flag("-v,--verbose", options.common.verbose, TextOf(kMoreCtlHelpVerbose));
}

std::array<CLI::Option*, 4> AddScheduleOptions(CLI::App* command, ctl::ScheduleOptions& when) {
    return {
        command->add_option("--at", when.at, TextOf(kMoreCtlHelpScheduleAt))->type_name("HH:MM"),
        command->add_option("--on", when.on, TextOf(kMoreCtlHelpScheduleOn))
            ->type_name("YYYY-MM-DD"),
        command->add_option("--every", when.every, TextOf(kMoreCtlHelpScheduleEvery))
            ->type_name("INTERVAL"),
        command->add_option("--not-on", when.notOn, TextOf(kMoreCtlHelpScheduleNotOn))
            ->type_name("DAY,…")};
}

void AddBackupCommand(CLI::App& app, Options& options, Chosen* chosen) {
    auto& backup = options.backup;
    auto* command =
        Add(app, "backup", kMoreCtlHelpBackup, chosen, options, backup, ctl::Backup, kToldOfJobs);
    command->add_option("PATH", backup.paths, TextOf(kMoreCtlHelpSources))->type_name("");
    command->add_option("--to", backup.target, TextOf(kMoreCtlHelpTarget))
        ->required()
        ->type_name("DIR");
    command->add_option("--compress", backup.compress, TextOf(kMoreCtlHelpCompress))
        ->type_name("HOW");
    command->add_option("--title", backup.title, TextOf(kMoreCtlHelpTitle))->type_name("TITLE");
    auto* incremental =
        command->add_option("--incremental", backup.incremental, TextOf(kMoreCtlHelpIncremental))
            ->type_name("BACKUP");
    command->add_option("--differential", backup.differential, TextOf(kMoreCtlHelpDifferential))
        ->type_name("BACKUP")
        ->excludes(incremental);
    AddScheduleOptions(command, backup.when);
    command->add_flag("--hold", backup.onHold, TextOf(kMoreCtlHelpHold));
    command->add_flag("--protect", backup.protect, TextOf(kMoreCtlHelpProtect));
    AddPasswordFd(command, options);
    AddVerbose(command, options);
    command->footer(TextOf(kMoreCtlHelpBackupNotes));
}

void AddBackupArgument(CLI::App* command, std::string& backup) {
    command->add_option("BACKUP", backup, TextOf(kMoreCtlHelpWhichBackup))
        ->required()
        ->type_name("");
}

void AddCatalogueCommands(CLI::App& app, Options& options, Chosen* chosen) {
    Add(app, "list", kMoreCtlHelpList, chosen,
        {[&](ctl::ServerConnection& server) { return ctl::List(server, options.common.json); }});

    auto* browse =
        Add(app, "browse", kMoreCtlHelpBrowse, chosen, options, options.browse, ctl::Browse);
    AddBackupArgument(browse, options.browse.backup);
    browse->add_option("PATH", options.browse.path, TextOf(kMoreCtlHelpBrowsePath))->type_name("");
    AddPasswordFd(browse, options);

    auto* find = Add(app, "find", kMoreCtlHelpFind, chosen, options, options.find, ctl::Find);
    find->add_option("TEXT", options.find.text, TextOf(kMoreCtlHelpFindText))
        ->required()
        ->type_name("");
    find->add_option("--max", options.find.most, TextOf(kMoreCtlHelpFindMax))
        ->type_name("N")
        ->check(CLI::Range(1, 10'000));
}

void AddRestoreCommands(CLI::App& app, Options& options, Chosen* chosen) {
    auto* restore = Add(app, "restore", kMoreCtlHelpRestore, chosen, options, options.restore,
                        ctl::Restore, kToldOfJobs);
    AddBackupArgument(restore, options.restore.backup);
    restore->add_option("PATH", options.restore.paths, TextOf(kMoreCtlHelpRestorePath))
        ->required()
        ->type_name("");
    restore->add_option("--to", options.restore.target, TextOf(kMoreCtlHelpRestoreTo))
        ->type_name("DIR");
    restore->add_option("--overwrite", options.restore.overwrite, TextOf(kMoreCtlHelpOverwrite))
        ->type_name("no|older|rename|yes");
    AddPasswordFd(restore, options);
    AddVerbose(restore, options);
    restore->footer(TextOf(kMoreCtlHelpRestoreNotes));

    auto* compare = Add(app, "compare", kMoreCtlHelpCompare, chosen, options, options.compare,
                        ctl::Compare, kToldOfJobs);
    AddBackupArgument(compare, options.compare.backup);
    compare->add_option("PATH", options.compare.paths, TextOf(kMoreCtlHelpComparePath))
        ->type_name("");
    compare->add_option("--only", options.compare.items, TextOf(kMoreCtlHelpCompareOnly))
        ->delimiter(',')
        ->expected(1)
        ->take_all()
        ->type_name("ITEM,…");
    AddPasswordFd(compare, options);
    AddVerbose(compare, options);

    auto* verify = Add(app, "verify", kMoreCtlHelpVerify, chosen, options, options.verify,
                       ctl::Verify, kToldOfJobs);
    AddBackupArgument(verify, options.verify.backup);
    AddPasswordFd(verify, options);
    AddVerbose(verify, options);

    auto* remove =
        Add(app, "delete", kMoreCtlHelpDelete, chosen, options, options.remove, ctl::Delete);
    remove->add_option("BACKUP", options.remove.backups, TextOf(kMoreCtlHelpWhichBackup))
        ->required()
        ->type_name("");
    remove->add_flag("--with-data", options.remove.withData, TextOf(kMoreCtlHelpWithData));
    remove->add_flag("--yes", options.remove.yes, TextOf(kMoreCtlHelpYes));
}

void AddInsertCommands(CLI::App& app, Options& options, Chosen* chosen) {
    auto* scan = Add(app, "scan", kMoreCtlHelpScan, chosen, options, options.scan, ctl::Scan);
    scan->add_option("DIR", options.scan.folder, TextOf(kMoreCtlHelpScanDir))
        ->required()
        ->type_name("");

    auto* insert = Add(app, "insert", kMoreCtlHelpInsert, chosen, options, options.insert,
                       ctl::Insert, kToldOfJobs);
    insert->add_option("DIR", options.insert.folder, TextOf(kMoreCtlHelpScanDir))
        ->required()
        ->type_name("");
    insert->add_option("BACKUP", options.insert.backups, TextOf(kMoreCtlHelpInsertWhich))
        ->required()
        ->type_name("");
    AddVerbose(insert, options);
    insert->footer(TextOf(kMoreCtlHelpInsertNotes));
}

void AddJobCommands(CLI::App& app, Options& options, Chosen* chosen) {
    Add(app, "jobs", kMoreCtlHelpJobs, chosen,
        {[&](ctl::ServerConnection& server) { return ctl::Jobs(server, options.common.json); }});
    const auto addControl = [&](const char* name, int32_t words, ctl::JobCommand what) {
        auto* command =
            Add(app, name, words, chosen, {[&options, what](ctl::ServerConnection& server) {
                    return ctl::Control(server, what, options.job, options.common.json);
                }});
        command->add_option("JOB", options.job, TextOf(kMoreCtlHelpWhichJob))
            ->required()
            ->type_name("");
    };
    addControl("pause", kMoreCtlHelpPause, ctl::JobCommand::Pause);
    addControl("continue", kMoreCtlHelpContinue, ctl::JobCommand::Continue);
    addControl("abort", kMoreCtlHelpAbort, ctl::JobCommand::Abort);

    const std::map<std::string, ctl::JobCommand> actions{
        {"start", ctl::JobCommand::Start},       {"pause", ctl::JobCommand::Pause},
        {"continue", ctl::JobCommand::Continue}, {"abort", ctl::JobCommand::Abort},
        {"delete", ctl::JobCommand::Delete},     {"hold", ctl::JobCommand::Hold}};
    auto* queue = Add(app, "queue", kMoreCtlHelpQueue, chosen,
                      {[&options, actions](ctl::ServerConnection& server) {
                          if (options.action.empty())
                              return ctl::Queue(server, options.common.json);
                          return ctl::Control(server, actions.at(options.action), options.job,
                                              options.common.json);
                      }});
    auto* action = queue->add_option("ACTION", options.action, TextOf(kMoreCtlHelpQueueAction))
                       ->type_name("")
                       ->check(CLI::IsMember(actions).description(""));
    auto* job = queue->add_option("JOB", options.job, TextOf(kMoreCtlHelpWhichJob))->type_name("");
    action->needs(job);

    auto* schedule = Add(app, "schedule", kMoreCtlHelpSchedule, chosen, options, options.schedule,
                         ctl::ShowSchedule);
    schedule->add_option("JOB", options.schedule.job, TextOf(kMoreCtlHelpWhichJob))
        ->required()
        ->type_name("");
    auto* none =
        schedule->add_flag("--none", options.schedule.none, TextOf(kMoreCtlHelpScheduleNone));
    for (auto* option : AddScheduleOptions(schedule, options.schedule.options))
        option->excludes(none);

    Add(app, "watch", kMoreCtlHelpWatch, chosen,
        {[&](ctl::ServerConnection& server) { return ctl::Watch(server, options.common.json); },
         1});

    Add(app, "reports", kMoreCtlHelpReports, chosen,
        {[&](ctl::ServerConnection& server) { return ctl::Reports(server, options.common.json); }});
    auto* report = Add(app, "report", kMoreCtlHelpReport, chosen,
                       {[&](ctl::ServerConnection& server) {
                            if (options.follow)
                                return ctl::Follow(server, options.report, options.common.json);
                            int32_t number = 0;
                            const char* end = options.report.data() + options.report.size();
                            const auto [stop, problem] =
                                std::from_chars(options.report.data(), end, number);
                            if (problem != std::errc() || stop != end)
                                return ctl::WrongUse(kMoreCtlNoReportNumber, options.report);
                            return ctl::Report(server, number, options.common.json);
                        },
                        1});
    report->add_flag("--follow", options.follow, TextOf(kMoreCtlHelpFollow));
    report->add_option("N", options.report, TextOf(kMoreCtlHelpWhichReport))
        ->required()
        ->type_name("");
}

int Run(int argc, char** argv) {
    ctl::UseLanguageOfEnvironment(BApplication::ProgramFolder());
    Options options;
    Chosen chosen;
    CLI::App app(TextOf(kMoreCtlHelpProgram), "backupctl");
    app.require_subcommand(1);
    app.option_defaults()->group(TextOf(kMoreCtlHelpOptions));
    app.set_help_flag("-h,--help", TextOf(kMoreCtlHelpHelp));
    for (const auto& [label, words] : {std::pair("Usage", kMoreCtlHelpUsage),
                                       {"OPTIONS", kMoreCtlHelpOptions},
                                       {"Positionals", kMoreCtlHelpArguments},
                                       {"SUBCOMMAND", kMoreCtlHelpCommands},
                                       {"REQUIRED", kMoreCtlHelpRequired}}) {
        app.get_formatter()->label(label, TextOf(words));
    }
    app.footer(TextOf(kMoreCtlHelpExamples));
    AddBackupCommand(app, options, &chosen);
    AddCatalogueCommands(app, options, &chosen);
    AddRestoreCommands(app, options, &chosen);
    AddInsertCommands(app, options, &chosen);
    AddJobCommands(app, options, &chosen);
    for (auto* command : app.get_subcommands({})) {
        command->add_flag("--json", options.common.json, TextOf(kMoreCtlHelpJson));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        return app.exit(problem) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    }

    kit::EndSignals::Block();
    ::signal(SIGPIPE, SIG_IGN);
    ctl::ServerConnection server;
    ExitCode code = ExitCode::Failed;
    {
        // A command that only asks is simply over.
        std::atomic<int> told = chosen.told;
        const kit::EndSignals interrupts([&] {
            if (told-- <= 0) ::_exit(static_cast<int>(ExitCode::Failed));
            server.Interrupt();
        });
        code = chosen.run(server);
    }
    std::fflush(stdout);
    return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "backupctl: %s\n", problem.what());
        return static_cast<int>(ExitCode::Failed);
    }
}
