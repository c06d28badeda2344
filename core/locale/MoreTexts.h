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
    kMoreSchedulerLater,                   // in place of the scheduler
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
    kMoreInsertLater,        // in place of the insert dialog
    kMoreOldPlace,           // landing of a whole backup
    kMoreCatalogue,          // spoken name of the catalogue
    kMoreEnd
};

inline constexpr int32_t kMoreTextCount = kMoreEnd - kFirstMoreText;
extern const std::array<const char*, kMoreTextCount> kMoreTextTable;

}  // namespace core
