// Hands the signals that end a program (SIGINT, SIGTERM) to a function, on a thread of its own, for
// as long as it lives.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace kit {

class EndSignals {
public:
    // Keeps the signals from ending the program at once. Before any thread is started.
    static void Block();

    // `told` runs on the thread of the signals, once for each.
    explicit EndSignals(std::function<void()> told);
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

private:
    void Wait();

    const std::function<void()> fTold;
    std::atomic<bool> fOver = false;
    std::thread fThread;
};

}  // namespace kit
