// Where the application object sends a message, by its code: one flat table.
#pragma once

#include <cstdint>

namespace client {

enum class Route {
    Server,         // passed on
    SubmitJob,      // passed on with "client_id" added
    AskServer,      // asked there; the answer goes back to the asker under a fixed code
    Window,         // posted to the main window as it is
    ServerByJobId,  // unknown, but names a job: passed on
    Application,    // answered here, or by the kit
    Dropped,        // a notice for this program, or an internal command that came over the wire
};

// `remote`: it came from another process. `namesJob`: it has an int32 "job_id".
Route RouteOf(uint32_t code, bool remote, bool namesJob);

// The code under which the answer to an AskServer code goes back.
uint32_t AnswerCodeOf(uint32_t code);

// Codes by which the user starts something: worth launching the server again for, should it be
// gone.
bool StartsSomething(uint32_t code);

}  // namespace client
