// Questions about other processes.
#pragma once

#include <cstdint>

namespace kit {

// A process of that id exists and has not ended; one that ended but was not waited for has.
bool ProcessRuns(int32_t id);

}  // namespace kit
