#include "kit/app/SharedArea.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>

#include "kit/support/UniqueFd.h"

namespace kit {

namespace {

constexpr uint64_t kMostRead = uint64_t{1} << 30;

std::string NameOf(int32_t team, int32_t id) {
    return "/velmora-" + std::to_string(team) + "-" + std::to_string(id);
}

// The areas of this process; what is left is unlinked when it exits.
class Areas {
public:
    static Areas& Get() {
        static Areas areas;
        return areas;
    }
    ~Areas() {
        for (const int32_t id : fIds)
            ::shm_unlink(NameOf(fTeam, id).c_str());
    }
    int32_t NextId() {
        std::lock_guard lock(fMutex);
        return ++fLastId;
    }
    void Add(int32_t id) {
        std::lock_guard lock(fMutex);
        // A forked child must not unlink what its parent still owns.
        if (fTeam != ::getpid()) fIds.clear();
        fTeam = ::getpid();
        fIds.insert(id);
    }
    void Unlink(int32_t id) {
        std::lock_guard lock(fMutex);
        if (fTeam == ::getpid() && fIds.erase(id) > 0) ::shm_unlink(NameOf(fTeam, id).c_str());
    }

private:
    std::mutex fMutex;
    std::set<int32_t> fIds;
    int32_t fLastId = 0;
    int32_t fTeam = 0;
};

}  // namespace

Result<SharedArea> SharedArea::Create(const BMessage& message) {
    if (message.HoldsPointer()) {
        return Error::Make(ErrorKind::Invalid, "", "a message with a pointer stays in its process");
    }
    std::string name;
    UniqueFd file;
    int32_t id = 0;
    do {
        id = Areas::Get().NextId();
        name = NameOf(::getpid(), id);
        file = UniqueFd(::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
        // In the way: left by a killed process that had this number.
    } while (!file.IsOpen() && errno == EEXIST);
    if (!file.IsOpen()) return Error::FromErrno(errno, name, "cannot make a shared area");
    Areas::Get().Add(id);
    SharedArea area(id);
    // Written, not mapped: memory that runs out is an error then, and not a signal.
    const Bytes bytes = message.Flatten();
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(file.Get(), bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Error::FromErrno(errno, name, "cannot fill a shared area");
        done += static_cast<size_t>(count);
    }
    return area;
}

Result<BMessage> SharedArea::Read(int32_t team, int32_t areaId) {
    const std::string name = NameOf(team, areaId);
    const auto damaged = [&name](const char* why) {
        return Error::Make(ErrorKind::Damaged, name, why);
    };
    const UniqueFd file(::shm_open(name.c_str(), O_RDONLY, 0));
    if (!file.IsOpen()) return Error::FromErrno(errno, name, "cannot open a shared area");
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) return Error::FromErrno(errno, name, "shared area");
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 0077) != 0) {
        return Error::Make(ErrorKind::Denied, name, "the shared area is not the user's own");
    }
    // Read, not mapped: its owner could shorten or change it under our eyes.
    constexpr size_t kSizeAt = 8;
    uint64_t size = 0;
    if (::pread(file.Get(), &size, sizeof size, kSizeAt) != static_cast<ssize_t>(sizeof size)) {
        return damaged("the shared area is too short");
    }
    if (size > static_cast<uint64_t>(status.st_size) || size > kMostRead) {
        return damaged("the shared area is shorter than its message, or too large");
    }
    Bytes bytes(static_cast<size_t>(size));
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count =
            ::pread(file.Get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Error::FromErrno(errno, name, "cannot read a shared area");
        if (count == 0) return damaged("the shared area was shortened");
        done += static_cast<size_t>(count);
    }
    auto message = BMessage::Unflatten(bytes);
    if (!message || message->HoldsPointer()) return damaged("the shared area holds no message");
    return std::move(*message);
}

SharedArea::SharedArea(SharedArea&& other) noexcept : fId(std::exchange(other.fId, 0)) {}

SharedArea& SharedArea::operator=(SharedArea&& other) noexcept {
    std::swap(fId, other.fId);
    return *this;
}

SharedArea::~SharedArea() {
    if (fId != 0) Areas::Get().Unlink(fId);
}

}  // namespace kit
