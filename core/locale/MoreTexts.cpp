#include "core/locale/MoreTexts.h"

namespace core {

const std::array<const char*, kMoreTextCount> kMoreTextTable = {
    /* kMoreToolComesLater */ "This tool is not part of this version yet.",
    /* kMoreLookingForVolumes */ "Looking for volumes…",
    /* kMoreNoVolumes */ "No volumes were found.",
    /* kMoreBeingRead */ "being read",
    /* kMoreBackupMode */ "Backup mode",
    /* kMoreVarLeftOut */ "Never backed up: /var of volume '%s'.",
    /* kMoreChooseBase */ "Choose the full backup on which this backup builds.",
    /* kMoreNoBaseYet */ "There is no full backup yet on which this backup could build.",
    /* kMoreUnused8 */ "-",
    /* kMoreJobNotLoaded */ "Can't read '%s' as a backup job or a selection.",
    /* kMoreJobNotSaved */ "Can't save the job as '%s'.",
    /* kMorePasswordError */ "Password Error",
    /* kMoreRepeatPassword */ "Repeat password",
    /* kMoreKeepPassword */ "Keep the password safe. Without it nobody can restore this backup.",
    /* kMoreNoPasswordYet */ "Without a password the backup will not be protected.",
    /* kMoreChoose */ "Choose",
    /* kMoreOtherSize */ "Other size",
    /* kMoreUnit */ "Unit",
    /* kMoreUnitBytes */ "Bytes",
    /* kMoreUnitKilobytes */ "KB",
    /* kMoreUnitMegabytes */ "MB",
    /* kMoreUnitGigabytes */ "GB",
    /* kMoreUnitTerabytes */ "TB",
    /* kMoreNoJobRuns */ "No job is running.",
    /* kMoreRemovePanel */ "Remove from the list",
    /* kMoreProgress */ "Progress",
    /* kMoreRemoveDelayTitle */ "Remove Delay",
    /* kMoreVerify */ "Check",
    /* kMoreFirstItemGoesTo */ "First item goes to:",
    /* kMoreNoneProtected */ "None of the selected backups is protected by a password.",
    /* kMoreCheckingPassword */ "The password is being checked.",
    /* kMoreServerSilent */ "The backup server does not answer.",
    /* kMoreInfoHeading */ "%s info",
    /* kMoreUnlockPrompt */ "Type in the password of the backup '%s':",
    /* kMoreLookingForBackups */ "Looking for backups…",
    /* kMoreNoBackups */ "There are no backups yet.",
    /* kMoreNoCatalogue */ "The backup server does not show its catalogue.",
    /* kMoreLocked */ "locked",
    /* kMoreUseDirectory */ "Here, to '%s'",
    /* kMoreNoDirectories */ "No directories",
    /* kMoreReadingDirectory */ "Looking…",
    /* kMoreFolders */ "Folders to redirect to",
    /* kMoreUnused42 */ "-",
    /* kMoreOldPlace */ "where it was backed up from",
    /* kMoreCatalogue */ "Backups",
    /* kMoreCtlUnreachable */ "The backup server cannot be reached.",
    /* kMoreCtlServerEnded */ "The backup server ended before it was done.",
    /* kMoreCtlNotWaiting */ "Not waiting any longer.",
    /* kMoreCtlOnHold */ "Job %s is on hold. Start it by: backupctl continue %s",
    /* kMoreCtlDeletedEarly */ "The job was deleted before it started.",
    /* kMoreCtlPaused */ "Paused. Go on by: backupctl continue %s",
    /* kMoreCtlAborting */ "Aborting the job. Once more to leave without waiting for it.",
    /* kMoreCtlEndGood */ "good",
    /* kMoreCtlEndAborted */ "aborted",
    /* kMoreCtlEndFailed */ "failed",
    /* kMoreCtlEndProblems */ "done with problems",
    /* kMoreCtlEndAbnormal */ "abnormal end",
    /* kMoreCtlJobEnded */ "Job %s: %s",
    /* kMoreCtlJobSaved */ "Job %s: %s, saved as %s",
    /* kMoreCtlNoSuchBackup */ "There is no backup '%s'. 'backupctl list' shows them all.",
    /* kMoreCtlSeveralBackups */ "'%s' means several backups. Name one of them:",
    /* kMoreCtlEmptyFolder */ "Nothing is in it.",
    /* kMoreCtlEmptyBackup */ "The backup '%s' is empty.",
    /* kMoreCtlNotInBackup */ "'%s' is not in the backup '%s'.",
    /* kMoreCtlNoTerminal */
    "There is no terminal to ask for the password. Give it by --password-fd.",
    /* kMoreCtlNoPasswordThere */ "There is no password to read from the file descriptor %ld.",
    /* kMoreCtlNewPassword */ "Password of the backup:",
    /* kMoreCtlRepeatPassword */ "The same again:",
    /* kMoreCtlEmptyPassword */ "An empty password protects nothing.",
    /* kMoreCtlPasswordsDiffer */ "They are not the same. Try again.",
    /* kMoreCtlWrongPassword */ "The password is wrong.",
    /* kMoreCtlBadOverwrite */ "'%s' is not no, older, rename or yes.",
    /* kMoreCtlNamesakes */
    "Several of these are called '%s' and would go to the same place. Restore them one by one.",
    /* kMoreCtlBackupTitle */ "Backup of %s",
    /* kMoreCtlRestoreTitle */ "Restore of %s",
    /* kMoreCtlVerifyTitle */ "Check of %s",
    /* kMoreCtlSayYes */ "Nobody can be asked here: say --yes to delete.",
    /* kMoreCtlReallyEntries */ "Forget these backups? Their data stays where it is. [y/N]",
    /* kMoreCtlReallyWithData */ "Delete these backups with all their data? [y/N]",
    /* kMoreCtlNothingDeleted */ "Nothing was deleted.",
    /* kMoreCtlDeleted */ "Deleted: %s",
    /* kMoreCtlBadFindText */ "Say a part of a name: not nothing, and without a '/'.",
    /* kMoreCtlNothingFound */ "No backup has a file or folder with '%s' in its name.",
    /* kMoreCtlMoreFound */ "There are more than these %ld. Say more of the name, or --max.",
    /* kMoreCtlIsLink */
    "Note: %s is a link: the link itself is saved. Add a / to save what it points to.",
    /* kMoreCtlOtherVolume */
    "Note: %s is a volume of its own and not part of %s. Name it besides to save it too.",
    /* kMoreCtlVarNamed */ "Note: Nothing below /var is saved as a rule; you named it, so it is.",
    /* kMoreCtlNoJobNumber */ "'%s' is not the number of a job.",
    /* kMoreCtlNoSuchJob */ "There is no job %s.",
    /* kMoreCtlUnfitJob */ "Job %s is in the state '%s': that cannot be done now.",
    /* kMoreCtlJobStays */ "Job %s does not end. It was told to.",
    /* kMoreCtlJobState */ "Job %s: %s",
    /* kMoreCtlJobRemoved */ "Removed",
    /* kMoreCtlNoJobs */ "No jobs.",
    /* kMoreCtlNoReports */ "No reports.",
    /* kMoreCtlNoSuchReport */ "There is no report %ld.",
    /* kMoreCtlReportUnreadable */ "The report cannot be read.",
    /* kMoreCtlSizeOf */ "%s of %s",
    /* kMoreCtlTimeLeft */ "%s left",
    /* kMoreCtlFilesOf */ "%ld/%ld files",
    /* kMoreCtlHelpProgram */ "Backups from the command line.",
    /* kMoreCtlHelpHelp */ "Print this help",
    /* kMoreCtlHelpUsage */ "Usage",
    /* kMoreCtlHelpOptions */ "Options",
    /* kMoreCtlHelpArguments */ "Arguments",
    /* kMoreCtlHelpCommands */ "Commands",
    /* kMoreCtlHelpRequired */ "REQUIRED",
    /* kMoreCtlHelpJson */ "Print JSON for programs",
    /* kMoreCtlHelpVerbose */ "Print the whole report at the end",
    /* kMoreCtlHelpPasswordFd */
    "Read the password from this file descriptor, not from the terminal",
    /* kMoreCtlHelpBackup */ "Back up files and folders, and wait for the end",
    /* kMoreCtlHelpSources */ "What to save: files and folders",
    /* kMoreCtlHelpTarget */ "The folder where backups lie",
    /* kMoreCtlHelpCompress */
    "none, lz4, zstd or xz, and a level if wanted: lz4:1 to lz4:12 (quick), zstd:1 to zstd:19, "
    "xz:0 to xz:9 (small); alone: lz4:1, zstd:3, xz:3",
    /* kMoreCtlHelpTitle */ "The name of the job in lists and reports",
    /* kMoreCtlHelpHold */ "Put the job into the queue, but do not start it",
    /* kMoreCtlHelpProtect */ "Ask for a password; without it nobody can read the backup",
    /* kMoreCtlHelpBackupNotes */
    "A link is saved as a link, unless a / follows it. Nothing below /var of the system\n"
    "volume is saved unless it is named.",
    /* kMoreCtlHelpWhichBackup */
    "A backup: its name or its job's number as 'backupctl list' shows them, or its title",
    /* kMoreCtlHelpList */ "List the backups",
    /* kMoreCtlHelpBrowse */ "List what is in a backup",
    /* kMoreCtlHelpBrowsePath */ "A folder in it: /Volume/folder, or a path of this machine",
    /* kMoreCtlHelpFind */ "Find files and folders by a part of their names, in all backups",
    /* kMoreCtlHelpFindText */ "The part of the name; small and capital letters are the same",
    /* kMoreCtlHelpFindMax */ "List at most so many",
    /* kMoreCtlHelpRestore */ "Bring back files and folders, and wait for the end",
    /* kMoreCtlHelpRestorePath */
    "What to bring back: /Volume/path or a path of this machine; / is all of it",
    /* kMoreCtlHelpRestoreTo */ "The folder into which it goes; without it to where it was",
    /* kMoreCtlHelpOverwrite */
    "What happens to files that are there: no (they stay), older (only older ones are replaced), "
    "rename (they get another name), yes (they are replaced)",
    /* kMoreCtlHelpRestoreNotes */
    "With --to each PATH gets its own name in that folder, as cp does it. Without\n"
    "--overwrite nothing that is there is touched.",
    /* kMoreCtlHelpVerify */ "Read a backup through and compare all checksums; writes nothing",
    /* kMoreCtlHelpDelete */ "Forget backups, or delete them with their data",
    /* kMoreCtlHelpWithData */ "Delete the data, too; without it only the entry in the lists goes",
    /* kMoreCtlHelpYes */ "Do not ask",
    /* kMoreCtlHelpJobs */ "List the jobs that wait or run",
    /* kMoreCtlHelpWhichJob */ "The job's number as 'backupctl jobs' shows it",
    /* kMoreCtlHelpPause */ "Pause a job, whether it waits or runs",
    /* kMoreCtlHelpContinue */ "Let a paused job go on",
    /* kMoreCtlHelpAbort */ "Abort a job, or take a waiting one out of the queue",
    /* kMoreCtlHelpReports */ "List the reports of earlier jobs",
    /* kMoreCtlHelpReport */ "Print a report",
    /* kMoreCtlHelpWhichReport */ "The report's number as 'backupctl reports' shows it",
    /* kMoreCtlHelpExamples */
    "Examples:\n"
    "  Save a folder to a disk; the backup can be read without this program:\n"
    "      backupctl backup ~/Documents --to /media/disk/backups\n"
    "  Several folders, stronger compression, a name for the lists, a password:\n"
    "      backupctl backup ~/Documents ~/Pictures --to /media/disk/backups \\\n"
    "                --compress zstd:9 --title \"Papers and pictures\" --protect\n"
    "  Find a lost file, look around in its backup, bring it back beside the others:\n"
    "      backupctl find budget\n"
    "      backupctl browse \"Papers and pictures\" ~/Documents\n"
    "      backupctl restore \"Papers and pictures\" ~/Documents/budget.ods --to ~/found\n"
    "  Bring back a folder to where it was, but replace only older files:\n"
    "      backupctl restore 0000001a ~/Pictures --overwrite older\n"
    "  Bring back into the list what lies on a disk, on a new machine, too:\n"
    "      backupctl scan /media/disk/backups\n"
    "      backupctl insert /media/disk/backups \"Papers and pictures\"\n"
    "  See that a backup is whole; delete it with its data:\n"
    "      backupctl list\n"
    "      backupctl verify 20261122T201530-0000001a\n"
    "      backupctl delete 20261122T201530-0000001a --with-data\n"
    "  Put a job into the queue without starting it, look at the queue, start it:\n"
    "      backupctl backup /home --to /media/disk/backups --hold\n"
    "      backupctl jobs\n"
    "      backupctl continue 0000001a\n"
    "  See what happened:\n"
    "      backupctl reports\n"
    "      backupctl report 12\n"
    "\n"
    "Jobs run in the backup server: they go on when the terminal is closed. Ctrl-C aborts the "
    "job.\n"
    "Exit status: 0 good, 3 done with problems (the report names them), 1 failed, 2 wrong usage.",
    /* kMoreQuickBackup */ "QuickBackup",
    /* kMoreVolumeFullness */ "%s of %s used (%d%%)",
    /* kMoreCtlHelpIncremental */
    "Only what has changed since the newest backup of the set of BACKUP",
    /* kMoreCtlHelpDifferential */
    "Only what has changed since the full backup of the set of BACKUP",
    /* kMoreCtlNoPaths */ "Nothing is named that is to be saved.",
    /* kMoreCtlPathsOfBase */
    "A backup that builds on another saves what that one saves: name no files and folders.",
    /* kMoreCtlProtectionOfBase */ "A backup that builds on another has the password of that one.",
    /* kMoreCtlCompareTitle */ "Comparison of %s",
    /* kMoreCtlBadCompareItem */ "'%s' is nothing that can be compared.",
    /* kMoreCtlHelpCompare */ "Compare a backup with what is on disk; writes nothing",
    /* kMoreCtlHelpComparePath */ "What of it; default: all",
    /* kMoreCtlHelpCompareOnly */
    "Only these of data, attributes, size, modified, created, link, permissions, user, group; "
    "default: all",
    /* kMoreRunsSoon */ "as soon as there is room",
    /* kMoreRunsNever */ "never: all days are excluded",
    /* kMoreRunsNext */ "%s (%s)",
    /* kMoreInAMinute */ "in a minute",
    /* kMoreInMinutes */ "in %ld minutes",
    /* kMoreInHours */ "in %ld hours",
    /* kMoreInDays */ "in %ld days",
    /* kMoreToday */ "today",
    /* kMoreTomorrow */ "tomorrow",
    /* kMoreDayAt */ "%s, %s",
    /* kMoreNotRepeated */ "once",
    /* kMoreEveryMonth */ "every month",
    /* kMoreEveryWeek */ "every week",
    /* kMoreEveryDay */ "every day",
    /* kMoreEveryHour */ "every hour",
    /* kMoreEveryMinute */ "every minute",
    /* kMoreEvery */ "every %s",
    /* kMoreOneMonth */ "1 month",
    /* kMoreMonths */ "%ld months",
    /* kMoreOneDay */ "1 day",
    /* kMoreDays */ "%ld days",
    /* kMoreOneHour */ "1 hour",
    /* kMoreHours */ "%ld hours",
    /* kMoreOneMinute */ "1 minute",
    /* kMoreMinutes */ "%ld minutes",
    /* kMoreNotOn */ "not on %s",
    /* kMoreNeverRuns */ "This job never runs: all seven days of the week are excluded.",
    /* kMoreOverdueSince */ "'%s' has not run well since %s.",
    /* kMoreOverdueEver */ "'%s' has never run well. It was due on %s first.",
    /* kMoreKeptAwake */ "This machine is kept from sleeping while the job runs.",
    /* kMoreNoJobs */
    "No jobs are waiting or running.",
    /* kMoreNextJob */
    "Next: '%s' %s",
    /* kMoreJobNotEdited */
    "The job cannot be edited now: it has started or is no longer there.",
    /* kMoreColumnsShown */
    "Columns shown",
    /* kMoreCtlScheduleOf */ "Job %s: %s; %s",
    /* kMoreCtlScheduleNow */ "Job %s has no schedule: it starts as soon as there is room.",
    /* kMoreCtlBadTime */ "'%s' is no time of day: say 18:00.",
    /* kMoreCtlBadDate */ "'%s' is no date: say 2027-01-31.",
    /* kMoreCtlBadInterval */
    "'%s' is no interval: say 1month, 1week, 2days12hours, 30minutes or none.",
    /* kMoreCtlBadWeekday */ "'%s' is no day of the week: say sunday to saturday, or none.",
    /* kMoreCtlHelpSchedule */ "Show or change when a job runs",
    /* kMoreCtlHelpScheduleAt */ "The time of day, as 18:00; alone: the next time it is so late",
    /* kMoreCtlHelpScheduleOn */ "The day of the next run, as 2027-01-31",
    /* kMoreCtlHelpScheduleEvery */ "Repeat it: 1month, 1week, 2days12hours, 30minutes; none: once",
    /* kMoreCtlHelpScheduleNotOn */
    "Days of the week on which it does not run: saturday,sunday; none: it runs on all",
    /* kMoreCtlHelpScheduleNone */ "Take the schedule away: it starts as soon as there is room",
    /* kMoreCtlHelpQueue */ "List the jobs and when they run next, or do something with one",
    /* kMoreCtlHelpQueueAction */
    "start (now), pause, continue, abort (the run), delete (all runs), hold (until it is "
    "continued)",
    /* kMoreCtlHelpWatch */ "Show what running jobs say, until Ctrl-C",
    /* kMoreCtlHelpFollow */
    "N may be a running job: show what it says until it ends, then its report",
    /* kMoreCtlNoReportNumber */ "'%s' is not the number of a report.",
    /* kMoreSaveReport */ "Save Report",
    /* kMorePrintReport */ "Print Report",
    /* kMoreDeleteReport */ "Delete Report",
    /* kMoreReportSettings */ "Report Settings",
    /* kMoreDayCount */ "Day Count",
    /* kMoreReportCount */ "Report Count",
    /* kMorePageSetup */ "Page Setup",
    /* kMoreReportNotSaved */ "The report could not be saved as '%s'.",
    /* kMoreReportNotPrinted */ "The report could not be printed.",
    /* kMorePrintingPage */ "Printing page %ld...",
    /* kMoreNoReports */ "There are no reports yet. Every job leaves one when it ends.",
    /* kMoreNoReportOpen */ "Double-click a report to read it.",
    /* kMoreReportFetching */ "The report is being fetched...",
    /* kMoreReportGone */ "This report is not there any more.",
    /* kMoreReportEmpty */ "This report is empty.",
    /* kMoreReportUnread */ "The report could not be taken over from the server.",
    /* kMoreNoProblems */ "No problems",
    /* kMoreProblems */ "Problems: %ld",
    /* kMoreProblemOf */ "Problem %ld of %ld",
    /* kMoreLinesHidden */ "Lines not shown: %ld",
    /* kMorePreviousProblem */ "Previous problem",
    /* kMoreNextProblem */ "Next problem",
    /* kMoreFindInReport */ "Find in the report",
    /* kMoreNotFound */ "Not found",
    /* kMoreCopy */ "Copy",
    /* kMoreDeleteReportsWhen */ "Delete reports automatically:",
    /* kMoreDaysUnit */ "days",
    /* kMoreReportsUnit */ "reports",
    /* kMoreFoundBackups */ "Backups found",
    /* kMoreInsertHint */
    "Choose where the backups lie, and mark those that are to be listed again.",
    /* kMoreLookAgain */ "Look again",
    /* kMoreInsertNoPlace */ "Choose a destination, and where it is with its settings.",
    /* kMoreInsertScanning */ "Looking for backups there…",
    /* kMoreInsertNothingFound */ "No backups were found there.",
    /* kMoreInsertCount */ "Found: %ld, marked: %ld",
    /* kMoreInsertNotThere */ "Marked before, but not found there now: %ld. They stay marked.",
    /* kMorePasswordOfBase */
    "Protected as the backup is that it builds on: by the same password, or not at all.",
    /* kMoreNextRun */ "Next run: %s, %s",
    /* kMoreScheduleUnreadable */
    "Type the time as HH:MM and the date as DD.MM.YYYY, from 1970 to 2106. Else the former ones "
    "stay.",
    /* kMoreNoticeGood */
    "it went well.",
    /* kMoreNoticeErrors */
    "it ended with errors. What is wrong stands in the report.",
    /* kMoreNoticeAbnormal */
    "it broke off.",
    /* kMoreNoticeOverdue */
    "it has had no good run for too long.",
    /* kMoreShowReport */
    "Show Report",
    /* kMoreNoticeServerGone */
    "The backup server has stopped unexpectedly",
    /* kMoreNoticeServerGoneMore */
    "Jobs that were running have not been finished.",
    /* kMoreCtlNoDirectory */
    "%s is no directory.",
    /* kMoreCtlNoneFound */
    "No backups in %s.",
    /* kMoreCtlNotOnMedium */
    "There is no backup '%s' in %s.",
    /* kMoreCtlFoundProtected */
    "protected",
    /* kMoreCtlFoundKnown */
    "in the catalogue",
    /* kMoreCtlInsertTitle */
    "Insert from %s",
    /* kMoreCtlInserted */
    "In the catalogue: %s",
    /* kMoreCtlHelpScan */
    "Show the backups that lie in a directory, also those that the catalogue does not know",
    /* kMoreCtlHelpInsert */
    "Bring backups that lie in a directory back into the catalogue; writes nothing to it",
    /* kMoreCtlHelpScanDir */
    "The directory in which the backups lie",
    /* kMoreCtlHelpInsertWhich */
    "Name of its folder or title, as 'backupctl scan' shows it",
    /* kMoreCtlHelpInsertNotes */
    "Where the catalogue beside a backup is lost, all of its data is read to make a new one. A "
    "protected backup\nis in the list at once; 'backupctl browse' asks for its password and opens "
    "it.",
    /* kMoreSearching */
    "Searching...",
};

}  // namespace core
