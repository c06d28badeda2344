// A server on the loopback that a test writes to and reads from by rclone, and that it can take
// away, stop and bring back.
#pragma once

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/TemporaryFolder.h"

extern char** environ;

class RcloneServer {
public:
    static constexpr char kPassword[] = "correct-horse-4711";

    static bool IsInstalled() { return std::system("command -v rclone >/dev/null") == 0; }

    // Serves `folder`; "test:" is the remote that leads there, "wrong:" the same with a wrong
    // password.
    RcloneServer(std::string protocol, std::string folder)
        : fProtocol(std::move(protocol)), fFolder(std::move(folder)), fPort(FreePort()) {
        WriteConfiguration();
        Start();
    }
    ~RcloneServer() { Kill(); }
    RcloneServer(const RcloneServer&) = delete;
    RcloneServer& operator=(const RcloneServer&) = delete;

    void Start() {
        std::vector<std::string> words{"rclone",
                                       "serve",
                                       fProtocol,
                                       "--config=/dev/null",
                                       "--addr=" + Host() + ":" + std::to_string(fPort),
                                       "--user=anna",
                                       "--pass=" + std::string(kPassword),
                                       fFolder};
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, 2, (fOwn / "log").c_str(),
                                           O_WRONLY | O_CREAT | O_APPEND, 0600);
        const int problem =
            ::posix_spawnp(&fProcess, "rclone", &actions, nullptr, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        if (problem != 0) throw std::runtime_error("cannot start rclone");
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!Listens()) {
            if (std::chrono::steady_clock::now() > until)
                throw std::runtime_error("rclone does not serve");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    void Kill() {
        if (fProcess < 0) return;
        ::kill(fProcess, SIGKILL);
        ::waitpid(fProcess, nullptr, 0);
        fProcess = -1;
    }
    void Freeze() const { ::kill(fProcess, SIGSTOP); }
    void GoOn() const { ::kill(fProcess, SIGCONT); }
    std::string Configuration() const { return fOwn / "rclone.conf"; }

private:
    // An address of this process's own: while a server is away, no other test's takes its place.
    static uint32_t Loopback() {
        return uint32_t{127} << 24 | ((static_cast<uint32_t>(::getpid()) + 0x10000) & 0x7fffff);
    }
    static std::string Host() {
        const uint32_t address = Loopback();
        return "127." + std::to_string(address >> 16 & 0xff) + "." +
               std::to_string(address >> 8 & 0xff) + "." + std::to_string(address & 0xff);
    }
    static int Socket() { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }
    static sockaddr_in Address(uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(Loopback());
        return address;
    }
    static uint16_t FreePort() {
        const int fd = Socket();
        sockaddr_in address = Address(0);
        socklen_t size = sizeof(address);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0)
            throw std::runtime_error("no free port");
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
        ::close(fd);
        return ntohs(address.sin_port);
    }
    bool Listens() const {
        const int fd = Socket();
        const sockaddr_in address = Address(fPort);
        const bool is =
            ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        ::close(fd);
        return is;
    }
    void WriteConfiguration() const {
        for (const auto& [name, password] :
             {std::pair{"test", kPassword}, std::pair{"wrong", "mistaken"}}) {
            const std::string where =
                fProtocol == "sftp"
                    ? "host=" + Host() + " port=" + std::to_string(fPort)
                    : "url=http://" + Host() + ":" + std::to_string(fPort) + " vendor=other";
            const std::string command = "rclone --config=" + Configuration() + " config create " +
                                        name + " " + fProtocol + " " + where +
                                        " user=anna pass=" + password + " >/dev/null 2>&1";
            if (std::system(command.c_str()) != 0) throw std::runtime_error("no configuration");
        }
        ::setenv("RCLONE_CONFIG", Configuration().c_str(), 1);
    }

    const std::string fProtocol, fFolder;
    const uint16_t fPort;
    TemporaryFolder fOwn;
    pid_t fProcess = -1;
};
