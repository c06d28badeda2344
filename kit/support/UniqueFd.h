// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace kit {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fFd(std::exchange(other.fFd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset();
            fFd = std::exchange(other.fFd, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { Reset(); }

    int Get() const { return fFd; }
    bool IsOpen() const { return fFd >= 0; }
    int Release() { return std::exchange(fFd, -1); }
    void Reset() {
        if (fFd >= 0) ::close(std::exchange(fFd, -1));
    }

private:
    int fFd = -1;
};

}  // namespace kit
