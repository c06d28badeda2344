// The backup server as the client's process sees it: found by its signature, launched when it does
// not run, and the team that messages go to. Any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

#include "kit/app/BRoster.h"
#include "kit/message/BMessenger.h"

class ServerProcess {
public:
    struct Patience {
        // What a server gets to set up its message loop, found or launched, before it is spoken to.
        std::chrono::milliseconds settle{500};
        // What a launched one gets, beyond that, to open its socket.
        std::chrono::milliseconds socket{10000};
    };
    ServerProcess(kit::RunDirectory directory, std::string program, Patience patience);

    // Finds it, or launches it and waits until it listens. False: neither. Blocks; one caller at a
    // time does the work, the others get its result.
    bool FindOrLaunch();

    // 0 until found, and when it is known to be gone.
    int32_t Team() const { return fTeam; }
    BMessenger Messenger() const { return BMessenger(fTeam, BMessenger::kApplication); }
    // Its connections have ended. True when its process has too (or another one took its place): it
    // has no team from then on.
    bool IsGone(int32_t team);

private:
    const BRoster fRoster;
    const std::string fProgram;
    const Patience fPatience;
    std::mutex fLaunching;
    std::atomic<int32_t> fTeam = 0;
};
