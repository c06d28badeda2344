// A file with a 100-byte header from somebody's disk: first the eight characters and the body.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/files/HeaderFile.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

bool HoldsPassword(const BMessage& message) {
    for (int32_t i = 0; i < message.CountFields(); ++i) {
        const std::string name(message.FieldName(i));
        if (name == "password") return true;
        for (int32_t k = 0; k < message.Count(name, B_MESSAGE_TYPE); ++k) {
            const auto nested = message.Find<BMessage>(name, k);
            if (!nested || HoldsPassword(*nested)) return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int fd = ::memfd_create("fuzz", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    Require(::ftruncate(fd, 0) == 0);
    Require(::pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));

    BMessage message("kept"_code);
    const auto result = core::LoadHeaderFile(path, core::kSelectionMagic, &message);
    const std::string magic = core::MagicOf(path);
    Require(magic.size() == (size >= 8 ? 8 : 0));
    Require((result == core::HeaderLoad::ShortHeader) == (size < 100));
    if (result != core::HeaderLoad::Good) {
        Require(message == BMessage("kept"_code));
        return 0;
    }
    Require(magic == core::kSelectionMagic);
    // What was read can be written and read again, but for the passwords.
    const BMessage clean = core::WithoutPasswords(message);
    Require(!HoldsPassword(clean));
    const auto back = BMessage::Unflatten(clean.Flatten());
    Require(back && *back == clean);
    return 0;
}
