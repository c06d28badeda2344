// BRoster: which programs of the user run, as which team, and launching one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/app/RunDirectory.h"
#include "kit/support/Result.h"

class BRoster {
public:
    explicit BRoster(kit::RunDirectory directory = kit::RunDirectory::Default())
        : fDirectory(std::move(directory)) {}

    // The team that holds the signature's lock, or nothing. May take up to 1 s when a program is
    // just starting.
    std::optional<int32_t> TeamFor(const std::string& signature) const;
    bool IsRunning(const std::string& signature) const { return TeamFor(signature).has_value(); }

    // Starts a program in a session of its own, with its standard streams on /dev/null, and gives
    // its team (process id). It is not a child to be waited for. A program that cannot be executed
    // is an error here, not later.
    kit::Result<int32_t> Launch(const std::string& path,
                                const std::vector<std::string>& arguments = {}) const;

    // Waits until the team's socket accepts, at most `milliseconds`. False: it does not, or it
    // ended.
    bool WaitForTeam(int32_t team, int milliseconds) const;

private:
    kit::RunDirectory fDirectory;
};
