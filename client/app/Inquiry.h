// Inquiry: a question to the server whose answer may take its time, asked for a window that goes on
// meanwhile. Qt main thread.
#pragma once

#include <QTimer>
#include <chrono>
#include <functional>
#include <optional>

#include "client/app/ServerLink.h"
#include "kit/app/BHandler.h"

namespace client {

class Inquiry : public BHandler {
public:
    // Nothing: the server is gone, or silent for longer than the patience.
    using Done = std::function<void(std::optional<BMessage> answer)>;
    // Checking a password takes about a second, and is slowed down after wrong ones.
    static constexpr std::chrono::milliseconds kUsualPatience{60'000};

    explicit Inquiry(ServerLink* server);

    // One question at a time: asking again drops the one before. `done` is called at most once and
    // never from within Ask; it may end the inquiry.
    void Ask(BMessage question, Done done);
    void Drop();  // an answer that still comes is not heard
    bool IsOpen() const { return fDone != nullptr; }
    void SetPatience(std::chrono::milliseconds patience) { fPatience.setInterval(patience); }

    void MessageReceived(BMessage& message) override;

private:
    void Finish(std::optional<BMessage> answer);

    ServerLink* fServer;
    Done fDone;
    int32_t fNumber = 0;  // of the open question
    QTimer fPatience;
};

}  // namespace client
