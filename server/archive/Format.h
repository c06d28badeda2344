// Names and sizes of the format in which a backup lies on its destination. docs/archive.md
// describes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace server::archive {

inline constexpr int kFormatVersion = 1;

inline constexpr char kReadmeFile[] = "README.txt";  // beside the backups
inline constexpr char kManifestFile[] = "backup.json";
inline constexpr char kCatalogueFile[] = "catalogue.db.zst";
inline constexpr char kGoneFile[] = "gone.list";  // of one that builds on another
inline constexpr char kSumsFile[] = "SHA256SUMS";
inline constexpr char kKeyFile[] = "key.age";              // of a protected backup,
inline constexpr std::string_view kSealedSuffix = ".age";  // whose media and catalogue have it
inline constexpr std::string_view kPartialSuffix = ".partial";
inline constexpr std::string_view kPartSuffix = ".disc";  // and the disc's number

// The tar stream is cut into frames of at most this many bytes; before an entry that begins in the
// last quarter and would not end in it.
inline constexpr size_t kFrameSize = size_t{4} << 20;
inline constexpr size_t kFrameCutFrom = kFrameSize / 4 * 3;
// A medium holds at least one frame, whatever a compressor makes of it.
inline constexpr int64_t kMinMediaSize = int64_t{16} << 20;

inline constexpr size_t kTarBlock = 512;
inline constexpr size_t kTarRecord = 20 * kTarBlock;  // the stream's length is a multiple of it

// "20261122T201530-0000001a": the start in UTC and the job's id.
std::string BackupName(int64_t start, int32_t jobId);
bool IsBackupName(std::string_view folder);  // without any suffix
// What a backup's name says: the start in seconds since the epoch, 0 for an impossible one, and the
// job's id, 0 for one that no job has.
int64_t StartOfName(std::string_view name);
int32_t JobOfName(std::string_view name);
// "20261122T201530-0000001a.disc1": what of a backup lies on a disc (from 1) that it goes on
// behind.
std::string PartFolder(const std::string& name, int disc);
// The number of that disc; 0 for any other folder.
int DiscOfFolder(std::string_view folder);
// The name of the backup in this folder, whole, partial or a part; nothing for any other folder.
std::optional<std::string_view> BackupOfFolder(std::string_view folder);

// "0001.tar.zst"; media count from 1.
std::string MediumFile(int number, std::string_view compressorSuffix);
// The number and what follows ".tar" of such a file; nothing for any other.
struct MediumName {
    int number = 0;
    std::string_view suffix;  // ".zst", ".zst.age", …; a part of the name
};
std::optional<MediumName> ParseMediumFile(std::string_view file);

}  // namespace server::archive
