// What the product is called, and its version as start view and about box write it.
#pragma once

namespace client {

inline constexpr char kProductName[] = "Velmora Backup";
inline constexpr char kMaker[] = "Velmora Software";
inline constexpr char kCopyright[] =
    "Copyright (c) 2026 The Velmora Backup developers\nMIT License";
inline constexpr char kDesktopFile[] = "velmora-backup";
inline constexpr char kNoServerText[] =
    "ERROR: Can't start Backup Server! Failed to find program 'BackupServer'.";
inline constexpr int kMajorVersion = 1;
inline constexpr int kMinorVersion = 2;
inline constexpr char kBuildDate[] = "29.12.2003";

}  // namespace client
