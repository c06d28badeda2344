// The stream of a medium, as somebody else may have written it.
#include <cstring>

#include "server/archive/TarReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> rest(data, size);
    const server::archive::ReadBytes read = [&](std::span<uint8_t> into) -> kit::Status {
        if (into.size() > rest.size()) {
            return kit::Error::Make(kit::ErrorKind::Damaged, "", "the end of the stream");
        }
        if (!into.empty()) std::memcpy(into.data(), rest.data(), into.size());
        rest = rest.subspan(into.size());
        return {};
    };
    while (const auto member = server::archive::ReadTarHeader(read)) {
        if (member->size < 0 || member->path.empty()) __builtin_trap();
        int64_t used = 0;
        if (member->sparse) {
            const auto map = server::archive::ReadSparseMap(read, *member, &used);
            if (!map) return 0;
            int64_t end = 0;
            for (const auto& extent : *map) {
                if (extent.offset < end || extent.length < 0) __builtin_trap();
                end = extent.offset + extent.length;
                if (end > member->realSize) __builtin_trap();
            }
        }
        const int64_t padded = (member->size + 511) / 512 * 512 - used;
        if (padded < 0 || static_cast<uint64_t>(padded) > rest.size()) return 0;
        rest = rest.subspan(static_cast<size_t>(padded));
    }
    return 0;
}
