#include "kit/app/HandlerRegistry.h"

#include "kit/message/BMessenger.h"

namespace kit {

HandlerRegistry& HandlerRegistry::Get() {
    // Never destroyed: handlers that are static objects may outlive everything else.
    static auto* registry = new HandlerRegistry;
    return *registry;
}

int32_t HandlerRegistry::NewToken() {
    std::lock_guard lock(fMutex);
    return ++fLastToken;
}

void HandlerRegistry::Bind(int32_t token, std::shared_ptr<LooperQueue> queue) {
    std::lock_guard lock(fMutex);
    fQueues[token] = std::move(queue);
}

void HandlerRegistry::Unbind(int32_t token) {
    std::shared_ptr<LooperQueue> queue;
    {
        std::lock_guard lock(fMutex);
        const auto found = fQueues.find(token);
        if (found == fQueues.end()) return;
        queue = std::move(found->second);
        fQueues.erase(found);
    }
    queue->Detach(token);
}

// Gives the application's own token in place of kApplication.
std::shared_ptr<LooperQueue> HandlerRegistry::Find(int32_t* token) const {
    std::lock_guard lock(fMutex);
    if (*token == BMessenger::kApplication) *token = fApplication;
    const auto found = fQueues.find(*token);
    return found == fQueues.end() ? nullptr : found->second;
}

std::shared_ptr<LooperQueue> HandlerRegistry::QueueOf(int32_t token) const {
    return Find(&token);
}

void HandlerRegistry::SetApplication(int32_t token) {
    std::lock_guard lock(fMutex);
    fApplication = token;
}

bool HandlerRegistry::Post(int32_t token, BMessage& message) const {
    const auto queue = Find(&token);
    return queue && queue->Post(token, message);
}

bool HandlerRegistry::IsThere(int32_t token) const {
    const auto queue = Find(&token);
    return queue && queue->Accepts(token);
}

bool HandlerRegistry::IsDispatchedHere(int32_t token) const {
    const auto queue = QueueOf(token);
    return queue && queue->IsDispatchedHere();
}

}  // namespace kit
