// The rows of a backup's catalogue. docs/archive.md has the tables.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace server {

inline constexpr int kCatalogueVersion = 1;
inline constexpr int32_t kCatalogueRoot = 0;  // id of the directory that holds the volumes

struct CatalogueEntry {
    int32_t id = 0;     // stable within the backup: "index" in messages
    std::string name;   // bytes
    uint32_t mode = 0;  // type and rights, as stat has them
    uint32_t uid = 0, gid = 0;
    int64_t size = 0;         // bytes of a file, else 0
    int64_t modified = 0;     // nanoseconds since the epoch
    int64_t changed = 0;      // the same, of the status: nobody can set it
    int64_t frame = -1;       // where its header lies; -1 for a directory (see below)
    int64_t offset = 0;       // in the unpacked frame
    int32_t link = 0;         // the entry this one is a hard link to, 0: none
    uint64_t node = 0;        // its number in its file system when it was saved
    bool incomplete = false;  // could not be read as it should
};

// What a directory or volume has besides its entry. Children have consecutive ids in byte order of
// names.
struct CatalogueDirectory {
    int32_t id = 0;
    int32_t first = 0, count = 0;
    int64_t frame = -1;
    int64_t offset = 0;
};

// A backup that builds on others has the places of theirs, too: its own frames come after all of
// those.
struct CatalogueFrame {
    int64_t id = 0;       // from 0, in the order of the streams
    int32_t medium = 0;   // from 1
    int64_t offset = 0;   // on the medium
    int64_t size = 0;     // bytes there
    int64_t content = 0;  // bytes when unpacked
    uint64_t hash = 0;    // XXH3 of the content
    int32_t source = 0;   // the backup it lies in: its place in the chain
};

// What a backup is made of besides its tree.
struct CatalogueOrigin {
    // The backups that hold its data, the oldest first; it is the last one itself.
    std::vector<std::string> chain;
    std::vector<std::string> rules;  // its selection
};
inline constexpr size_t kMostInChain = 10'000;
inline constexpr size_t kMostRules = 1'000'000;  // of a selection

}  // namespace server
