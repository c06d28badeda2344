// Codes that never leave the client: what its menus, tool bar, application object and main window
// say to each other. Codes of one tool's controls stand with the tool; all of them are listed in
// `kInternalCodes`, so that none is taken from the wire.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "kit/message/Types.h"

namespace client::code {

// --- tools; "ref" (entry_ref) opens a file in it ------------------------------------------------
inline constexpr uint32_t kBackupTool = "bavw"_code;
inline constexpr uint32_t kRestoreTool = "rsvw"_code;
inline constexpr uint32_t kJobQueueTool = "jqvw"_code;
inline constexpr uint32_t kReportTool = "rpvw"_code;
inline constexpr uint32_t kCompareTool = "cpvw"_code;
inline constexpr uint32_t kQuickBackupTool = "qbvw"_code;

// --- main window --------------------------------------------------------------------------------
inline constexpr uint32_t kHelp = "hlps"_code;
inline constexpr uint32_t kShowStatus = "bsts"_code;
inline constexpr uint32_t kRestartWithLastTool = "last"_code;
inline constexpr uint32_t kAutoprefs = "paut"_code;
inline constexpr uint32_t kSavePrefs = "psav"_code;
inline constexpr uint32_t kLanguage = "lang"_code;  // "language" (string)
inline constexpr uint32_t kToolBarNone = "tbno"_code;
inline constexpr uint32_t kToolBarIcons = "tbio"_code;
inline constexpr uint32_t kToolBarTexts = "tbto"_code;
inline constexpr uint32_t kToolBarBeside = "tbit"_code;  // icon with text beside it
inline constexpr uint32_t kToolBarAbove = "tbi2"_code;   // icon above text

// --- the current tool ---------------------------------------------------------------------------
inline constexpr uint32_t kSelectAll = "sall"_code;
inline constexpr uint32_t kSelectNone = "sclr"_code;
inline constexpr uint32_t kLoadJob = "lsel"_code;
inline constexpr uint32_t kSaveJob = "ssel"_code;

// --- to the main window -------------------------------------------------------------------------
// Shows the report tool and opens a report in it: "report_id" (int32). One that is not there any
// more is said to be gone.
inline constexpr uint32_t kShowReport = "RPSH"_code;

// --- from the restore tool to its open start dialog ---------------------------------------------
// Where the first selected item will be: "source" (its place in the backup) and "target" (the full
// path it gets; empty when nothing can be said).
inline constexpr uint32_t kRestoreLanding = "rslp"_code;

// --- from the application object to the main window, which hands the first two to every view -----
// The server's process is gone: its running jobs have ended abnormally, lists may be out of date.
inline constexpr uint32_t kServerGone = "svgo"_code;
// There is a server again (maybe another process): lists are to be fetched anew.
inline constexpr uint32_t kServerBack = "svbk"_code;
// The user started something, and no server could be found or launched.
inline constexpr uint32_t kServerMissing = "svno"_code;
// Comes to the front: another copy was started, or a file was opened.
inline constexpr uint32_t kRaise = "rais"_code;

inline constexpr auto kInternalCodes = [] {
    std::array codes = {
        kBackupTool, kRestoreTool, kJobQueueTool, kReportTool, kCompareTool, kQuickBackupTool,
        kHelp, kShowStatus, kRestartWithLastTool, kAutoprefs, kSavePrefs, kLanguage, kToolBarNone,
        kToolBarIcons, kToolBarTexts, kToolBarBeside, kToolBarAbove, kSelectAll, kSelectNone,
        kLoadJob, kSaveJob, kServerGone, kServerBack, kServerMissing, kRaise, "_ABR"_code,
        // selection views
        " EDU"_code, "NDMN"_code, "lpcl"_code, "spcl"_code, "dset"_code, "news"_code, "crnw"_code,
        "pset"_code, "sset"_code, "mode"_code, "sbak"_code,
        // backup
        "bsqt"_code, "bsp1"_code, "bsp2"_code, "rsav"_code, "pweq"_code, "swqt"_code,
        // restore
        "resq"_code, "reiq"_code, "ricl"_code, "rdcl"_code, "rssc"_code, "rssl"_code, "rssq"_code,
        "rsda"_code, "rsAO"_code, "rsCR"_code, "rsDV"_code, "rsED"_code, "rsOV"_code, "rsIN"_code,
        "rsSE"_code, "rsST"_code, "RSCA"_code, "RSCR"_code, "RSDE"_code, "RSGI"_code, "RSGQ"_code,
        "RSID"_code, "RSQR"_code, "RSRD"_code, "inqy"_code, kRestoreLanding, "KTDD"_code,
        "KTSD"_code, " CER"_code, "DATA"_code, "ldan"_code, "rsul"_code, "rsvl"_code,
        // compare
        "cmpq"_code, "cmsc"_code, "cmse"_code, "cmsq"_code, "cmst"_code, "cmal"_code, "cmpw"_code,
        // reports
        "RCLR"_code, "RPRN"_code, "RSAV"_code, "RSET"_code, "RWQT"_code, "RFLT"_code, "RFON"_code,
        "RFSZ"_code, "RPGS"_code, "RPOR"_code, "RPSA"_code, kShowReport, "drqt"_code, "decn"_code,
        "dedy"_code, "denb"_code, "denv"_code, "deol"_code, "deov"_code, "slch"_code,
        // status
        "svrm"_code, "stac"_code, "stao"_code, "stfw"_code, "strd"_code, "stri"_code,
        // job queue and scheduler
        "JQch"_code, "JQco"_code, "JQdl"_code, "JQed"_code, "JQpa"_code, "JQsa"_code, "JQsq"_code,
        "jqab"_code, "JQst"_code, "jqbq"_code, "DATE"_code, "TIME"_code, "REPE"_code, "EXCL"_code,
        // dialog frames and lists
        "btn0"_code, "btn1"_code, "btn2"_code, " ok "_code, "_CNC"_code, "clrn"_code};
    std::ranges::sort(codes);
    return codes;
}();

constexpr bool IsInternal(uint32_t code) {
    return std::ranges::binary_search(kInternalCodes, code);
}

}  // namespace client::code
