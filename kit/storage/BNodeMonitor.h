// The node monitor: tells a handler about entries made, removed and moved in watched directories,
// and about volumes mounted and unmounted. Events arrive as 'NDMN' messages:
//
//   "opcode" int32   fields
//   1 created        "device" int64, "directory" int64, "node" int64, "name" string
//   2 removed        "device", "directory", "name"; "node" when it is known
//   3 moved          "device", "from directory", "to directory", "node", "name", "from name"
//   6 mounted        "new device" int64, "path" string (its mount point)
//   7 unmounted      "device" int64, "path" string (where it was)
//   100 overflow     events were lost or too many: look at every watched directory again
//
// Device and node numbers are those of stat(2), for mounts those of the mount list. "node" is
// absent when the entry was gone again before anybody could look. A move out of what is watched
// comes as 2, a move into it as 1. Whatever had the name that is created or moved to is gone
// without a word. Events are gathered for some 20 ms: what is made and removed again within them is
// not told. A watched directory stays watched when it is renamed; when it is removed, its watch
// goes with it.
//
// Watching and unwatching may be done from any thread; it costs a few system calls.
#pragma once

#include <memory>
#include <string>

#include "kit/message/BMessenger.h"
#include "kit/message/Types.h"
#include "kit/support/Result.h"

class BNodeMonitor {
public:
    enum Opcode : int32_t {
        kEntryCreated = 1,
        kEntryRemoved = 2,
        kEntryMoved = 3,
        kDeviceMounted = 6,
        kDeviceUnmounted = 7,
        kOverflow = 100,
    };

    explicit BNodeMonitor(BMessenger target);
    ~BNodeMonitor();  // no message is sent after it returns
    BNodeMonitor(const BNodeMonitor&) = delete;
    BNodeMonitor& operator=(const BNodeMonitor&) = delete;

    kit::Status WatchDirectory(const std::string& path);
    void StopWatching(node_ref directory);
    kit::Status WatchMounts();

private:
    class Worker;
    std::unique_ptr<Worker> fWorker;
};
