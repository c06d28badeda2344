#include "core/files/HeaderFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "kit/storage/FileIo.h"
#include "kit/storage/NodeAttributes.h"

namespace core {

namespace {

constexpr size_t kHeaderSize = 100;
constexpr size_t kMagicSize = 8;
constexpr size_t kMaxFile = size_t{64} << 20;
constexpr char kPasswordField[] = "password";

std::string_view Characters(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

HeaderLoad LoadHeaderFile(const std::string& path, std::string_view magic, BMessage* message) {
    const auto file = kit::ReadFile(path, kMaxFile);
    if (!file) {
        return file.error().kind == kit::ErrorKind::TooLarge ? HeaderLoad::Unreadable
                                                             : HeaderLoad::CannotOpen;
    }
    const std::span<const uint8_t> bytes(*file);
    if (bytes.size() < kHeaderSize) return HeaderLoad::ShortHeader;
    if (Characters(bytes.first(kMagicSize)) != magic) return HeaderLoad::WrongMagic;
    auto body = BMessage::Unflatten(bytes.subspan(kHeaderSize));
    if (!body) return HeaderLoad::Unreadable;
    *message = std::move(*body);
    return HeaderLoad::Good;
}

HeaderSave SaveHeaderFile(const std::string& path, std::string_view magic, const BMessage& message,
                          const char* mimeType) {
    auto file = kit::FileReplacement::Begin(path);
    if (!file) return HeaderSave::CannotCreate;

    std::array<uint8_t, kHeaderSize> header{};
    std::copy_n(magic.begin(), std::min(magic.size(), kMagicSize), header.begin());
    if (!file->Write(header)) return HeaderSave::HeaderNotWritten;
    if (!file->Write(WithoutPasswords(message).Flatten())) return HeaderSave::BodyNotWritten;
    // A file system without attributes takes nothing from the file: the magic tells its type as
    // well.
    if (mimeType) (void)kit::WriteAttribute(file->TemporaryPath(), "mime_type", mimeType);
    return file->Commit() ? HeaderSave::Good : HeaderSave::BodyNotWritten;
}

std::string MagicOf(const std::string& path) {
    const kit::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!fd.IsOpen() || ::fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    std::string magic(kMagicSize, '\0');
    const ssize_t got = ::pread(fd.Get(), magic.data(), magic.size(), 0);
    return got == static_cast<ssize_t>(kMagicSize) ? magic : std::string();
}

BMessage WithoutPasswords(const BMessage& message) {
    BMessage clean(message);
    clean.Remove(kPasswordField);
    for (int32_t field = 0; field < clean.CountFields(); ++field) {
        const std::string name(clean.FieldName(field));
        const int32_t count = clean.Count(name, B_MESSAGE_TYPE);
        for (int32_t i = 0; i < count; ++i) {
            const auto nested = clean.Find<BMessage>(name, i);
            // What cannot be looked into is not written either.
            clean.Set(name, nested ? WithoutPasswords(*nested) : BMessage(), i);
        }
    }
    return clean;
}

}  // namespace core
