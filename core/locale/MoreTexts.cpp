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
    /* kMoreSchedulerLater */
    "The scheduler is part of a later version. This job starts as soon as there is room for it.",
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
};

}  // namespace core
