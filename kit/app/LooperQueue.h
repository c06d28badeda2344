// The queue of one looper. It outlives its looper as long as somebody is about to post to it, so a
// post that races the looper's end is refused instead of lost in freed memory. Any thread, but
// where noted.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

#include "kit/message/BMessage.h"

class BHandler;
class BLooper;

namespace kit {

class LooperQueue {
public:
    struct Entry {
        int32_t token = 0;
        BMessage message;
    };

    explicit LooperQueue(BLooper* owner);

    void Attach(int32_t token, BHandler* handler);
    void Detach(int32_t token);  // what is queued for it is let go
    bool Accepts(int32_t token) const;

    // False, and the message is untouched, when the handler is not here or the queue is closed.
    bool Post(int32_t token, BMessage& message);
    // `wake` is called for every message, also for those that are here already.
    void OnPosted(std::function<void()> wake);
    // Nothing more is taken, what is queued is let go; nobody is woken any more.
    void Close();
    bool IsClosed() const;

    // The looper: null once it is destroyed.
    BLooper* Owner() const;
    void Disown();

    // Until the first Adopt the thread that made the looper counts as its own.
    bool IsLoopersThread() const { return fThread.load() == std::this_thread::get_id(); }
    // A thread will come that waits in Take.
    void Expect();
    // The calling thread dispatches here: a question to this looper would wait for itself.
    bool IsDispatchedHere() const;

    // --- the looper's thread only ---
    void Adopt();  // the calling thread is the looper's
    // The next message; with `wait` nothing is given only when the queue was closed.
    std::optional<Entry> Take(bool wait);
    void Dispatch(Entry& entry);
    bool HasMore() const;

private:
    mutable std::mutex fMutex;
    std::condition_variable fPosted;
    std::deque<Entry> fEntries;
    std::unordered_map<int32_t, BHandler*> fHandlers;
    BLooper* fOwner;
    std::function<void()> fWake;
    bool fAdopted = false;
    bool fClosed = false;
    std::atomic<std::thread::id> fThread;
};

}  // namespace kit
