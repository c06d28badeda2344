#include "server/engine/FileContent.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace server {

using archive::Extent;

namespace {
// A read of more would keep an abort waiting and the compressing threads without work.
constexpr size_t kMaxRead = size_t{1} << 20;
}  // namespace

std::vector<Extent> FindExtents(int fd, int64_t size, int64_t allocated) {
    std::vector<Extent> extents;
    // Compressing file systems allocate less too: only the search tells holes.
    if (allocated >= size) return extents;
    int64_t at = 0;
    while (at < size) {
        const off_t data = ::lseek(fd, at, SEEK_DATA);
        if (data < 0 && errno != ENXIO) return {};  // cannot tell: as a whole then
        if (data < 0 || data >= size) break;
        const off_t hole = ::lseek(fd, data, SEEK_HOLE);
        if (hole <= data) return {};
        extents.push_back({data, std::min<int64_t>(hole, size) - data});
        at = hole;
    }
    if (extents.size() == 1 && extents[0] == Extent{0, size}) return {};
    if (extents.empty() || extents.back().offset + extents.back().length < size) {
        extents.push_back({size, 0});
    }
    return extents;
}

ContentResult CopyContent(int fd, std::span<const Extent> extents, FrameStream& stream,
                          const std::function<bool(int64_t)>& step) {
    ContentResult result;
    for (const Extent& extent : extents) {
        int64_t done = 0;
        while (done < extent.length) {
            std::span<uint8_t> room = stream.Room();
            if (room.empty()) {
                result.wentOn = false;
                return result;
            }
            const size_t most =
                std::min({room.size(), kMaxRead,
                          static_cast<size_t>(std::min<int64_t>(extent.length - done,
                                                                static_cast<int64_t>(kMaxRead)))});
            const ssize_t got = ::pread(fd, room.data(), most, extent.offset + done);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {
                if (got < 0) result.code = errno;
                result.tooShort = got == 0;
                break;
            }
            stream.Filled(static_cast<size_t>(got));
            done += got;
            if (!step(got)) {
                result.wentOn = false;
                return result;
            }
        }
        // What could not be read is zeros, so that the archive stays valid.
        if (!stream.WriteZeros(extent.length - done)) {
            result.wentOn = false;
            return result;
        }
    }
    return result;
}

}  // namespace server
