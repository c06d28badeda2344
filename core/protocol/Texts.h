// Text ids that code refers to by name. The table itself is core/locale/TextTable.cpp (0 to 327);
// our own additions (from 1000) are core/locale/MoreTexts.h. Ids are part of the protocol: never
// renumbered.
//
// A text with placeholders has its arguments in the comment: they are what a report line must hold,
// in that order (d, x: 16-bit, ld: 32-bit, Ld: 64-bit integer; f: double; s: string). The ids 4 and
// 46 hold no text.
#pragma once

#include <cstdint>

namespace core::text {

// --- words of alerts and dialogs ----------------------------------------------------------------
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kCancel = 1;
inline constexpr int32_t kContinue = 74;
inline constexpr int32_t kDescription = 93;
inline constexpr int32_t kPassword = 94;
inline constexpr int32_t kSubmitOnHold = 95;
inline constexpr int32_t kPasswordProblem = 96;
inline constexpr int32_t kPrint = 97;
inline constexpr int32_t kSettings = 98;
inline constexpr int32_t kDelete = 99;
inline constexpr int32_t kSelectAll = 100;
inline constexpr int32_t kClearAll = 101;
inline constexpr int32_t kYes = 184;
inline constexpr int32_t kNo = 185;

// --- report: backup -----------------------------------------------------------------------------
inline constexpr int32_t kMediumFull = 2;       // ld number, s destination
inline constexpr int32_t kDestinationFull = 3;  // s destination
inline constexpr int32_t kLogNotWritten = 5;    // s path
inline constexpr int32_t kLogNoMemory = 6;
inline constexpr int32_t kLogPathProblem = 7;   // s path
inline constexpr int32_t kLogNotCreated = 8;    // s path
inline constexpr int32_t kFilesSaved = 9;       // ld
inline constexpr int32_t kMegabytesSaved = 10;  // f
inline constexpr int32_t kKilobytesSaved = 11;  // f
inline constexpr int32_t kBytesSaved = 12;      // ld
inline constexpr int32_t kTimeTaken = 13;       // ld hours, ld minutes, ld seconds
inline constexpr int32_t kSpeedMegabytes = 14;  // f
inline constexpr int32_t kSpeedKilobytes = 15;  // f
inline constexpr int32_t kSpeedBytes = 16;      // ld
inline constexpr int32_t kBackupGood = 17;
inline constexpr int32_t kBackupAborted = 18;
inline constexpr int32_t kWriteErrorSymlink = 19;  // s destination, s link
inline constexpr int32_t kWriteErrorFile = 20;     // s destination, s file
inline constexpr int32_t kWriteErrorHeader = 21;   // s destination, s file
inline constexpr int32_t kAddOnNotLoaded = 22;     // s add-on
inline constexpr int32_t kAddOnCorrupt = 23;       // s add-on
inline constexpr int32_t kStartingBackup = 24;     // s title
inline constexpr int32_t kDestinationIs = 25;      // s
inline constexpr int32_t kCapacityIs = 26;         // ld megabytes
inline constexpr int32_t kFreeSpaceIs = 27;        // ld megabytes
inline constexpr int32_t kRemovableYes = 28;
inline constexpr int32_t kRemovableNo = 29;
inline constexpr int32_t kOverwriteDestinationYes = 30;
inline constexpr int32_t kOverwriteDestinationNo = 31;
inline constexpr int32_t kBackupModeIs = 32;  // s
inline constexpr int32_t kStartIs = 33;       // s
inline constexpr int32_t kNoMemory = 34;
inline constexpr int32_t kNoBufferMemory = 35;
inline constexpr int32_t kDestinationNoAccess = 36;  // s
inline constexpr int32_t kNoDestination = 37;
inline constexpr int32_t kDestinationReadOnly = 38;
inline constexpr int32_t kDeletingBackup = 39;  // s title, s id, s date
inline constexpr int32_t kDeletingMedium = 40;  // s title, ld medium, s id, s date
inline constexpr int32_t kScanningSources = 41;
inline constexpr int32_t kNothingToBackUp = 42;
inline constexpr int32_t kNotEnoughSpace = 43;  // s destination
inline constexpr int32_t kDestinationNotWritable = 44;
inline constexpr int32_t kSpaceNeeded = 45;  // Ld needed, Ld available
inline constexpr int32_t kMediaChangeNote = 47;
inline constexpr int32_t kBackupData = 48;
inline constexpr int32_t kBackupDataToMedium = 49;  // ld number
inline constexpr int32_t kNoDatabase = 50;
inline constexpr int32_t kInsertMedium = 51;  // s title, ld number
inline constexpr int32_t kMediumLoaded = 52;  // s title, ld number

// --- report: restore ----------------------------------------------------------------------------
inline constexpr int32_t kBackupMissing = 53;           // s backup
inline constexpr int32_t kBackupHeaderUnreadable = 54;  // s backup
inline constexpr int32_t kNothingToRestore = 55;
inline constexpr int32_t kNewerVersionNeeded = 56;  // s backup, x major, x minor
inline constexpr int32_t kStartingRestore = 57;     // s title
inline constexpr int32_t kOverwriteOlder = 58;
inline constexpr int32_t kOverwriteRename = 59;
inline constexpr int32_t kOverwriteYes = 60;
inline constexpr int32_t kOverwriteNo = 61;
inline constexpr int32_t kEmptyDirectoriesYes = 62;
inline constexpr int32_t kEmptyDirectoriesNo = 63;
inline constexpr int32_t kRootDirectoryYes = 64;
inline constexpr int32_t kRootDirectoryNo = 65;
inline constexpr int32_t kTargetNotCreated = 66;   // s
inline constexpr int32_t kNotReadFromBackup = 67;  // s
inline constexpr int32_t kFilesRestored = 68;      // ld
inline constexpr int32_t kMegabytesRestored = 69;  // f
inline constexpr int32_t kKilobytesRestored = 70;  // f
inline constexpr int32_t kBytesRestored = 71;      // ld
inline constexpr int32_t kRestoreGood = 72;
inline constexpr int32_t kRestoreAborted = 73;
inline constexpr int32_t kRenameFailedFile = 75;           // s
inline constexpr int32_t kRenameFailedSymlink = 76;        // s
inline constexpr int32_t kExistingFileNotRenamed = 77;     // s
inline constexpr int32_t kExistingSymlinkNotRenamed = 78;  // s
inline constexpr int32_t kFileNotOverwritten = 79;         // s
inline constexpr int32_t kSymlinkNotOverwritten = 80;      // s
inline constexpr int32_t kFileNotCreated = 81;             // s, ld error
inline constexpr int32_t kSymlinkNotCreated = 82;          // s, ld error
inline constexpr int32_t kDirectoryNotCreated = 83;        // s, ld error
inline constexpr int32_t kDirectoryExists = 84;            // s
inline constexpr int32_t kFileNotRestored = 85;            // s, ld block
inline constexpr int32_t kFileDataUnreadable = 86;         // s, ld block
inline constexpr int32_t kFileHeaderUnreadable = 87;       // s, ld block
inline constexpr int32_t kFileDataMismatch = 88;           // s, ld block
inline constexpr int32_t kSymlinkNotRestored = 89;         // s
inline constexpr int32_t kSymlinkUnreadable = 90;          // s
inline constexpr int32_t kSymlinkHeaderUnreadable = 91;    // s
inline constexpr int32_t kSymlinkDataMismatch = 92;        // s

// --- report view and report settings ------------------------------------------------------------
inline constexpr int32_t kNoReportToDelete = 102;
inline constexpr int32_t kDeleteReports = 103;
inline constexpr int32_t kDeleteReportsQuestion = 104;
inline constexpr int32_t kNoReportToSave = 105;
inline constexpr int32_t kNoReportToPrint = 106;
inline constexpr int32_t kTitle = 107;
inline constexpr int32_t kType = 108;
inline constexpr int32_t kDate = 109;
inline constexpr int32_t kId = 110;
inline constexpr int32_t kReportText = 111;
inline constexpr int32_t kFont = 112;
inline constexpr int32_t kSize = 113;
inline constexpr int32_t kVolumes = 114;
inline constexpr int32_t kDirectories = 115;
inline constexpr int32_t kFiles = 116;
inline constexpr int32_t kFilter = 117;
inline constexpr int32_t kNever = 118;
inline constexpr int32_t kOlderThan = 119;
inline constexpr int32_t kMoreThan = 120;
inline constexpr int32_t kReports = 121;
inline constexpr int32_t kWhenBackupDeleted = 122;
inline constexpr int32_t kWrongDayCount = 123;
inline constexpr int32_t kWrongReportCount = 124;

// --- status window ------------------------------------------------------------------------------
inline constexpr int32_t kStatusLabel = 125;
inline constexpr int32_t kScanningDirectories = 126;
inline constexpr int32_t kFilesReadLabel = 127;
inline constexpr int32_t kFilesRestoredLabel = 128;
inline constexpr int32_t kFilesComparedLabel = 129;
inline constexpr int32_t kFilesProcessedLabel = 130;
inline constexpr int32_t kFilesToReadLabel = 131;
inline constexpr int32_t kBytesReadLabel = 132;
inline constexpr int32_t kBytesRestoredLabel = 133;
inline constexpr int32_t kBytesComparedLabel = 134;
inline constexpr int32_t kBytesProcessedLabel = 135;
inline constexpr int32_t kBytesToReadLabel = 136;
inline constexpr int32_t kTimeElapsedLabel = 137;
inline constexpr int32_t kTimeRemainLabel = 138;
inline constexpr int32_t kBackup = 139;
inline constexpr int32_t kRestore = 140;
inline constexpr int32_t kCompare = 141;
inline constexpr int32_t kProcess = 142;
inline constexpr int32_t kNoTitle = 143;
inline constexpr int32_t kBackupVolume = 144;   // s
inline constexpr int32_t kRestoreVolume = 145;  // s
inline constexpr int32_t kCompareVolume = 146;  // s
inline constexpr int32_t kWorkOnVolume = 147;   // s
inline constexpr int32_t kJobSuccessful = 148;
inline constexpr int32_t kJobCanceled = 149;
inline constexpr int32_t kJobEndedWithErrors = 150;
inline constexpr int32_t kJobAbnormalEnd = 151;
inline constexpr int32_t kShowOnNewJob = 152;
inline constexpr int32_t kCloseWhenEmpty = 153;
inline constexpr int32_t kRemoveFinished = 154;
inline constexpr int32_t kRemoveDelay = 155;
inline constexpr int32_t kSeconds = 156;
inline constexpr int32_t kFollowMainWindow = 157;
inline constexpr int32_t kWrongDelay = 158;

// --- report: insert -----------------------------------------------------------------------------
inline constexpr int32_t kStartingInsert = 160;    // s title
inline constexpr int32_t kInsertLastMedium = 161;  // s backup
inline constexpr int32_t kBackupsToInsert = 162;   // d
inline constexpr int32_t kInsertingBackup = 163;   // s backup, s medium
inline constexpr int32_t kNothingToInsert = 164;
inline constexpr int32_t kFilesInserted = 165;      // ld
inline constexpr int32_t kMegabytesInserted = 166;  // f
inline constexpr int32_t kKilobytesInserted = 167;  // f
inline constexpr int32_t kBytesInserted = 168;      // ld
inline constexpr int32_t kInsertGood = 169;
inline constexpr int32_t kInsertAborted = 170;
inline constexpr int32_t kInsertVolume = 171;  // s
inline constexpr int32_t kQuickIndexFailed = 172;
inline constexpr int32_t kBackupEndedUnexpected = 173;

// --- backup tool --------------------------------------------------------------------------------
inline constexpr int32_t kDestination = 159;
inline constexpr int32_t kFull = 174;
inline constexpr int32_t kIncremental = 175;
inline constexpr int32_t kDifferential = 176;
inline constexpr int32_t kNothingSelectedToBackUp = 177;
inline constexpr int32_t kNoBaseJobSelected = 178;
inline constexpr int32_t kCompression = 179;
inline constexpr int32_t kNone = 180;
inline constexpr int32_t kScheduler = 181;
inline constexpr int32_t kStartBackup = 182;
inline constexpr int32_t kOverwriteBackupsQuestion = 183;  // s medium
inline constexpr int32_t kStartJobAt = 186;

// --- main window --------------------------------------------------------------------------------
inline constexpr int32_t kHelpNotLoaded = 187;  // s path
inline constexpr int32_t kFile = 188;
inline constexpr int32_t kAbout = 189;
inline constexpr int32_t kHelp = 190;
inline constexpr int32_t kJobSettings = 191;
inline constexpr int32_t kLoad = 192;
inline constexpr int32_t kSelection = 193;
inline constexpr int32_t kAll = 194;
inline constexpr int32_t kClear = 195;
inline constexpr int32_t kQuit = 196;
inline constexpr int32_t kPreferences = 197;
inline constexpr int32_t kRunningJobsWindow = 198;
inline constexpr int32_t kRestartWithLastTool = 199;
inline constexpr int32_t kAutoprefs = 200;
inline constexpr int32_t kSave = 201;
inline constexpr int32_t kQuickBackup = 202;
inline constexpr int32_t kJobQueue = 203;
inline constexpr int32_t kRunningJobs = 204;
inline constexpr int32_t kStatusWindowSettings = 205;
inline constexpr int32_t kLanguage = 269;
inline constexpr int32_t kLanguageChangeNote = 270;
inline constexpr int32_t kToolbar = 271;
inline constexpr int32_t kIconOnly = 272;
inline constexpr int32_t kTextOnly = 273;
inline constexpr int32_t kIconAndText = 274;
inline constexpr int32_t kIconOverText = 275;
inline constexpr int32_t kTools = 276;

// --- restore tool -------------------------------------------------------------------------------
inline constexpr int32_t kInsert = 206;
inline constexpr int32_t kStartRestore = 207;
inline constexpr int32_t kRestoreSettings = 208;
inline constexpr int32_t kInsertBackup = 209;
inline constexpr int32_t kInsertStart = 210;
inline constexpr int32_t kNothingSelectedToInsert = 211;
inline constexpr int32_t kNoBackupToDelete = 212;
inline constexpr int32_t kNothingSelectedToRestore = 213;
inline constexpr int32_t kDeleteBackupsQuestion = 214;
inline constexpr int32_t kDeleteBackupData = 215;
inline constexpr int32_t kOnlyOlder = 216;
inline constexpr int32_t kRename = 217;
inline constexpr int32_t kOverwriteFiles = 218;
inline constexpr int32_t kAsk = 219;
inline constexpr int32_t kCreateRootDirectory = 220;
inline constexpr int32_t kCreateEmptyDirectories = 221;
inline constexpr int32_t kShowPathlist = 222;
inline constexpr int32_t kRedirectTo = 223;
inline constexpr int32_t kName = 224;
inline constexpr int32_t kTargetType = 225;
inline constexpr int32_t kRedirect = 226;
inline constexpr int32_t kIncrementalBackup = 227;
inline constexpr int32_t kDifferentialBackup = 228;
inline constexpr int32_t kFullBackup = 229;
inline constexpr int32_t kKind = 230;
inline constexpr int32_t kDirectory = 231;
inline constexpr int32_t kSymbolicLink = 232;
inline constexpr int32_t kVolume = 233;
inline constexpr int32_t kPath = 234;
inline constexpr int32_t kClearRedirection = 235;
inline constexpr int32_t kClearAllRedirections = 236;
inline constexpr int32_t kGetInfo = 237;
inline constexpr int32_t kBackupLoaded = 325;  // s backup, s medium, ld number
inline constexpr int32_t kTypePassword = 327;

// --- job queue and scheduler --------------------------------------------------------------------
inline constexpr int32_t kStart = 238;
inline constexpr int32_t kPause = 239;
inline constexpr int32_t kAbort = 240;
inline constexpr int32_t kEdit = 241;
inline constexpr int32_t kJobQueueSettings = 242;
inline constexpr int32_t kDeleteJobsQuestion = 243;
inline constexpr int32_t kAbortJobsQuestion = 244;
inline constexpr int32_t kStartJobsQuestion = 245;
inline constexpr int32_t kStatus = 246;
inline constexpr int32_t kUnknown = 247;
inline constexpr int32_t kAt = 248;
inline constexpr int32_t kOn = 249;
inline constexpr int32_t kRunJob = 250;
inline constexpr int32_t kMonths = 251;
inline constexpr int32_t kDays = 252;
inline constexpr int32_t kHours = 253;
inline constexpr int32_t kMinutes = 254;
inline constexpr int32_t kSunday = 255;  // the other days of the week follow, up to kSaturday
inline constexpr int32_t kMonday = 256;
inline constexpr int32_t kTuesday = 257;
inline constexpr int32_t kWednesday = 258;
inline constexpr int32_t kThursday = 259;
inline constexpr int32_t kFriday = 260;
inline constexpr int32_t kSaturday = 261;
inline constexpr int32_t kRepeatInterval = 262;
inline constexpr int32_t kExcludeDays = 263;
inline constexpr int32_t kWrongNumber = 264;
inline constexpr int32_t kWrongTime = 265;
inline constexpr int32_t kWrongDate = 266;
inline constexpr int32_t kWaiting = 267;
inline constexpr int32_t kRunning = 268;

// --- report: lines whose words come from elsewhere ----------------------------------------------
inline constexpr int32_t kUnderscore = 277;
inline constexpr int32_t kLineColon = 278;  // s
inline constexpr int32_t kLine = 279;       // s: words that have no id of their own, English

// --- compare ------------------------------------------------------------------------------------
inline constexpr int32_t kStartCompare = 280;
inline constexpr int32_t kNothingSelectedToCompare = 281;
inline constexpr int32_t kStartingCompare = 282;  // s title
inline constexpr int32_t kNothingToCompare = 283;
inline constexpr int32_t kFileSizeDiffers = 284;    // s path, Ld backup, Ld source
inline constexpr int32_t kModifiedDiffers = 285;    // s path, s backup, s source
inline constexpr int32_t kCreatedDiffers = 286;     // s path, s backup, s source
inline constexpr int32_t kGroupDiffers = 287;       // s path, ld backup, ld source
inline constexpr int32_t kUserDiffers = 288;        // s path, ld backup, ld source
inline constexpr int32_t kPermissionsDiffer = 289;  // s path, s backup, s source
inline constexpr int32_t kSourceNoAccess = 290;     // s
inline constexpr int32_t kSymlinkDiffers = 291;     // s path, s backup, s source
inline constexpr int32_t kFilesCompared = 292;      // ld
inline constexpr int32_t kMegabytesCompared = 293;  // f
inline constexpr int32_t kKilobytesCompared = 294;  // f
inline constexpr int32_t kBytesCompared = 295;      // ld
inline constexpr int32_t kCompareGood = 296;
inline constexpr int32_t kCompareAborted = 297;
inline constexpr int32_t kAttributeSizeDiffers = 298;        // s path, s name, ld backup, ld source
inline constexpr int32_t kAttributeDataDiffers = 299;        // s path, s name
inline constexpr int32_t kAttributeUnreadable = 300;         // s path, s name
inline constexpr int32_t kAttributeInfoUnreadable = 301;     // s path, s name
inline constexpr int32_t kFileDataDiffers = 302;             // s
inline constexpr int32_t kSourceDataUnreadable = 303;        // s
inline constexpr int32_t kBackupDataUnreadable = 304;        // s
inline constexpr int32_t kBackupFileHeaderUnreadable = 305;  // s
inline constexpr int32_t kSelectCompareItems = 306;
inline constexpr int32_t kCompareAll = 307;
inline constexpr int32_t kCompareFileData = 308;
inline constexpr int32_t kCompareAttribute = 309;
inline constexpr int32_t kCompareFileSize = 310;
inline constexpr int32_t kCompareModified = 311;
inline constexpr int32_t kCompareCreated = 312;
inline constexpr int32_t kCompareSymlink = 313;
inline constexpr int32_t kComparePermissions = 314;
inline constexpr int32_t kCompareUser = 315;
inline constexpr int32_t kCompareGroup = 316;
inline constexpr int32_t kCompareSettings = 317;
inline constexpr int32_t kSelectedCompareItems = 318;
inline constexpr int32_t kSourceAttributeUnreadable = 319;  // s
inline constexpr int32_t kCompareErrors = 320;
inline constexpr int32_t kMiscompared = 321;     // ld
inline constexpr int32_t kReadErrors = 322;      // ld
inline constexpr int32_t kPackRatio = 323;       // f
inline constexpr int32_t kFileLocked = 324;      // s
inline constexpr int32_t kFileUnreadable = 326;  // s

}  // namespace core::text
