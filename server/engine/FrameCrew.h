// Threads that work on entries of a backup, handed over in bundles of those whose frame is the
// same, so that a frame is read once. Threads come as there is work for them: one file needs one.
//
// Add and Finish on one thread, Next on those of the crew.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace server {

template <class Task>
class FrameCrew {
public:
    using Bundle = std::vector<Task>;

    // `work` is what each thread does: it takes bundles by Next until there is none. `streams`:
    // between so many a row of entries jumps and comes back to the frame it left.
    FrameCrew(size_t mostThreads, size_t streams, std::function<void()> work)
        : fMostThreads(mostThreads),
          fMostFilling(std::clamp<size_t>(streams, 1, kMostStreams)),
          fWork(std::move(work)) {}
    ~FrameCrew() { Finish(); }
    FrameCrew(const FrameCrew&) = delete;

    // Waits where the threads are far behind.
    void Add(int64_t frame, Task task) {
        auto filling = std::ranges::find(fFilling, frame, &Filling::frame);
        if (filling != fFilling.end() && filling->bundle.size() >= kMostInBundle) {
            HandOver(std::move(filling->bundle));
            fFilling.erase(filling);
            filling = fFilling.end();
        }
        if (filling == fFilling.end()) {
            if (fFilling.size() >= fMostFilling) {
                HandOver(std::move(fFilling.front().bundle));
                fFilling.pop_front();
            }
            fFilling.push_back({frame, {}});
            filling = std::prev(fFilling.end());
        }
        filling->bundle.push_back(std::move(task));
    }

    // Returns when everything is done.
    void Finish() {
        for (Filling& filling : fFilling)
            HandOver(std::move(filling.bundle));
        fFilling.clear();
        {
            const std::lock_guard lock(fMutex);
            fNoMore = true;
        }
        fQueued.notify_all();
        for (std::thread& thread : fThreads)
            thread.join();
        fThreads.clear();
    }

    std::optional<Bundle> Next() {
        std::optional<Bundle> bundle;
        {
            std::unique_lock lock(fMutex);
            ++fIdle;
            fQueued.wait(lock, [this] { return fNoMore || !fQueue.empty(); });
            --fIdle;
            if (fQueue.empty()) return std::nullopt;
            bundle = std::move(fQueue.front());
            fQueue.pop_front();
        }
        fRoom.notify_one();
        return bundle;
    }

private:
    // Bundles wait only for as long as it takes to read a frame.
    static constexpr size_t kMostWaiting = 4;
    // A frame holds no more members; a catalogue may claim anything.
    static constexpr size_t kMostInBundle = 8192;
    // Of so many streams frames are kept at a time.
    static constexpr size_t kMostStreams = 4;

    struct Filling {
        int64_t frame;
        Bundle bundle;
    };

    void HandOver(Bundle bundle) {
        bool needsThread = false;
        {
            std::unique_lock lock(fMutex);
            fRoom.wait(lock, [this] { return fQueue.size() < kMostWaiting; });
            fQueue.push_back(std::move(bundle));
            needsThread = fIdle < fQueue.size() && fThreads.size() < fMostThreads;
        }
        if (needsThread) fThreads.emplace_back(fWork);
        fQueued.notify_one();
    }

    const size_t fMostThreads, fMostFilling;
    const std::function<void()> fWork;
    std::deque<Filling> fFilling;  // the one begun first is handed over first
    std::vector<std::thread> fThreads;
    std::mutex fMutex;
    std::condition_variable fQueued, fRoom;
    std::deque<Bundle> fQueue;
    size_t fIdle = 0;
    bool fNoMore = false;
};

}  // namespace server
