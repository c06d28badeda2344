#include "kit/app/LooperQueue.h"

#include <algorithm>
#include <iterator>

#include "kit/app/BLooper.h"

namespace kit {

LooperQueue::LooperQueue(BLooper* owner) : fOwner(owner), fThread(std::this_thread::get_id()) {}

void LooperQueue::Attach(int32_t token, BHandler* handler) {
    std::lock_guard lock(fMutex);
    fHandlers[token] = handler;
}

void LooperQueue::Detach(int32_t token) {
    // Destroyed without the lock: letting a request go answers it, which may post here again.
    std::deque<Entry> dropped;
    std::lock_guard lock(fMutex);
    fHandlers.erase(token);
    const auto first = std::stable_partition(
        fEntries.begin(), fEntries.end(), [&](const Entry& entry) { return entry.token != token; });
    std::move(first, fEntries.end(), std::back_inserter(dropped));
    fEntries.erase(first, fEntries.end());
}

bool LooperQueue::Accepts(int32_t token) const {
    std::lock_guard lock(fMutex);
    return !fClosed && fHandlers.contains(token);
}

bool LooperQueue::Post(int32_t token, BMessage& message) {
    {
        std::lock_guard lock(fMutex);
        if (fClosed || !fHandlers.contains(token)) return false;
        fEntries.push_back({token, std::move(message)});
        // Under the lock, so that Close is also the end of all calls.
        if (fWake) fWake();
    }
    fPosted.notify_one();
    return true;
}

void LooperQueue::OnPosted(std::function<void()> wake) {
    std::lock_guard lock(fMutex);
    fWake = std::move(wake);
    if (!fEntries.empty()) fWake();
}

void LooperQueue::Close() {
    std::deque<Entry> dropped;
    {
        std::lock_guard lock(fMutex);
        fClosed = true;
        fWake = nullptr;
        dropped.swap(fEntries);
    }
    fPosted.notify_all();
}

bool LooperQueue::IsClosed() const {
    std::lock_guard lock(fMutex);
    return fClosed;
}

BLooper* LooperQueue::Owner() const {
    std::lock_guard lock(fMutex);
    return fOwner;
}

void LooperQueue::Disown() {
    std::lock_guard lock(fMutex);
    fOwner = nullptr;
}

void LooperQueue::Adopt() {
    std::lock_guard lock(fMutex);
    fThread = std::this_thread::get_id();
    fAdopted = true;
}

void LooperQueue::Expect() {
    std::lock_guard lock(fMutex);
    fThread = std::thread::id();
}

bool LooperQueue::IsDispatchedHere() const {
    std::lock_guard lock(fMutex);
    return fAdopted && IsLoopersThread();
}

std::optional<LooperQueue::Entry> LooperQueue::Take(bool wait) {
    std::unique_lock lock(fMutex);
    if (wait) fPosted.wait(lock, [this] { return fClosed || !fEntries.empty(); });
    if (fEntries.empty()) return std::nullopt;
    std::optional<Entry> entry(std::move(fEntries.front()));
    fEntries.pop_front();
    return entry;
}

void LooperQueue::Dispatch(Entry& entry) {
    BHandler* handler = nullptr;
    {
        std::lock_guard lock(fMutex);
        const auto found = fHandlers.find(entry.token);
        if (found == fHandlers.end()) return;
        handler = found->second;
    }
    // Safe without the lock: handlers leave only on this very thread.
    handler->MessageReceived(entry.message);
}

bool LooperQueue::HasMore() const {
    std::lock_guard lock(fMutex);
    return !fEntries.empty();
}

}  // namespace kit
