// The guard against sleep, with a bus of the test's own and somebody on it who answers as logind
// does.
#include "server/app/SleepGuard.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <thread>

#include "tests/TemporaryFolder.h"

namespace {

constexpr char kAddressVariable[] = "DBUS_SYSTEM_BUS_ADDRESS";

// Everything is allowed on it: `name` must be owned by somebody.
class BusDaemon {
public:
    explicit BusDaemon(const std::string& folder) : address("unix:path=" + folder + "/bus") {
        const std::string file = folder + "/bus.conf";
        std::ofstream(file) << "<busconfig><type>system</type><listen>" << address
                            << "</listen><policy context='default'><allow user='*'/>"
                               "<allow own='*'/><allow send_destination='*'/>"
                               "<allow receive_sender='*'/></policy></busconfig>";
        const std::string option = "--config-file=" + file;
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) return;
        fProcess = ::fork();
        if (fProcess == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::execlp("dbus-daemon", "dbus-daemon", option.c_str(), "--nofork", "--print-address",
                     nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        char ready = 0;
        fRuns = ::read(ends[0], &ready, 1) == 1;
        ::close(ends[0]);
    }
    ~BusDaemon() {
        ::kill(fProcess, SIGTERM);
        ::waitpid(fProcess, nullptr, 0);
    }
    bool Runs() const { return fRuns; }
    const std::string address;

private:
    pid_t fProcess = 0;
    bool fRuns = false;
};

// Owns logind's name and hands out inhibitors.
class Logind {
public:
    explicit Logind(const std::string& address) {
        sd_bus_new(&fBus);
        sd_bus_set_address(fBus, address.c_str());
        sd_bus_set_bus_client(fBus, 1);
        EXPECT_GE(sd_bus_start(fBus), 0);
        static const sd_bus_vtable kTable[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Inhibit", "ssss", "h", &Logind::Inhibit, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_VTABLE_END,
        };
        EXPECT_GE(sd_bus_add_object_vtable(fBus, nullptr, "/org/freedesktop/login1",
                                           "org.freedesktop.login1.Manager", kTable, this),
                  0);
        EXPECT_GE(sd_bus_request_name(fBus, "org.freedesktop.login1", 0), 0);
        fThread = std::thread([this] {
            while (!fEnd) {
                if (sd_bus_process(fBus, nullptr) == 0) sd_bus_wait(fBus, 10'000);
            }
        });
    }
    ~Logind() {
        fEnd = true;
        fThread.join();
        sd_bus_flush_close_unref(fBus);
    }
    std::string asked;   // read when the call is over
    kit::UniqueFd ours;  // at its end when nobody holds the inhibitor any more

private:
    static int Inhibit(sd_bus_message* call, void* self, sd_bus_error*) {
        auto& logind = *static_cast<Logind*>(self);
        const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
        sd_bus_message_read(call, "ssss", &what, &who, &why, &mode);
        logind.asked = std::string(what) + "/" + mode;
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) return -errno;
        logind.ours = kit::UniqueFd(ends[0]);
        const kit::UniqueFd theirs(ends[1]);
        return sd_bus_reply_method_return(call, "h", theirs.Get());
    }

    sd_bus* fBus = nullptr;
    std::atomic<bool> fEnd = false;
    std::thread fThread;
};

class SleepGuardTest : public testing::Test {
protected:
    ~SleepGuardTest() override { ::unsetenv(kAddressVariable); }
    TemporaryFolder folder;
};

TEST_F(SleepGuardTest, WithoutABusNobodyIsAsked) {
    ::setenv(kAddressVariable, ("unix:path=" + folder.Path() + "/none").c_str(), 1);
    EXPECT_FALSE(server::KeepAwakeByLogind().IsOpen());
}

TEST_F(SleepGuardTest, HoldsAnInhibitorUntilItIsLetGo) {
    const BusDaemon daemon(folder.Path());
    if (!daemon.Runs()) GTEST_SKIP() << "dbus-daemon is not installed";
    ::setenv(kAddressVariable, daemon.address.c_str(), 1);
    EXPECT_FALSE(server::KeepAwakeByLogind().IsOpen());  // a bus, but no logind

    const Logind logind(daemon.address);
    auto lease = server::KeepAwakeByLogind();
    ASSERT_TRUE(lease.IsOpen());
    EXPECT_EQ(logind.asked, "idle:sleep/block");
    pollfd end{logind.ours.Get(), POLLIN, 0};
    EXPECT_EQ(::poll(&end, 1, 0), 0);
    lease.Reset();
    EXPECT_EQ(::poll(&end, 1, 10'000), 1);
}

}  // namespace
