#include "server/archive/SumsFile.h"

#include <algorithm>

#include "server/archive/Format.h"

namespace server::archive {

namespace {

constexpr int64_t kMostSums = int64_t{4} << 20;
constexpr size_t kDigits = 64;

}  // namespace

kit::Result<std::map<std::string, std::string>> ReadSums(FileSource& file) {
    const auto size = file.Size();
    if (!size) return size.error();
    if (*size > kMostSums) return kit::Error::Make(kit::ErrorKind::TooLarge, kSumsFile);
    std::string text(static_cast<size_t>(*size), '\0');
    const auto got = file.ReadAt(0, {reinterpret_cast<uint8_t*>(text.data()), text.size()});
    if (!got) return got.error();
    text.resize(*got);
    std::map<std::string, std::string> sums;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.size() < kDigits + 3 || line.substr(kDigits, 2) != "  " ||
            line.find('/') != std::string::npos) {
            return kit::Error::Make(kit::ErrorKind::Damaged, kSumsFile, "a line of it is damaged");
        }
        sums[line.substr(kDigits + 2)] = line.substr(0, kDigits);
    }
    return sums;
}

}  // namespace server::archive
