// The lock file of a signature: "this program runs, as this team". The kernel drops the lock with
// its holder, so nothing stale is ever believed. docs/protocol.md has the rules.
#pragma once

#include <optional>
#include <string>

#include "kit/app/RunDirectory.h"
#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

namespace kit {

class SignatureLock {
public:
    SignatureLock() = default;
    SignatureLock(SignatureLock&&) noexcept = default;
    SignatureLock& operator=(SignatureLock&&) noexcept = default;
    ~SignatureLock() { Release(); }

    // Takes the signature for this process. Tries for up to 1 s, because the holder may merely be
    // asking, or about to end; one that has its socket is believed at once. Not held: another
    // process has it.
    static Result<SignatureLock> Take(const RunDirectory& directory, const std::string& signature);

    // The team that holds the signature; up to 1 s when it has not written its number yet.
    static std::optional<int32_t> Holder(const RunDirectory& directory,
                                         const std::string& signature);

    bool IsHeld() const { return fFile.IsOpen(); }
    void Release();

private:
    UniqueFd fFile;
};

}  // namespace kit
