#include "kit/app/BLooper.h"

#include <pthread.h>

#include "kit/app/HandlerRegistry.h"

using kit::HandlerRegistry;
using kit::LooperQueue;

BLooper::BLooper(std::string name)
    : fName(std::move(name)), fQueue(std::make_shared<LooperQueue>(this)) {
    AddHandler(this);
}

BLooper::~BLooper() {
    Stop();
    fQueue->Disown();
}

void BLooper::Run() {
    fQueue->Expect();
    fThread = std::thread([this] {
        pthread_setname_np(pthread_self(), fName.substr(0, 15).c_str());
        Loop();
    });
}

void BLooper::Loop() {
    const auto queue = fQueue;
    queue->Adopt();
    while (auto entry = queue->Take(true))
        queue->Dispatch(*entry);
}

void BLooper::Quit() {
    fQueue->Close();
}

void BLooper::Stop() {
    Quit();
    if (fThread.joinable() && fThread.get_id() != std::this_thread::get_id()) fThread.join();
}

bool BLooper::PostMessage(BMessage message, const BHandler* target) {
    return fQueue->Post(target ? target->Token() : Token(), message);
}

bool BLooper::PostMessage(uint32_t code, const BHandler* target) {
    return PostMessage(BMessage(code), target);
}

void BLooper::AddHandler(BHandler* handler) {
    HandlerRegistry::Get().Unbind(handler->Token());
    fQueue->Attach(handler->Token(), handler);
    HandlerRegistry::Get().Bind(handler->Token(), fQueue);
}

void BLooper::RemoveHandler(BHandler* handler) {
    if (HandlerRegistry::Get().QueueOf(handler->Token()) == fQueue) {
        HandlerRegistry::Get().Unbind(handler->Token());
    }
}

bool BLooper::IsLoopersThread() const {
    return fQueue->IsLoopersThread();
}

void BLooper::MessageReceived(BMessage& message) {
    if (message.what == B_QUIT_REQUESTED) {
        if (QuitRequested()) Quit();
        return;
    }
    BHandler::MessageReceived(message);
}

void BLooper::OnPosted(std::function<void()> wake) {
    fQueue->OnPosted(std::move(wake));
}

bool BLooper::DispatchPending(int most) {
    // A handler may delete the looper itself.
    const auto queue = fQueue;
    queue->Adopt();
    for (; most > 0; --most) {
        auto entry = queue->Take(false);
        if (!entry) return false;
        queue->Dispatch(*entry);
    }
    return queue->HasMore();
}
