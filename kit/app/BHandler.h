// BHandler: something that receives messages. It belongs to one looper at a time and is only ever
// called on that looper's thread; it must be destroyed on that thread too (or after the looper
// ended).
#pragma once

#include <cstdint>

#include "kit/message/BMessage.h"

class BLooper;

class BHandler {
public:
    BHandler();
    virtual ~BHandler();  // leaves its looper; messages still queued for it are let go
    BHandler(const BHandler&) = delete;
    BHandler& operator=(const BHandler&) = delete;

    // `message` may be moved from, to answer it later. What a handler does not know it passes to
    // its base class, which lets it go (a request is then answered with code 0).
    virtual void MessageReceived(BMessage& message);

    // Positive, unique in this process, never reused.
    int32_t Token() const { return fToken; }
    BLooper* Looper() const;

private:
    const int32_t fToken;
};
