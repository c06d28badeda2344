// backupctl: backups from the command line, by the same server as the window.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <thread>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"
#include "ctl/Commands.h"
#include "ctl/ServerConnection.h"

namespace {

constexpr char kExamples[] =
    R"(Examples:
  Save a folder to a disk; the backup can be read without this program:
      backupctl backup ~/Documents --to /media/disk/backups
  Several folders, stronger compression, a name for the lists:
      backupctl backup ~/Documents ~/Pictures --to /media/disk/backups \
                --compress zstd:9 --title "Papers and pictures"
  Put a job into the queue without starting it, look at the queue, start it:
      backupctl backup /home --to /media/disk/backups --hold
      backupctl jobs
      backupctl continue 0000001a
  See what happened:
      backupctl reports
      backupctl report 12

Jobs run in the backup server: they go on when the terminal is closed. Ctrl-C aborts the job.
Exit status: 0 good, 3 done with problems (the report names them), 1 failed, 2 wrong usage.)";

// Ctrl-C, on a thread of its own: while a backup is watched it is told so, twice; a command that
// only asks is simply over.
class Interrupts {
public:
    Interrupts(ctl::ServerConnection& server, int told)
        : fThread([this, &server, told] { Wait(server, told); }) {}
    ~Interrupts() {
        fOver = true;
        ::pthread_kill(fThread.native_handle(), SIGUSR1);
        fThread.join();
    }
    static sigset_t Set() {
        sigset_t set;
        ::sigemptyset(&set);
        for (const int number : {SIGINT, SIGTERM, SIGUSR1})
            ::sigaddset(&set, number);
        return set;
    }

private:
    void Wait(ctl::ServerConnection& server, int told) {
        const sigset_t set = Set();
        for (;;) {
            int number = 0;
            if (::sigwait(&set, &number) != 0) continue;
            if (fOver) return;
            if (number == SIGUSR1) continue;  // somebody else's
            if (told-- <= 0) ::_exit(static_cast<int>(ctl::ExitCode::Failed));
            server.Interrupt();
        }
    }

    std::atomic<bool> fOver = false;
    std::thread fThread;
};

}  // namespace

int main(int argc, char** argv) {
    using ctl::ExitCode;
    CLI::App app("Backups from the command line.", "backupctl");
    app.require_subcommand(1);
    app.footer(kExamples);
    bool json = false;

    ctl::BackupOptions backup;
    auto* backupCommand =
        app.add_subcommand("backup", "Back up files and folders, and wait for the end");
    backupCommand->add_option("PATH", backup.paths, "What to save: files and folders")
        ->required()
        ->type_name("");
    backupCommand->add_option("--to", backup.target, "The folder where backups lie")
        ->required()
        ->type_name("DIR");
    backupCommand
        ->add_option("--compress", backup.compress,
                     "none, zstd, or zstd:1 (quick) to zstd:19 (small); zstd is zstd:3")
        ->type_name("HOW");
    backupCommand->add_option("--title", backup.title, "The name of the job in lists and reports")
        ->type_name("TITLE");
    backupCommand->add_flag("--hold", backup.onHold,
                            "Put the job into the queue, but do not start it");
    backupCommand->add_flag("-v,--verbose", backup.verbose, "Print the whole report at the end");
    backupCommand->footer(
        "A link is saved as a link, unless a / follows it. Nothing below /var of the system\n"
        "volume is saved unless it is named.");

    auto* jobsCommand = app.add_subcommand("jobs", "List the jobs that wait or run");
    std::string job;
    const auto addJobCommand = [&](const char* name, const char* words) {
        auto* command = app.add_subcommand(name, words);
        command->add_option("JOB", job, "The job's number as 'backupctl jobs' shows it")
            ->required();
        return command;
    };
    auto* pauseCommand = addJobCommand("pause", "Pause a job, whether it waits or runs");
    auto* continueCommand = addJobCommand("continue", "Let a paused job go on");
    auto* abortCommand =
        addJobCommand("abort", "Abort a job, or take a waiting one out of the queue");

    auto* reportsCommand = app.add_subcommand("reports", "List the reports of earlier jobs");
    int32_t report = 0;
    auto* reportCommand = app.add_subcommand("report", "Print a report");
    reportCommand->add_option("N", report, "The report's number as 'backupctl reports' shows it")
        ->required()
        ->type_name("");

    for (auto* command : app.get_subcommands({})) {
        command->add_flag("--json", json, "Print JSON for programs");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& problem) {
        return app.exit(problem) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    }
    backup.json = json;

    auto* locale = KTLocale::GetInstance();
    locale->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
    locale->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);

    const sigset_t signals = Interrupts::Set();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ctl::ServerConnection server;
    ExitCode code = ExitCode::Failed;
    {
        const Interrupts interrupts(server, *backupCommand ? 2 : 0);
        if (*backupCommand) code = ctl::Backup(server, backup);
        if (*jobsCommand) code = ctl::Jobs(server, json);
        if (*pauseCommand) code = ctl::Control(server, ctl::JobCommand::Pause, job, json);
        if (*continueCommand) code = ctl::Control(server, ctl::JobCommand::Continue, job, json);
        if (*abortCommand) code = ctl::Control(server, ctl::JobCommand::Abort, job, json);
        if (*reportsCommand) code = ctl::Reports(server, json);
        if (*reportCommand) code = ctl::Report(server, report, json);
    }
    std::fflush(stdout);
    return static_cast<int>(code);
}
