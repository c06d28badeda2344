// The way of the bytes of a backup: a stream is filled by one thread, cut into frames, compressed
// on all cores, and handed on in order by one more thread.
//
//     filler -> frames -> compressing threads -> writing thread -> sink
//
// Memory is bounded: the filler waits for an empty frame. Begin, Write, Room, Filled, TakeBack,
// Finish are the filler's, on one thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "addons/KTCruncher.h"
#include "kit/support/Result.h"

namespace server {

class JobControl;

class FrameStream {
public:
    struct PackedFrame {
        int64_t number = 0;
        std::span<const uint8_t> packed;
        size_t content = 0;  // bytes when unpacked
        uint64_t hash = 0;   // XXH3 of the content
    };
    struct Place {
        int64_t frame = 0;
        int64_t offset = 0;  // in the unpacked frame
    };
    using Contexts = std::function<std::unique_ptr<KTCruncherContext>()>;
    // Called in the order of the numbers, on the writing thread.
    using Sink = std::function<kit::Status(const PackedFrame&)>;

    // `first`: the number of the first frame.
    FrameStream(const Contexts& contexts, Sink sink, JobControl& control, int workers,
                int64_t first = 0);
    ~FrameStream();  // ends everything, whatever is still to do

    // Says that an entry of `size` bytes begins, which may end the present frame.
    Place Begin(uint64_t size);
    // The rest of the present frame, at least one byte; empty when the stream has failed or the job
    // is to end. What was put there counts when Filled says so.
    std::span<uint8_t> Room();
    void Filled(size_t size);
    bool Write(std::span<const uint8_t> data);
    bool WriteZeros(int64_t size);
    // Forgets what was written since `place`, where that is still in the present frame.
    bool TakeBack(const Place& place);
    // Waits until all has gone through the sink.
    kit::Status Finish();

    int64_t Written() const { return fWritten; }
    bool HasFailed() const { return fFailed; }
    kit::Status Failure() const;

private:
    struct Frame {
        std::unique_ptr<uint8_t[]> content;
        size_t used = 0;
        int64_t number = 0;
    };
    struct Packed {
        Bytes bytes;
        size_t content = 0;
        uint64_t hash = 0;
    };

    bool HandOver();
    void Compress(KTCruncherContext* context);
    void WriteInOrder();
    void Fail(kit::Status status);

    Sink fSink;
    JobControl& fControl;
    std::unique_ptr<Frame> fFilling;
    int64_t fNextNumber;
    int64_t fWritten = 0;
    std::atomic<bool> fFailed = false;

    mutable std::mutex fMutex;
    std::condition_variable fEmptied, fToCompress, fToWrite, fPackedSpare;
    std::vector<std::unique_ptr<Frame>> fEmpty;
    std::deque<std::unique_ptr<Frame>> fFull;
    std::vector<std::unique_ptr<Packed>> fSpare;
    std::map<int64_t, std::unique_ptr<Packed>> fPacked;
    int64_t fWanted;  // number of the frame to be written next
    bool fNoMore = false, fEnd = false;
    kit::Status fStatus;
    std::vector<std::unique_ptr<KTCruncherContext>> fContexts;
    std::vector<std::thread> fThreads;
};

}  // namespace server
