// backup.json: what a backup is, for whoever finds it on a medium. docs/archive.md has the fields.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "kit/message/Types.h"
#include "kit/support/Result.h"

namespace server::archive {

struct ManifestVolume {
    std::string name;        // bytes
    std::string mountPoint;  // bytes
    std::string fileSystem;
    bool operator==(const ManifestVolume&) const = default;
};

struct ManifestMedium {
    std::string file;
    int64_t size = 0;
    std::string sha256;  // 64 hexadecimal digits
    int32_t disc = 1;    // the one that it lies on
    bool operator==(const ManifestMedium&) const = default;
};

struct Manifest {
    std::string name;
    std::string title;
    core::JobType type = core::JobType::Full;
    int32_t jobId = 0;
    int32_t baseId = 0;                 // 0: none
    std::string baseBackup;             // name of the backup it is built on, "" for none
    std::vector<std::string> buildsOn;  // all that it needs besides itself, the oldest first
    int64_t start = 0, end = 0;         // seconds since the epoch
    std::string host;
    std::vector<ManifestVolume> volumes;
    std::vector<std::string> selection;  // the rules; empty where it does not say
    std::string compressor;              // the add-on
    std::string stockCommand;            // that unpacks a medium to stdout, "" for none
    bool isProtected = false;
    std::vector<ManifestMedium> media;
    int32_t discs = 1;    // the last one holds everything but the media of those before
    int64_t entries = 0;  // everything in the tree
    int64_t files = 0;    // not directories
    int64_t bytes = 0;    // of file data
    int64_t errors = 0;   // what could not be saved as it should
    bool operator==(const Manifest&) const = default;
};

Bytes WriteManifest(const Manifest& manifest);
// Total: Damaged for what is no manifest, Unsupported for one of a later format version.
// What is known of a backup on several discs when the folders of all lie in one: it is on one disc.
void GatherDiscs(Manifest* manifest);

kit::Result<Manifest> ReadManifest(std::span<const uint8_t> json);

}  // namespace server::archive
