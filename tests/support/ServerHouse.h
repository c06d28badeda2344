// A program folder, a run directory and a data folder of a test's own, with a backup server in it
// that can be started, asked to end and killed.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/ScriptedPeer.h"

namespace tests {

// Polls until the condition holds; false after `patience`.
inline bool Eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds patience = ScriptedPeer::kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class ServerHouse {
public:
    // `serverProgram` becomes Backup_Server/BackupServer of the house.
    explicit ServerHouse(const std::string& serverProgram) {
        char pattern[] = "/tmp/velmora-XXXXXX";  // short: a socket's address must fit
        fRoot = ::mkdtemp(pattern);
        std::filesystem::create_directories(ServerFolder());
        std::filesystem::create_directories(fRoot + "/r");
        std::filesystem::permissions(fRoot + "/r", std::filesystem::perms::owner_all);
        std::filesystem::copy_file(serverProgram, ServerFolder() + "/BackupServer");
    }
    ~ServerHouse() {
        Kill();
        std::error_code ignored;
        std::filesystem::remove_all(fRoot, ignored);
    }

    const std::string& Root() const { return fRoot; }
    std::string Program() const { return fRoot + "/program"; }
    std::string ServerFolder() const { return Program() + "/Backup_Server"; }
    std::string Data() const { return ServerFolder() + "/data"; }
    std::string RunDirectory() const { return fRoot + "/r/velmora-backup"; }
    int32_t Team() const { return fServer; }
    std::string language = "C";  // of what is started, as in LC_ALL
    std::string zone;            // the same, as in TZ; "": this process's

    // Starts a program with the house's environment; its process id.
    pid_t Spawn(const std::string& program, const std::vector<std::string>& arguments = {},
                int output = -1) const {
        const std::string runtime = "XDG_RUNTIME_DIR=" + fRoot + "/r";
        const std::string data = "XDG_DATA_HOME=" + fRoot + "/data";
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        const pid_t child = ::fork();
        if (child != 0) return child;
        ::putenv(const_cast<char*>(runtime.c_str()));
        ::putenv(const_cast<char*>(data.c_str()));
        ::setenv("LC_ALL", language.c_str(), 1);
        if (!zone.empty()) ::setenv("TZ", zone.c_str(), 1);
        if (output >= 0) {
            ::dup2(output, STDOUT_FILENO);
            ::dup2(output, STDERR_FILENO);
        }
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    void Start() {
        fServer = Spawn(ServerFolder() + "/BackupServer");
        ASSERT_TRUE(Eventually([&] { return ScriptedPeer::CanConnect(RunDirectory(), fServer); }));
    }
    // Asks the server to end; its exit status, -1 when it did not end in time or by a signal.
    int Stop() {
        ::kill(fServer, SIGTERM);
        return WaitForEnd(std::exchange(fServer, 0));
    }
    void Kill() {
        if (fServer <= 0) return;
        ::kill(fServer, SIGKILL);
        ::waitpid(std::exchange(fServer, 0), nullptr, 0);
    }
    static int WaitForEnd(pid_t process) {
        int status = 0;
        const bool ended =
            Eventually([&] { return ::waitpid(process, &status, WNOHANG) == process; },
                       std::chrono::seconds(20));
        return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::unique_ptr<ScriptedPeer> Connect(
        ScriptedPeer::Identity identity = ScriptedPeer::Identity::ThisProcess) {
        return std::make_unique<ScriptedPeer>(RunDirectory(), fServer, identity);
    }
    // The same, registered as a client. The server has heard of it when this returns.
    std::unique_ptr<ScriptedPeer> ConnectClient(
        ScriptedPeer::Identity identity = ScriptedPeer::Identity::ThisProcess) {
        auto peer = Connect(identity);
        BMessage registration("KTAD"_code);
        registration.Add("client_id", peer->Team());
        peer->Send(registration);
        peer->Ask(BMessage("KTJL"_code));
        return peer;
    }

private:
    std::string fRoot;
    pid_t fServer = 0;
};

}  // namespace tests
