// One run of rclone: started without a shell, fed and read through pipes, never waited for without
// end, and gone with the object that stands for it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kit/message/Types.h"
#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

struct RcloneLimits {
    using Time = std::chrono::milliseconds;
    std::string program = "rclone";  // looked for in PATH
    // For rclone itself: a connection to be made, and one on which nothing moves.
    Time connect = std::chrono::seconds(15), idle = std::chrono::seconds(60);
    Time call = std::chrono::minutes(2);    // a question that is answered in a few lines
    Time stall = std::chrono::minutes(15);  // a stream on which nothing moves, a move, a deletion
    Time lastRites = std::chrono::milliseconds(1500);  // what is still done for an aborted job
    // Before it is tried again after a failure that may pass.
    std::vector<Time> waits{std::chrono::seconds(1), std::chrono::seconds(3),
                            std::chrono::seconds(10), std::chrono::seconds(30)};
    int64_t mostKept = int64_t{4} << 30;   // bytes of a file kept to be sent again
    int64_t leaveFree = int64_t{1} << 30;  // on the disk where they are kept
    std::string keepIn = "/var/tmp";
};

class Rclone {
public:
    using Clock = std::chrono::steady_clock;
    enum class Input { None, Stream };
    // Asked several times a second while anything is waited for.
    using Stop = std::function<bool()>;

    // `command` comes before the options that all calls have; `path`, "name:path", after "--".
    static kit::Result<std::unique_ptr<Rclone>> Start(const RcloneLimits& limits,
                                                      const std::vector<std::string>& command,
                                                      const std::vector<std::string>& paths,
                                                      Input input, Stop stop);
    ~Rclone();  // killed if it still runs

    // All of it, or what went wrong; no longer than `stall` without a byte moving.
    kit::Status Write(std::span<const uint8_t> data);
    // Fewer bytes than asked for only at the end of the output.
    kit::Result<size_t> Read(std::span<uint8_t> into);
    // The end of the input: nothing is written after it.
    void CloseInput() { fInput.Reset(); }
    // Waits for its end, and makes an error of an unhappy one.
    kit::Status Wait(Clock::time_point deadline);

    // A whole run: what it printed, no more than `most` bytes of it.
    static kit::Result<std::string> Ask(const RcloneLimits& limits,
                                        const std::vector<std::string>& command,
                                        const std::vector<std::string>& paths,
                                        RcloneLimits::Time patience, const Stop& stop,
                                        size_t most = size_t{64} << 20);

private:
    Rclone(const RcloneLimits& limits, std::string path, Stop stop)
        : fLimits(limits), fPath(std::move(path)), fStop(std::move(stop)) {}

    enum class Ready { Yes, Ended };
    // Until `fd` (-1: none) is ready for `events`, or the program has ended.
    kit::Result<Ready> Await(int fd, short events, Clock::time_point deadline);
    void TakeErrors();
    kit::Error Failure();  // after its end

    const RcloneLimits& fLimits;
    const std::string fPath;
    const Stop fStop;
    pid_t fProcess = -1;  // -1 when it has ended and was waited for
    int fCode = 0;
    kit::UniqueFd fHandle, fInput, fOutput, fErrors;
    std::string fSaid;  // the end of what it said on standard error
};
