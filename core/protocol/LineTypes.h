// The kinds of report and status lines ("linetype"), one table for server, client and command line.
#pragma once

#include <cstdint>

namespace core {

enum class LineType : int32_t {
    Heading = 1,  // headings and facts
    Totals = 2,
    Error = 3,   // every error, so that no filter hides one
    Volume = 4,  // the text is the volume's name
    Directory = 5,
    File = 6,
    Detail = 7,
    Progress = 100,  // never kept in a report
};

}  // namespace core
