// One file going to the remote as a stream.
//
// What was written is kept in a file without a name on this machine as well, up to a limit, so that
// it can be sent again from its beginning: after a lost connection, and to take back what did not
// fit. A file beyond the limit is sent only once.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "addons/KTRemote/Rclone.h"
#include "addons/KTVolume.h"

class RemoteWriter : public KTVolumeWriter {
public:
    // What a failure that may pass is answered with: true, after some time, to try again.
    // `tries` counts from 0.
    using TryAgain = std::function<bool(const kit::Error& error, size_t tries)>;

    RemoteWriter(const RcloneLimits& limits, std::string path, Rclone::Stop stop,
                 TryAgain tryAgain);

    kit::Status Write(std::span<const uint8_t> data) override;
    kit::Status Truncate(int64_t size) override;
    kit::Status Finish() override;

private:
    void Keep(std::span<const uint8_t> data);
    // Everything that was not sent yet; `fresh` is the end of it.
    kit::Status Send(std::span<const uint8_t> fresh);
    kit::Status SendKept(int64_t end);
    kit::Status Complete();
    bool IsFull() const;
    // Repeats `step` until it does well or nothing is to be hoped for.
    kit::Status Insist(const std::function<kit::Status()>& step);

    const RcloneLimits& fLimits;
    const std::string fPath;
    const Rclone::Stop fStop;
    const TryAgain fTryAgain;
    kit::UniqueFd fKept;  // closed when the file has become too large to be kept
    std::unique_ptr<Rclone> fSending;
    int64_t fSize = 0, fSent = 0;
    size_t fTries = 0;
    std::optional<kit::Error> fFailed;
};
