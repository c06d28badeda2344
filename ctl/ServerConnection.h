// The server as backupctl sees it: found or launched, asked, listened to. What the server sends
// waits in an inbox for the one thread that runs the command.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "core/protocol/Codes.h"
#include "kit/app/BApplication.h"
#include "kit/app/BRoster.h"

namespace ctl {

class ServerConnection : public BApplication {
public:
    struct Event {
        enum class Kind { Message, Interrupt, ServerGone };
        Kind kind = Kind::Message;
        BMessage message;  // can still be answered
    };

    ServerConnection();
    ~ServerConnection() override;

    // Finds the server, or launches the one beside this program and waits for it; then registers.
    kit::Status Connect();

    bool Send(BMessage message);
    // Nothing when the server is gone or silent.
    std::optional<BMessage> Ask(BMessage question);
    // The text of a report, wherever it lies; nothing when there is none.
    std::optional<BMessage> OpenReport(int32_t id);

    // The next thing that happened; nothing when the time is over.
    std::optional<Event> Next(std::chrono::milliseconds patience);
    void Interrupt();  // any thread

    void MessageReceived(BMessage& message) override;
    void TeamGone(int32_t team) override;

private:
    void Put(Event event);

    BMessenger fServer;
    std::mutex fMutex;
    std::condition_variable fArrived;
    std::deque<Event> fEvents;
};

}  // namespace ctl
