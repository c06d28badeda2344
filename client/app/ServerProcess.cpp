#include "client/app/ServerProcess.h"

#include <thread>

#include "core/protocol/Codes.h"

ServerProcess::ServerProcess(kit::RunDirectory directory, std::string program, Patience patience)
    : fRoster(std::move(directory)), fProgram(std::move(program)), fPatience(patience) {}

bool ServerProcess::FindOrLaunch() {
    const std::lock_guard lock(fLaunching);
    auto team = fRoster.TeamFor(core::kServerSignature);
    const bool found = team.has_value();
    if (!found) {
        if (auto launched = fRoster.Launch(fProgram)) team = *launched;
    }
    if (!team) {
        fTeam = 0;
        return false;
    }
    std::this_thread::sleep_for(fPatience.settle);
    if (!found && !fRoster.WaitForTeam(*team, static_cast<int>(fPatience.socket.count()))) {
        // It ended, or somebody else's got the signature first.
        team = fRoster.TeamFor(core::kServerSignature);
    }
    fTeam = team.value_or(0);
    return team.has_value();
}

bool ServerProcess::IsGone(int32_t team) {
    if (fRoster.TeamFor(core::kServerSignature) == team && fRoster.WaitForTeam(team, 0))
        return false;
    int32_t expected = team;
    fTeam.compare_exchange_strong(expected, 0);
    return true;
}
