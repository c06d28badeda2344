// A registered client: a running program that gets all notices. What it holds here ends with it.
#pragma once

#include "kit/message/BMessenger.h"

namespace server {

class Client {
public:
    explicit Client(int32_t team) : fMessenger(team, BMessenger::kApplication) {}

    int32_t Team() const { return fMessenger.Team(); }
    const BMessenger& Messenger() const { return fMessenger; }

private:
    BMessenger fMessenger;
};

}  // namespace server
