// Copies a file's data into the stream: exactly as many bytes as were announced, whatever becomes
// of the file meanwhile.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "server/archive/TarMember.h"
#include "server/engine/FrameStream.h"

namespace server {

// Where the file has data, when it has holes worth leaving out; empty: it is to be copied as a
// whole. An extent of length 0 at the end says how long the file is.
std::vector<archive::Extent> FindExtents(int fd, int64_t size, int64_t allocated);

struct ContentResult {
    bool wentOn = true;     // false: the stream failed or the job is to end
    int code = 0;           // errno of a read that failed; the rest is zeros
    bool tooShort = false;  // the file ended early; the rest is zeros
};

// `step` is called after each block with the bytes done, and returns false to end.
ContentResult CopyContent(int fd, std::span<const archive::Extent> extents, FrameStream& stream,
                          const std::function<bool(int64_t)>& step);

}  // namespace server
