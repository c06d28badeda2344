// SourceReader: looks into directories, and at the volumes, on threads of its own, and hands over
// what it finds as messages to one handler. Each order has a number (above 0) that its messages
// carry as "read" (int64):
//
//   'SRop'  a directory is open, and watched if it can be: "device", "node" int64
//   'SRbt'  some entries, parallel arrays: "name" string, "kind" int8 (SourceKind), "size",
//           "attributes", "modified", "node" int64
//   'SRen'  the order is done; "error" int32 (errno, 0 when all went well), "whole" bool: all the
//           entries of the directory were told
//   'SRvl'  the volumes, parallel arrays: "name", "path" string, "device", "node", "attributes",
//           "modified", "capacity", "free" (bytes) int64, "persistent" bool
//
// A directory is told in the order people expect, directories first, unless it is so long that
// its first rows would have to wait for that. At most a few batches are on their way at a time:
// Taken() asks for more. An order that was cancelled sends nothing any more.
//
// Any thread may call; in the client the window's does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/message/BMessenger.h"
#include "kit/message/Types.h"
#include "kit/storage/BVolume.h"

class BNodeMonitor;

enum class SourceKind : int8_t {
    Volume = 1,
    Directory = 2,
    File = 3,
    FileLink = 4,  // or a link that leads nowhere
    DirectoryLink = 5,
};

class SourceReader {
public:
    static constexpr uint32_t kOpened = "SRop"_code;
    static constexpr uint32_t kBatch = "SRbt"_code;
    static constexpr uint32_t kEnd = "SRen"_code;
    static constexpr uint32_t kVolumes = "SRvl"_code;

    struct Order {
        std::string path;                // of the directory
        bool volumeRoot = false;         // else a directory where another volume begins stays empty
        std::vector<std::string> names;  // only these, as far as they are there; empty: everything
    };

    // `monitor` watches the directories that are read whole, from before they are read. A "var"
    // that is the directory `variableData` is left out.
    SourceReader(BMessenger target, std::shared_ptr<BNodeMonitor> monitor,
                 std::shared_ptr<kit::MountSource> mounts, std::string variableData = "/var");
    // Cancels everything. A thread that hangs in a dead network mount is left to itself.
    ~SourceReader();
    SourceReader(const SourceReader&) = delete;
    SourceReader& operator=(const SourceReader&) = delete;

    int64_t Read(Order order);  // the latest order is worked off first
    int64_t ListVolumes();
    void Cancel(int64_t read);
    void Taken(int64_t read);

private:
    struct Job;
    struct Shared;
    class Directory;

    int64_t Enqueue(std::shared_ptr<Job> job);
    static void Work(std::shared_ptr<Shared> shared);

    std::shared_ptr<Shared> fShared;
    int64_t fNext = 1;
};
