// BLooper: a queue of messages and the thread that works it off. Handlers added to a looper are
// called on its thread, one message at a time, in the order of posting.
//
// Three ways to run one: Run() gives it a thread of its own; Loop() uses the calling thread; a
// subclass with a foreign event loop gives OnPosted a call that wakes it, and calls
// DispatchPending() from there.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "kit/app/BHandler.h"

namespace kit {
class LooperQueue;
}

class BLooper : public BHandler {
public:
    explicit BLooper(std::string name);
    ~BLooper() override;  // ends and joins the own thread

    void Run();   // once; returns at once
    void Loop();  // returns after Quit
    // Ends the loop after the message at hand; what is still queued is let go. Any thread.
    void Quit();
    // Quit, and waits for the own thread. A subclass with an own thread calls it first in its
    // destructor, so that no message meets half an object; one that used OnPosted at least calls
    // Quit there.
    void Stop();
    // False when the looper ended, or `target` is not one of its handlers. Any thread. Also how a
    // program asks a looper to end politely: '_QRQ' calls QuitRequested.
    bool PostMessage(BMessage message, const BHandler* target = nullptr);
    bool PostMessage(uint32_t code, const BHandler* target = nullptr);

    // Any thread for a handler that is not in a looper yet. A looper is its own handler from the
    // start.
    void AddHandler(BHandler* handler);
    void RemoveHandler(BHandler* handler);

    const std::string& Name() const { return fName; }
    bool IsLoopersThread() const;

    // '_QRQ' was received: true lets the loop end. Called on the looper's thread.
    virtual bool QuitRequested() { return true; }

    // Handles '_QRQ'; everything else goes to BHandler.
    void MessageReceived(BMessage& message) override;

protected:
    // For a looper that neither Run nor Loop drives: `wake` is called for every message, on the
    // thread that posts; it must not block nor call the kit. What was queued before wakes at once.
    void OnPosted(std::function<void()> wake);
    // Dispatches what is queued, at most `most` messages; true when some are left. Looper's thread.
    bool DispatchPending(int most);

private:
    friend class kit::LooperQueue;
    friend class BHandler;
    std::string fName;
    std::shared_ptr<kit::LooperQueue> fQueue;
    std::thread fThread;
};

inline constexpr uint32_t B_QUIT_REQUESTED = "_QRQ"_code;
inline constexpr uint32_t B_ABOUT_REQUESTED = "_ABR"_code;
inline constexpr uint32_t B_REFS_RECEIVED = "REFS"_code;
inline constexpr uint32_t B_GET_PROPERTY = "PGET"_code;
inline constexpr uint32_t B_REPLY = "RPLY"_code;
inline constexpr uint32_t B_MESSAGE_NOT_UNDERSTOOD = "MNOT"_code;
inline constexpr uint32_t B_DIRECT_SPECIFIER = "SDIR"_code;
inline constexpr uint32_t B_CANCEL = "_CNC"_code;
inline constexpr uint32_t B_NODE_MONITOR = "NDMN"_code;
