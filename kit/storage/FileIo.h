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

// Replaces `path` so that a reader sees the old file or the whole new one: written beside, mode 0600,
// synced, renamed, the folder synced. On failure the old file is as it was and nothing is left behind.
// `prepare` may set attributes on the new file before it gets its name.
Status ReplaceFile(const std::string& path, std::span<const uint8_t> data,
                   const std::function<Status(const std::string& temporary)>& prepare = {});

}  // namespace kit
