// A question from the window thread that waits for its answer without freezing the window.
#pragma once

#include <chrono>
#include <optional>

#include "kit/message/BMessage.h"

namespace client {

// Asks and waits: windows go on painting, what the user does and messages to windows are held back
// until it is over, after 300 ms the wait cursor shows. Nothing when the target goes away or
// `patience` is over; an answer that comes later is dropped. Qt main thread.
std::optional<BMessage> AskAndWait(const BMessenger& target, const BMessage& question,
                                   std::chrono::milliseconds patience);

}  // namespace client
