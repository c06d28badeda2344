// What the server's parts need of the server around them: its clients, its thread and its clock.
// All calls on the looper's thread but Later.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "core/schedule/Zone.h"
#include "kit/message/BMessage.h"

namespace server {

class ServerHost {
public:
    // Runs the function on the looper, soon. Any thread. Functions still waiting when the server
    // ends are let go.
    virtual void Later(std::function<void()> function) = 0;
    virtual int64_t Now() const = 0;  // seconds since the epoch
    virtual core::Zone LocalZone() const = 0;

    virtual void NotifyAll(const BMessage& notice) = 0;  // all registered clients
    virtual bool IsClient(int32_t team) const = 0;
    virtual std::vector<int32_t> Clients() const = 0;
    virtual void Send(const BMessenger& target, BMessage message) = 0;
    // `done` runs on the looper; the answer is empty (code 0) when none came.
    virtual void Ask(const BMessenger& target, BMessage question,
                     std::function<void(BMessage answer)> done) = 0;

protected:
    ~ServerHost() = default;
};

}  // namespace server
