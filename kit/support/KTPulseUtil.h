// KTPulseUtil: posts a code to a handler after a period, once or again and again, from a thread of
// its own, until it is deleted or the handler is gone.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "kit/message/BMessenger.h"

class KTPulseUtil {
public:
    enum class Mode { Repeat, Once };
    KTPulseUtil(std::chrono::microseconds period, uint32_t code, BMessenger target,
                Mode mode = Mode::Repeat);
    ~KTPulseUtil();  // no pulse is sent after it returns
    KTPulseUtil(const KTPulseUtil&) = delete;
    KTPulseUtil& operator=(const KTPulseUtil&) = delete;

private:
    void PulseFunc(std::chrono::microseconds period, uint32_t code, BMessenger target, Mode mode);

    std::mutex fMutex;
    std::condition_variable fChanged;
    bool fEnd = false;
    std::thread fThread;
};
