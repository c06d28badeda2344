// How backupctl ends.
#pragma once

namespace ctl {

enum class ExitCode {
    Good = 0,
    Failed = 1,    // nothing was done, or not to the end
    Usage = 2,     // the command line cannot be meant so
    Problems = 3,  // done, but not everything: the report says what
};

}  // namespace ctl
