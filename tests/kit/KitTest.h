// What the tests of the kit share.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "kit/app/BApplication.h"
#include "kit/app/BRoster.h"
#include "tests/TemporaryFolder.h"
#include "tests/support/MadeMessage.h"

using namespace std::chrono_literals;

constexpr auto kLong = 20s;  // longer than anything takes, so only a fault reaches it

// Something one thread says and another waits for.
template <class T>
class Box {
public:
    void Put(T value) {
        std::lock_guard lock(fMutex);
        fValues.push_back(std::move(value));
        fChanged.notify_all();
    }
    // The values once there are `count` of them, or what there is when it takes too long.
    std::vector<T> Wait(size_t count, std::chrono::milliseconds most = kLong) {
        std::unique_lock lock(fMutex);
        fChanged.wait_for(lock, most, [&] { return fValues.size() >= count; });
        return std::move(fValues);
    }
    size_t Count() {
        std::lock_guard lock(fMutex);
        return fValues.size();
    }

private:
    std::mutex fMutex;
    std::condition_variable fChanged;
    std::vector<T> fValues;
};

inline bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kLong;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

// An application object in this process with a thread of its own, which notes what reaches it.
class TestApplication : public BApplication {
public:
    explicit TestApplication(const std::string& folder,
                             const std::string& signature = "application/x-vnd.test-main")
        : BApplication(signature, Options{kit::RunDirectory(folder), false}) {
        Run();
    }
    ~TestApplication() override { Stop(); }

    void MessageReceived(BMessage& message) override {
        if (message.what == "echo"_code) {
            message.SendReply(BMessage(message));
        } else if (message.what == "quiz"_code) {
            message.SendReply("quip"_code);
        } else if (message.what == "slnt"_code) {
            return;
        } else if (message.what == "told"_code) {
            told.Put(message.Get<int32_t>("n", -1));
        } else {
            BApplication::MessageReceived(message);
        }
    }
    void TeamGone(int32_t team) override { gone.Put(team); }

    Box<int32_t> told;
    Box<int32_t> gone;
};

// The echo program as a process of its own; killed at the end of the test.
class EchoProcess {
public:
    explicit EchoProcess(const std::string& folder,
                         const std::string& signature = "application/x-vnd.test-echo") {
        BRoster roster{kit::RunDirectory(folder)};
        auto launched = roster.Launch(KIT_ECHO, {folder, signature});
        if (!launched) {
            ADD_FAILURE() << launched.error().Text();
            return;
        }
        team = *launched;
        EXPECT_TRUE(roster.WaitForTeam(team, 20000));
    }
    ~EchoProcess() {
        if (team > 0) ::kill(team, SIGKILL);
    }
    BMessenger Messenger() const { return {team, BMessenger::kApplication}; }

    int32_t team = 0;
};
