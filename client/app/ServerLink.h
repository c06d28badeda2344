// How views reach the backup server: the application object in the program, a scripted one in a
// test.
#pragma once

#include <optional>

#include "kit/message/BMessage.h"

class ServerLink {
public:
    virtual ~ServerLink() = default;
    // Sends to the server; false when there is none (nothing is sent then).
    virtual bool PostServer(BMessage message) = 0;
    // Asks the server from the window thread: the window goes on painting, input is held back,
    // messages that arrive meanwhile stay queued, after 300 ms the wait cursor shows. Nothing when
    // the server is gone or gives no answer in 10 s (60 s for 'KTLR'). An answer 'NONE' is an
    // answer.
    virtual std::optional<BMessage> AskServer(const BMessage& message) = 0;
    // Asks and returns at once, for answers that take their time. `done` is called exactly once, on
    // any thread, and only hands the answer on. Windows ask through client::AskLater
    // or client::Inquiry.
    virtual void AskServerLater(BMessage message, BMessenger::AnswerFunction done) = 0;
    // Hands a message to the application object's routing (job submissions, 'KTLR', 'ktpc', …).
    virtual void PostApplication(BMessage message) = 0;
};
