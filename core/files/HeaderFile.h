// Files with a 100-byte header: eight characters that tell the kind, 92 zero bytes, then one
// flattened message. Settings, selections and jobs are such files. docs/formats.md has the table.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "kit/message/BMessage.h"
#include "kit/support/Result.h"

namespace core {

inline constexpr std::string_view kSettingsMagic = "KTBACKUP";
inline constexpr std::string_view kSelectionMagic = "KTSELECT";
inline constexpr std::string_view kBackupJobMagic = "KTBAKJOB";
inline constexpr std::string_view kRestoreJobMagic = "KTRESJOB";
inline constexpr std::string_view kCompareJobMagic = "KTCMPJOB";
inline constexpr std::string_view kRestoreSelectionMagic = "KTRESSEL";

inline constexpr char kBackupSelectionType[] = "application/x-vnd.velmoraware-backupselection";
inline constexpr char kRestoreSelectionType[] = "application/x-vnd.velmoraware-restoreselection";

enum class HeaderLoad : int32_t {
    Good = 0,
    CannotOpen = 1,
    ShortHeader = 2,
    WrongMagic = 3,
    Unreadable = 4,  // the body is no message
};
enum class HeaderSave : int32_t {
    Good = 0,
    CannotCreate = 1,
    HeaderNotWritten = 2,
    BodyNotWritten = 3,
};

// `message` changes only when the result is Good.
HeaderLoad LoadHeaderFile(const std::string& path, std::string_view magic, BMessage* message);
// Replaced whole or not at all (kit::ReplaceFile), mode 0600. Every field named "password", at any
// depth, is left out. `mimeType` is set as the file's type where one is given.
HeaderSave SaveHeaderFile(const std::string& path, std::string_view magic, const BMessage& message,
                          const char* mimeType = nullptr);

// The eight characters at the start of a file, "" when it has fewer: to tell what it is.
std::string MagicOf(const std::string& path);

// A copy without any field named "password", at any depth.
BMessage WithoutPasswords(const BMessage& message);

}  // namespace core
