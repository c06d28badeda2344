// A flattened message in shared memory, for bodies too large to send comfortably. The owner keeps
// the area until the receiver has read it; what is left is unlinked when the owner exits.
// docs/protocol.md gives the name and the layout.
#pragma once

#include <optional>

#include "kit/message/BMessage.h"
#include "kit/support/Result.h"

namespace kit {

class SharedArea {
public:
    // Writes the message into a new area of this team.
    static Result<SharedArea> Create(const BMessage& message);
    // Reads the message in another team's area. Refuses one that is not the user's own.
    static Result<BMessage> Read(int32_t team, int32_t areaId);

    SharedArea(SharedArea&& other) noexcept;
    SharedArea& operator=(SharedArea&& other) noexcept;
    ~SharedArea();  // unlinks

    int32_t Id() const { return fId; }

private:
    explicit SharedArea(int32_t id) : fId(id) {}
    int32_t fId = 0;  // 0: moved from
};

}  // namespace kit
