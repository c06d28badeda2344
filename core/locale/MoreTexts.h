// Texts of our own beyond the shared table: notices, hints, spoken names, the command line. The
// enum and the table in MoreTexts.cpp are in the same order; language files carry them under
// "kt:more" in this order, so new ones are only ever appended.
#pragma once

#include <array>
#include <cstdint>

#include "core/locale/TextTable.h"

namespace core {

enum MoreText : int32_t {
    kMoreToolComesLater = kFirstMoreText,  // page of a tool that is not built yet
    kMoreLookingForVolumes,                // source list, before the first look is done
    kMoreNoVolumes,                        // and when there are none
    kMoreBeingRead,                        // said of a directory whose rows are on their way
    kMoreBackupMode,                       // label of the backup tool's mode menu
    kMoreVarLeftOut,                       // hint of the backup tool
    kMoreChooseBase,                       // hint of the backup tool
    kMoreNoBaseYet,                        // hint of the backup tool
    kMoreUnused8,                          // was said before there was a scheduler
    kMoreJobNotLoaded,                     // a file that was opened or dropped
    kMoreJobNotSaved,
    kMorePasswordError,   // title of an alert
    kMoreRepeatPassword,  // field of the start dialog
    kMoreKeepPassword,    // hint of the start dialog
    kMoreNoPasswordYet,   // hint of the start dialog
    kMoreChoose,          // button that opens a panel; "..." follows
    kMoreOtherSize,       // last item of a menu of sizes
    kMoreUnit,            // spoken name of a menu of units
    kMoreUnitBytes,       // units of sizes, in this order
    kMoreUnitKilobytes,
    kMoreUnitMegabytes,
    kMoreUnitGigabytes,
    kMoreUnitTerabytes,
    kMoreNoJobRuns,          // in the empty status window
    kMoreRemovePanel,        // button on the panel of a finished job
    kMoreProgress,           // spoken name of a bar
    kMoreRemoveDelayTitle,   // title of an alert
    kMoreVerify,             // kind of a job: checks backups where they lie
    kMoreFirstItemGoesTo,    // label of the restore start dialog
    kMoreNoneProtected,      // restore start dialog, in place of the list of passwords
    kMoreCheckingPassword,   // said while the server checks
    kMoreServerSilent,       // alert
    kMoreInfoHeading,        // heading of an info window; %s the name
    kMoreUnlockPrompt,       // %s which backup
    kMoreLookingForBackups,  // catalogue, before the first look is done
    kMoreNoBackups,          // catalogue, when there are none
    kMoreNoCatalogue,        // catalogue, when nobody answers
    kMoreLocked,             // said of a backup that opens with a password
    kMoreUseDirectory,       // first item of each menu of directories
    kMoreNoDirectories,      // item of an empty menu of directories
    kMoreReadingDirectory,   // item of a menu that is being filled
    kMoreFolders,            // spoken name of the folder browser
    kMoreUnused42,           // was said before backups could be inserted
    kMoreOldPlace,           // landing of a whole backup
    kMoreCatalogue,          // spoken name of the catalogue
    kMoreCtlUnreachable,     // command line, from here on
    kMoreCtlServerEnded,
    kMoreCtlNotWaiting,
    kMoreCtlOnHold,  // s, s the job's number
    kMoreCtlDeletedEarly,
    kMoreCtlPaused,  // s the job's number
    kMoreCtlAborting,
    kMoreCtlEndGood,  // how a job ended, in this order
    kMoreCtlEndAborted,
    kMoreCtlEndFailed,
    kMoreCtlEndProblems,
    kMoreCtlEndAbnormal,
    kMoreCtlJobEnded,        // s number, s how
    kMoreCtlJobSaved,        // s number, s how, s the backup
    kMoreCtlNoSuchBackup,    // s what was typed
    kMoreCtlSeveralBackups,  // s what was typed; a list follows
    kMoreCtlEmptyFolder,
    kMoreCtlEmptyBackup,  // s the backup
    kMoreCtlNotInBackup,  // s what was typed, s the backup
    kMoreCtlNoTerminal,
    kMoreCtlNoPasswordThere,  // ld the descriptor
    kMoreCtlNewPassword,      // question
    kMoreCtlRepeatPassword,   // question
    kMoreCtlEmptyPassword,
    kMoreCtlPasswordsDiffer,
    kMoreCtlWrongPassword,
    kMoreCtlBadOverwrite,  // s what was typed
    kMoreCtlNamesakes,     // s the name
    kMoreCtlBackupTitle,   // s what is saved
    kMoreCtlRestoreTitle,  // s the backup's title
    kMoreCtlVerifyTitle,   // s the backup's title
    kMoreCtlSayYes,
    kMoreCtlReallyEntries,   // question, answered by a letter
    kMoreCtlReallyWithData,  // question, answered by a letter
    kMoreCtlNothingDeleted,
    kMoreCtlDeleted,  // s the backup
    kMoreCtlBadFindText,
    kMoreCtlNothingFound,  // s what was typed
    kMoreCtlMoreFound,     // ld how many were listed
    kMoreCtlIsLink,        // s the path
    kMoreCtlOtherVolume,   // s the volume, s the folder
    kMoreCtlVarNamed,
    kMoreCtlNoJobNumber,  // s what was typed
    kMoreCtlNoSuchJob,    // s number
    kMoreCtlUnfitJob,     // s number, s state
    kMoreCtlJobStays,     // s number
    kMoreCtlJobState,     // s number, s state
    kMoreCtlJobRemoved,   // state of a job that is gone
    kMoreCtlNoJobs,
    kMoreCtlNoReports,
    kMoreCtlNoSuchReport,  // ld number
    kMoreCtlReportUnreadable,
    kMoreCtlSizeOf,       // progress: s, s sizes
    kMoreCtlTimeLeft,     // progress: s time
    kMoreCtlFilesOf,      // progress: ld, ld
    kMoreCtlHelpProgram,  // help of the command line, from here on
    kMoreCtlHelpHelp,
    kMoreCtlHelpUsage,  // labels of the help
    kMoreCtlHelpOptions,
    kMoreCtlHelpArguments,
    kMoreCtlHelpCommands,
    kMoreCtlHelpRequired,
    kMoreCtlHelpJson,
    kMoreCtlHelpVerbose,
    kMoreCtlHelpPasswordFd,
    kMoreCtlHelpBackup,
    kMoreCtlHelpSources,
    kMoreCtlHelpTarget,
    kMoreCtlHelpCompress,
    kMoreCtlHelpTitle,
    kMoreCtlHelpHold,
    kMoreCtlHelpProtect,
    kMoreCtlHelpBackupNotes,
    kMoreCtlHelpWhichBackup,
    kMoreCtlHelpList,
    kMoreCtlHelpBrowse,
    kMoreCtlHelpBrowsePath,
    kMoreCtlHelpFind,
    kMoreCtlHelpFindText,
    kMoreCtlHelpFindMax,
    kMoreCtlHelpRestore,
    kMoreCtlHelpRestorePath,
    kMoreCtlHelpRestoreTo,
    kMoreCtlHelpOverwrite,
    kMoreCtlHelpRestoreNotes,
    kMoreCtlHelpVerify,
    kMoreCtlHelpDelete,
    kMoreCtlHelpWithData,
    kMoreCtlHelpYes,
    kMoreCtlHelpJobs,
    kMoreCtlHelpWhichJob,
    kMoreCtlHelpPause,
    kMoreCtlHelpContinue,
    kMoreCtlHelpAbort,
    kMoreCtlHelpReports,
    kMoreCtlHelpReport,
    kMoreCtlHelpWhichReport,
    kMoreCtlHelpExamples,
    kMoreQuickBackup,          // title of its alerts
    kMoreVolumeFullness,       // s used, s capacity, d percent
    kMoreCtlHelpIncremental,   // backupctl
    kMoreCtlHelpDifferential,  // backupctl
    kMoreCtlNoPaths,           // backupctl
    kMoreCtlPathsOfBase,       // backupctl
    kMoreCtlProtectionOfBase,  // backupctl
    kMoreCtlCompareTitle,      // s the backup's title
    kMoreCtlBadCompareItem,    // s the word
    kMoreCtlHelpCompare,       // backupctl
    kMoreCtlHelpComparePath,   // backupctl
    kMoreCtlHelpCompareOnly,   // backupctl
    kMoreRunsSoon,             // when a job runs next
    kMoreRunsNever,            // when a job runs next
    kMoreRunsNext,             // s "in 3 hours", s "today, 18:00"
    kMoreInAMinute,            // when a job runs next, to kMoreInDays
    kMoreInMinutes,
    kMoreInHours,
    kMoreInDays,
    kMoreToday,  // days beside a time of day
    kMoreTomorrow,
    kMoreDayAt,        // s the day, s the time
    kMoreNotRepeated,  // how often a job runs, to kMoreNotOn
    kMoreEveryMonth,
    kMoreEveryWeek,
    kMoreEveryDay,
    kMoreEveryHour,
    kMoreEveryMinute,
    kMoreEvery,  // s "2 days, 12 hours"
    kMoreOneMonth,
    kMoreMonths,
    kMoreOneDay,
    kMoreDays,
    kMoreOneHour,
    kMoreHours,
    kMoreOneMinute,
    kMoreMinutes,
    kMoreNotOn,          // s weekdays
    kMoreNeverRuns,      // line of a report
    kMoreOverdueSince,   // line of a report: s the job, s when
    kMoreOverdueEver,    // line of a report: s the job, s when
    kMoreKeptAwake,      // line of a report
    kMoreNoJobs,         // empty list of the job queue
    kMoreNextJob,        // s title, s when, from RunsNextText
    kMoreJobNotEdited,   // it started, or went
    kMoreColumnsShown,   // group of the job queue's settings
    kMoreCtlScheduleOf,  // s the job's number, s when next, s how often
    kMoreCtlScheduleNow,
    kMoreCtlBadTime,            // s what was typed
    kMoreCtlBadDate,            // s what was typed
    kMoreCtlBadInterval,        // s what was typed
    kMoreCtlBadWeekday,         // s what was typed
    kMoreCtlHelpSchedule,       // backupctl
    kMoreCtlHelpScheduleAt,     // backupctl
    kMoreCtlHelpScheduleOn,     // backupctl
    kMoreCtlHelpScheduleEvery,  // backupctl
    kMoreCtlHelpScheduleNotOn,  // backupctl
    kMoreCtlHelpScheduleNone,   // backupctl
    kMoreCtlHelpQueue,          // backupctl
    kMoreCtlHelpQueueAction,    // backupctl
    kMoreCtlHelpWatch,          // backupctl
    kMoreCtlHelpFollow,         // backupctl
    kMoreCtlNoReportNumber,     // s what was typed
    kMoreSaveReport,            // title of an alert
    kMorePrintReport,           // title of an alert
    kMoreDeleteReport,          // title of an alert
    kMoreReportSettings,        // title of a window
    kMoreDayCount,              // title of an alert
    kMoreReportCount,           // title of an alert
    kMorePageSetup,             // menu of the reports
    kMoreReportNotSaved,        // s the file
    kMoreReportNotPrinted,
    kMorePrintingPage,          // ld
    kMoreNoReports,             // list of reports, when there are none
    kMoreNoReportOpen,          // in place of a report
    kMoreReportFetching,        // in place of a report
    kMoreReportGone,            // in place of a report
    kMoreReportEmpty,           // in place of a report
    kMoreReportUnread,          // in place of a report
    kMoreNoProblems,            // of a report
    kMoreProblems,              // of a report, ld
    kMoreProblemOf,             // of a report, ld, ld
    kMoreLinesHidden,           // of a report, ld
    kMorePreviousProblem,       // button of a report
    kMoreNextProblem,           // button of a report
    kMoreFindInReport,          // field
    kMoreNotFound,              // answer of a search
    kMoreCopy,                  // menu of a text
    kMoreDeleteReportsWhen,     // label
    kMoreDaysUnit,              // unit: older than ... days
    kMoreReportsUnit,           // unit: more than ... reports
    kMoreFoundBackups,          // spoken name of the list in the insert window
    kMoreInsertHint,            // insert window
    kMoreLookAgain,             // button of the insert window
    kMoreInsertNoPlace,         // insert window, before a place is chosen
    kMoreInsertScanning,        // insert window
    kMoreInsertNothingFound,    // insert window
    kMoreInsertCount,           // ld found, ld marked
    kMoreInsertNotThere,        // ld
    kMorePasswordOfBase,        // hint of the start dialog
    kMoreNextRun,               // scheduler: s when, s how often
    kMoreScheduleUnreadable,    // scheduler
    kMoreNoticeGood,            // a job's end on the desktop, after its type
    kMoreNoticeErrors,          // the same
    kMoreNoticeAbnormal,        // the same
    kMoreNoticeOverdue,         // the same, of a repeating job
    kMoreShowReport,            // button of a notice
    kMoreNoticeServerGone,      // notice on the desktop
    kMoreNoticeServerGoneMore,  // its second line
    kMoreCtlNoDirectory,        // s path
    kMoreCtlNoneFound,          // s path
    kMoreCtlNotOnMedium,        // s what was named, s path
    kMoreCtlFoundProtected,     // of a backup in a list
    kMoreCtlFoundKnown,         // the same
    kMoreCtlInsertTitle,        // s path
    kMoreCtlInserted,           // s name of the backup
    kMoreCtlHelpScan,           // backupctl
    kMoreCtlHelpInsert,         // backupctl
    kMoreCtlHelpScanDir,        // backupctl
    kMoreCtlHelpInsertWhich,    // backupctl
    kMoreCtlHelpInsertNotes,    // backupctl
    kMoreSearching,             // state of the report tool
    kMoreEnd
};

inline constexpr int32_t kMoreTextCount = kMoreEnd - kFirstMoreText;
extern const std::array<const char*, kMoreTextCount> kMoreTextTable;

}  // namespace core
