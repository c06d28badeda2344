// Reads pieces of files on a remote. Pieces that follow one another, as a restore reads them, come
// through one run of rclone each, which goes on from piece to piece; any other is a run of its own.
//
// Any thread, several at once.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <string>

#include "addons/KTRemote/Rclone.h"

class RemoteReader {
public:
    RemoteReader(const RcloneLimits& limits, Rclone::Stop stop)
        : fLimits(limits), fStop(std::move(stop)) {}

    // All of `into`, which must lie inside the file.
    kit::Status Read(const std::string& path, int64_t offset, std::span<uint8_t> into);
    // Lets go of everything: the next piece is read afresh.
    void Forget();

private:
    struct Run {
        std::string path;
        int64_t at = 0;  // where it stands, or will stand when it is free again
        bool goesOn = false;
        bool isBusy = false;
        std::unique_ptr<Rclone> rclone;
    };
    using Runs = std::list<Run>;
    struct Taken {
        Runs::iterator run;
        int64_t skip = 0;  // bytes in front of what is wanted
    };

    Taken Take(const std::string& path, int64_t offset, int64_t size, bool mayGoOn);
    kit::Status Start(Run& run, int64_t offset, int64_t size) const;
    kit::Status ReadAll(Run& run, std::span<uint8_t> into) const;
    void Free(Runs::iterator run, bool isGood);

    const RcloneLimits& fLimits;
    const Rclone::Stop fStop;
    std::mutex fMutex;
    std::condition_variable fFreed;
    Runs fRuns;  // the one used last is the last; those whose rclone is gone are memories of places
};
