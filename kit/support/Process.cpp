#include "kit/support/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "kit/support/UniqueFd.h"

namespace kit {

bool ProcessRuns(int32_t id) {
    if (id <= 0 || (::kill(id, 0) != 0 && errno != EPERM)) return false;
    const std::string path = "/proc/" + std::to_string(id) + "/stat";
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) return errno != ENOENT;
    std::array<char, 512> text;
    const ssize_t count = ::read(file.Get(), text.data(), text.size());
    if (count <= 0) return errno != ESRCH;
    // "id (name) state …"; the name may hold anything, so its end is the last bracket.
    const std::string_view line(text.data(), static_cast<size_t>(count));
    const size_t bracket = line.rfind(')');
    if (bracket == std::string_view::npos || bracket + 2 >= line.size()) return true;
    const char state = line[bracket + 2];
    return state != 'Z' && state != 'X';
}

}  // namespace kit
