#include "kit/storage/NodeAttributes.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kit/support/UniqueFd.h"

namespace kit {

namespace {

constexpr size_t kMaxValue = 64 * 1024;  // what Linux lets an attribute have
constexpr char kNameSpace[] = "user.";
constexpr size_t kNameSpaceSize = sizeof(kNameSpace) - 1;

// Runs `test` with a new file in the folder that is gone afterwards.
template <class Test>
bool WithProbe(const std::string& folder, Test test) {
    std::string name = folder + "/.velmora-probe-XXXXXX";
    const UniqueFd fd(::mkostemp(name.data(), O_CLOEXEC));
    const int problem = errno;
    if (!fd.IsOpen()) return test(-1, problem);
    const bool result = test(fd.Get(), 0);
    ::unlink(name.c_str());
    return result;
}

}  // namespace

std::optional<std::string> ReadAttribute(const std::string& path, const std::string& name,
                                         size_t limit) {
    const std::string key = kNameSpace + name;
    std::string value(limit, '\0');
    ssize_t size = ::getxattr(path.c_str(), key.c_str(), value.data(), value.size());
    if (size < 0 && errno == ERANGE) {
        value.resize(kMaxValue);
        size = ::getxattr(path.c_str(), key.c_str(), value.data(), value.size());
    }
    if (size < 0) return std::nullopt;
    value.resize(std::min(static_cast<size_t>(size), limit));
    return value;
}

Status WriteAttribute(const std::string& path, const std::string& name, std::string_view value) {
    if (::setxattr(path.c_str(), (kNameSpace + name).c_str(), value.data(), value.size(), 0) != 0) {
        return Error::FromErrno(errno, path, "set attribute " + name);
    }
    return {};
}

int64_t AttributesSize(const std::string& path, bool followLink) {
    const auto list = followLink ? ::listxattr : ::llistxattr;
    const auto get = followLink ? ::getxattr : ::lgetxattr;

    // Most nodes have few attributes or none: one call with room for those, a second one for the
    // rest.
    std::vector<char> names(1024);
    ssize_t size = list(path.c_str(), names.data(), names.size());
    if (size < 0 && errno == ERANGE) {
        names.resize(kMaxValue);
        size = list(path.c_str(), names.data(), names.size());
    }
    int64_t sum = 0;
    for (ssize_t at = 0; at < size;) {
        const char* name = names.data() + at;
        const size_t length = ::strnlen(name, static_cast<size_t>(size - at));
        at += static_cast<ssize_t>(length) + 1;
        // What the system keeps for itself (access lists, security labels) is no attribute of ours.
        if (length <= kNameSpaceSize || std::memcmp(name, kNameSpace, kNameSpaceSize) != 0)
            continue;
        const ssize_t value = get(path.c_str(), name, nullptr, 0);
        if (value >= 0) sum += value + static_cast<int64_t>(length - kNameSpaceSize);
    }
    return sum;
}

bool SupportsAttributes(const std::string& folder) {
    return WithProbe(folder, [](int fd, int) {
        return fd >= 0 && ::fsetxattr(fd, "user.velmora-probe", "1", 1, 0) == 0;
    });
}

bool IsReadOnly(const std::string& folder) {
    struct statvfs info {};
    if (::statvfs(folder.c_str(), &info) == 0 && (info.f_flag & ST_RDONLY)) return true;
    return WithProbe(folder, [](int fd, int problem) { return fd < 0 && problem == EROFS; });
}

std::optional<std::string> MimeType(const std::string& path) {
    auto type = ReadAttribute(path, "mime_type", 256);
    if (type && type->empty()) return std::nullopt;
    return type;
}

}  // namespace kit
