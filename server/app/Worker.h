// A queue of functions and the threads that work it off: for what may take time (disks) and must
// not hold up a looper. With one thread the functions run in order, one after the other.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace server {

class Worker {
public:
    explicit Worker(int threads = 1);
    ~Worker();  // what is queued is still done
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Any thread. Functions must not throw.
    void Post(std::function<void()> function);
    // The same, but waits while `most` or more are queued, so that a quick producer cannot fill the
    // memory. Never from a looper or from the worker itself.
    void PostSlowly(std::function<void()> function, size_t most);
    // Waits until it was done. Never from the worker itself.
    void Do(const std::function<void()>& function);

private:
    void Run();

    std::mutex fMutex;
    std::condition_variable fQueued, fTaken;
    std::deque<std::function<void()>> fFunctions;
    bool fEnd = false;
    std::vector<std::thread> fThreads;
};

}  // namespace server
