// Which handler of this process has which token, and in whose queue its messages go. The one place
// that turns a number, perhaps from another process, into a handler. Any thread.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include "kit/app/LooperQueue.h"

namespace kit {

class HandlerRegistry {
public:
    static HandlerRegistry& Get();

    int32_t NewToken();
    void Bind(int32_t token, std::shared_ptr<LooperQueue> queue);
    // Takes the handler out of whatever queue it is in; its messages are let go.
    void Unbind(int32_t token);
    std::shared_ptr<LooperQueue> QueueOf(int32_t token) const;  // of the application, too

    // What BMessenger::kApplication stands for; 0: there is no application object.
    void SetApplication(int32_t token);

    // Queues the message for the handler. False, and the message is untouched, when it is gone.
    bool Post(int32_t token, BMessage& message) const;
    bool IsThere(int32_t token) const;
    // The calling thread is the one on which the handler is called.
    bool IsDispatchedHere(int32_t token) const;

private:
    std::shared_ptr<LooperQueue> Find(int32_t* token) const;

    mutable std::mutex fMutex;
    int32_t fLastToken = 0;
    int32_t fApplication = 0;
    std::unordered_map<int32_t, std::shared_ptr<LooperQueue>> fQueues;
};

}  // namespace kit
