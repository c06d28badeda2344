// What of each entry a comparison looks at, as the job's message "compare" says.
#pragma once

#include "kit/message/BMessage.h"
#include "server/engine/JobReport.h"

namespace server {

struct CompareItems {
    bool all = false;  // all of them: the user named none
    bool data = false, attributes = false, size = false, modified = false, created = false;
    bool link = false, rights = false, user = false, group = false;

    // All of them without such a message, too. Of several messages the first one counts.
    static CompareItems Of(const BMessage& job);
    void Tell(JobReport& report) const;
};

}  // namespace server
