// Whole-file reading and safe replacing.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "kit/message/Types.h"
#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

namespace kit {

// The whole file, refused above `limit` bytes. Regular files only.
Result<Bytes> ReadFile(const std::string& path, size_t limit);
// Exactly all of `data`, whatever it takes.
Status WriteAll(int fd, std::span<const uint8_t> data, const std::string& path);

// A new content for a file, written beside it (mode 0600) and put in its place in one step, so that
// a reader sees the old file or the whole new one. Where `path` is a link, the file it leads to is
// replaced. Destroyed without Commit: the old file is as it was and nothing is left behind.
class FileReplacement {
public:
    // Refuses what a plain opening for writing would refuse too: a folder, a device, a file that
    // the user may not write.
    static Result<FileReplacement> Begin(const std::string& path);
    FileReplacement(FileReplacement&& other) noexcept;
    FileReplacement& operator=(FileReplacement&& other) = delete;
    ~FileReplacement();

    Status Write(std::span<const uint8_t> data);
    // The file under its passing name, for setting attributes.
    const std::string& TemporaryPath() const { return fTemporary; }
    // Syncs, renames, syncs the folder. Once.
    Status Commit();

private:
    FileReplacement() = default;
    std::string fPath, fTemporary;  // fTemporary is empty once there is nothing to remove
    UniqueFd fFile;
};

// All of the above at once. `prepare` may set attributes on the new file before it gets its name.
Status ReplaceFile(const std::string& path, std::span<const uint8_t> data,
                   const std::function<Status(const std::string& temporary)>& prepare = {});

}  // namespace kit
