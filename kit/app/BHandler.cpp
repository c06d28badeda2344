#include "kit/app/BHandler.h"

#include "kit/app/HandlerRegistry.h"

using kit::HandlerRegistry;

BHandler::BHandler() : fToken(HandlerRegistry::Get().NewToken()) {}

BHandler::~BHandler() {
    HandlerRegistry::Get().Unbind(fToken);
}

void BHandler::MessageReceived(BMessage&) {}

BLooper* BHandler::Looper() const {
    const auto queue = HandlerRegistry::Get().QueueOf(fToken);
    return queue ? queue->Owner() : nullptr;
}
