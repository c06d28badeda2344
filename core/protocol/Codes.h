// Every message code that travels between client, server and command line, in one place.
// docs/protocol.md lists the same codes with their fields; a test holds the two against each other.
#pragma once

#include <cstdint>

#include "kit/message/Types.h"

namespace core::code {

// --- to the server ------------------------------------------------------------------------------
inline constexpr uint32_t kRegisterClient = "KTAD"_code;
inline constexpr uint32_t kSubmitJob = "KTJA"_code;
inline constexpr uint32_t kAcceptStatus = "KTAB"_code;
inline constexpr uint32_t kContinueJob = "KTJC"_code;
inline constexpr uint32_t kPauseJob = "KTJP"_code;
inline constexpr uint32_t kDeleteJob = "KTJD"_code;  // with "flag" 1: abort
inline constexpr uint32_t kStartJobNow = "KTbg"_code;
inline constexpr uint32_t kEditJob = "KTje"_code;
inline constexpr uint32_t kListJobs = "KTJL"_code;
inline constexpr uint32_t kGetJob = "KTjg"_code;
inline constexpr uint32_t kSetJob = "KTjs"_code;
inline constexpr uint32_t kListCatalogue = "KTLR"_code;
inline constexpr uint32_t kFindEntries = "KTfd"_code;
inline constexpr uint32_t kScanMedium = "ktvs"_code;
inline constexpr uint32_t kDeleteBackups = "KTxX"_code;
inline constexpr uint32_t kPassword = "ktpc"_code;
inline constexpr uint32_t kListReports = "rpGL"_code;
inline constexpr uint32_t kOpenReport = "rpOP"_code;
inline constexpr uint32_t kCloseReport = "rpCL"_code;
inline constexpr uint32_t kDeleteReports = "rpDL"_code;
inline constexpr uint32_t kGetReportDeletion = "rpDG"_code;
inline constexpr uint32_t kReportDeletion = "rpDS"_code;  // sets it; also the answer to 'rpDG'

// --- to the client ------------------------------------------------------------------------------
inline constexpr uint32_t kJobInserted = "KTJI"_code;
inline constexpr uint32_t kJobRemoved = "KTJR"_code;
inline constexpr uint32_t kJobChanged = "KTjc"_code;
inline constexpr uint32_t kJobStarted = "KTJS"_code;
inline constexpr uint32_t kJobProgress = "KTJF"_code;
inline constexpr uint32_t kJobFinished = "KTJf"_code;
inline constexpr uint32_t kCatalogue = "KTLi"_code;
inline constexpr uint32_t kBackupRemoved = "KTLr"_code;
inline constexpr uint32_t kScanResult = "ktvd"_code;
inline constexpr uint32_t kPasswordResult = "ktpr"_code;
inline constexpr uint32_t kReportInserted = "rpIN"_code;
inline constexpr uint32_t kReportRemoved = "rpRM"_code;
inline constexpr uint32_t kReportText = "rpRP"_code;
inline constexpr uint32_t kUnusedCr = "ktcr"_code;
inline constexpr uint32_t kUnusedAr = "ktar"_code;

// --- answers ------------------------------------------------------------------------------------
inline constexpr uint32_t kNone = "NONE"_code;  // no data; not an error
inline constexpr uint32_t kFoundEntries = "KTfe"_code;
inline constexpr uint32_t kAreaRead = "xxxx"_code;  // a shared area was read

}  // namespace core::code

namespace core {

inline constexpr char kClientSignature[] = "application/x-vnd.velmoraware-backup";
inline constexpr char kServerSignature[] = "application/x-vnd.velmoraware-backupserver";
inline constexpr char kCommandLineSignature[] = "application/x-vnd.velmoraware-backupctl";

enum class JobType : int32_t {
    Full = 1,
    Incremental = 2,
    Differential = 3,
    Restore = 4,
    Compare = 5,
    Insert = 6,
    Verify = 1000,  // reads a backup through and writes nothing; our own
};
constexpr bool IsKnownJobType(int32_t type) {
    return (type >= 1 && type <= 6) || type == static_cast<int32_t>(JobType::Verify);
}
constexpr bool IsBackup(JobType type) {
    return type <= JobType::Differential;
}

enum class JobStatus : int32_t { Waiting = 1, Running = 2, Paused = 3, Edited = 4 };

// "status" of 'KTJf'.
enum class JobEnd : int32_t { Good = 0, Aborted = 1, Errors = 2, Abnormal = 3 };

}  // namespace core
