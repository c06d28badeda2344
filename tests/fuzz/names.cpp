// The index of names beside a catalogue: what is looked for (up to the first NUL), then the file.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "server/catalogue/NameIndex.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int fd = ::memfd_create("fuzz", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const uint8_t* end = std::find(data, data + size, 0);
    const std::string wanted = server::NameIndex::Folded(
        {reinterpret_cast<const char*>(data), static_cast<size_t>(end - data)});
    if (end != data + size) ++end;
    size -= static_cast<size_t>(end - data);
    Require(::ftruncate(fd, 0) == 0);
    Require(::pwrite(fd, end, size, 0) == static_cast<ssize_t>(size));

    const auto index = server::NameIndex::Open(path);
    if (!index) return 0;
    int32_t last = 0;
    (void)index->Find(wanted, [&](int32_t id) {
        Require(id > last && static_cast<size_t>(id) <= size);
        const auto parent = index->ParentOf(id);
        Require(!parent || (*parent >= 0 && *parent < id));
        last = id;
        return true;
    });
    return 0;
}
