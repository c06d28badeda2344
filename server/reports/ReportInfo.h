// What is known of a report without opening it.
#pragma once

#include <cstdint>
#include <string>

namespace server {

struct ReportInfo {
    int32_t id = 0;
    int32_t jobId = 0;    // 0: no job
    int32_t jobType = 0;  // as in messages; 0: no job's
    std::string title;
    int64_t date = 0;  // seconds since the epoch
};

}  // namespace server
