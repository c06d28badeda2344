// The header of a sealed file, and the file behind it, as somebody else may have written them.
#include <algorithm>
#include <memory>

#include "server/archive/AgeStream.h"

namespace {

using namespace server::archive;

class Memory : public FileSource {
public:
    explicit Memory(std::span<const uint8_t> bytes) : fBytes(bytes) {}
    kit::Result<int64_t> Size() override { return static_cast<int64_t>(fBytes.size()); }
    kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) override {
        if (offset < 0 || static_cast<size_t>(offset) > fBytes.size()) __builtin_trap();
        const auto rest = fBytes.subspan(static_cast<size_t>(offset));
        const size_t size = std::min(rest.size(), into.size());
        std::copy_n(rest.begin(), size, into.begin());
        return size;
    }

private:
    const std::span<const uint8_t> fBytes;
};

// For whom the seeds are sealed.
constexpr char kIdentity[] =
    "AGE-SECRET-KEY-1JE6ZAHEK5XER0GA0C077M2C667XTM8GAF6CM7S603N4D0JPDXRFQ7J8DRG";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto identity =
        std::make_shared<const AgeIdentity>(AgeIdentity::FromText(kIdentity).value());
    static const Secret password(std::string_view("seed"));
    const std::span<const uint8_t> file(data, size);
    if (const auto header = ParseAgeHeader(file)) {
        if (header->size > size || header->stanzas.empty()) __builtin_trap();
        // What costs its time is left to the tests.
        const auto& arguments = header->stanzas[0].arguments;
        if (arguments.size() != 2 || arguments[1].size() == 1) (void)UnsealSmall(file, password);
    }
    const auto opened = OpenAge(std::make_unique<Memory>(file), identity);
    const auto plain = opened->Size();
    if (!plain) return 0;
    if (*plain < 0 || *plain > static_cast<int64_t>(size)) __builtin_trap();
    Bytes into(1000);
    for (const int64_t offset : {int64_t{0}, *plain / 2, *plain}) {
        const auto got = opened->ReadAt(offset, into);
        if (got && static_cast<int64_t>(*got) > *plain - offset) __builtin_trap();
    }
    return 0;
}
