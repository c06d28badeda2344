#include "server/app/Worker.h"

#include <future>

namespace server {

Worker::Worker(int threads) {
    for (int i = 0; i < threads; ++i)
        fThreads.emplace_back([this] { Run(); });
}

Worker::~Worker() {
    {
        std::lock_guard lock(fMutex);
        fEnd = true;
    }
    fQueued.notify_all();
    for (auto& thread : fThreads)
        thread.join();
}

void Worker::Post(std::function<void()> function) {
    {
        std::lock_guard lock(fMutex);
        fFunctions.push_back(std::move(function));
    }
    fQueued.notify_one();
}

void Worker::PostSlowly(std::function<void()> function, size_t most) {
    {
        std::unique_lock lock(fMutex);
        fTaken.wait(lock, [&] { return fFunctions.size() < most; });
        fFunctions.push_back(std::move(function));
    }
    fQueued.notify_one();
}

void Worker::Do(const std::function<void()>& function) {
    std::promise<void> done;
    Post([&] {
        function();
        done.set_value();
    });
    done.get_future().wait();
}

void Worker::Run() {
    std::unique_lock lock(fMutex);
    for (;;) {
        fQueued.wait(lock, [this] { return fEnd || !fFunctions.empty(); });
        if (fFunctions.empty()) return;
        auto function = std::move(fFunctions.front());
        fFunctions.pop_front();
        lock.unlock();
        fTaken.notify_all();
        function();
        function = nullptr;  // what it holds may end here, but not under the lock
        lock.lock();
    }
}

}  // namespace server
