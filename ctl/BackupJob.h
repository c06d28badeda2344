// Makes the job for `backupctl backup` out of what stands on the command line.
#pragma once

#include <string>
#include <vector>

#include "core/protocol/Codes.h"
#include "kit/message/BMessage.h"
#include "kit/storage/BVolume.h"
#include "kit/support/Result.h"

namespace ctl {

// What a job covers, as rules in order.
struct Sources {
    std::vector<std::string> rules;
    std::vector<std::string> notes;  // what a user may not expect, in words
};
// Paths as typed, relative ones from the current directory. A link is saved as a link, unless a "/"
// follows it. Invalid: a path is not there, or on no volume that can be saved.
kit::Result<Sources> MapSources(const std::vector<std::string>& paths,
                                const std::vector<BVolume>& volumes);

struct Compression {
    std::string addon;
    int32_t level = 0;
};
// "none", "lz4", "zstd", "xz", or one of the last three with its level: "zstd:9".
kit::Result<Compression> ParseCompression(const std::string& text);

// An absolute path for a directory that need not be there yet.
std::string AbsoluteTarget(const std::string& path);

BMessage BackupJob(const Sources& sources, const std::string& target,
                   const Compression& compression, const std::string& title, bool onHold);

// The job saves what has changed since a backup of the set, and takes its selection and protection
// from there.
void BuildOn(BMessage& job, core::JobType type, int32_t setId);

// The backup is made unreadable without the password.
void Protect(BMessage& job, const std::string& password);

}  // namespace ctl
