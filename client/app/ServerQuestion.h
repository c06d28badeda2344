// Questions from the window thread that do not freeze the window.
#pragma once

#include <chrono>
#include <optional>

#include "client/app/ServerLink.h"
#include "kit/message/BMessage.h"

namespace client {

// Asks and waits: windows go on painting, what the user does and messages to windows are held back
// until it is over, after 300 ms the wait cursor shows. Nothing when the target goes away or
// `patience` is over; an answer that comes later is dropped. Qt main thread.
std::optional<BMessage> AskAndWait(const BMessenger& target, const BMessage& question,
                                   std::chrono::milliseconds patience);

// Asks without waiting. The answer comes to `asker` as a message `code` with "number" as given (by
// it one who has asked again meanwhile tells an old answer), "answered" (bool) and, if so, "answer"
// (message). A server that stays silent sends nothing: patience is the asker's (see
// Inquiry).
void AskLater(ServerLink* server, BMessage question, const BHandler* asker, uint32_t code,
              int32_t number);

}  // namespace client
