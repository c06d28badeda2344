// A report line from a peer, rendered with a format from a language file: a format up to the first
// NUL, the rest is the flattened line.
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/report/KTReportLine.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

std::string Flat(const KTReportLine& line) {
    std::string bytes(static_cast<size_t>(line.FlattenedSize()), '\0');
    Require(line.Flatten(bytes.data(), line.FlattenedSize()) == 0);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string format = input.c_str();
    // A copy of just its size, so that the sanitizer sees a step beyond it.
    const Bytes flat(input.begin() + static_cast<ptrdiff_t>(std::min(format.size() + 1, size)),
                     input.end());
    KTReportLine line;
    Require(line.Unflatten("ktrl"_code, flat.data(), static_cast<ssize_t>(flat.size())) == 0);

    const std::string once = Flat(line);
    KTReportLine again;
    Require(again.Unflatten("ktrl"_code, once.data(), static_cast<ssize_t>(once.size())) == 0);
    Require(Flat(again) == once);
    Require(again.Count() == line.Count() && line.TypeAt(line.Count()) == 0);
    char buffer[64];
    for (int32_t i = -1; i <= line.Count(); ++i)
        (void)line.Get(buffer, sizeof(buffer), i);

    const size_t limit = size % 300;
    const std::string text = line.Render(format.c_str(), limit);
    Require(text.size() <= limit);
    Require(again.Render(format.c_str(), limit) == text);

    uint32_t type = 0;
    size_t conversions = 0;
    for (const char* at = format.c_str(); (at = KTReportLine::ParseLine(at, &type));) {
        Require(at <= format.c_str() + format.size());
        Require(++conversions <= format.size());
    }
    return 0;
}
