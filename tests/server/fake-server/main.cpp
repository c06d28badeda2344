// The real server with an engine that plays what a job's "script" strings say, one step each:
//   line TYPE TEXT      a line with words
//   lines N             N lines of type file
//   progress DONE ALL   bytes
//   touch PATH          makes that file
//   until PATH          goes on, block by block, until the file is there
//   use BACKUP          works with that backup from here to the end; without it the job fails
//   throw               an exception
//   crash               the process ends at once
//   end STATUS          the job's end; without one it is good
// A title "script: STEP; STEP" plays as well, for those who only have a title to give.
// Its clock is the machine's, unless a file "clock" beside the program says what time it is.
// A file "awake" beside the program is locked while the machine is to stay awake.
// "MayGoOn" is asked before every step and in every block of a wait, as an engine does.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "server/app/ServerMain.h"

namespace {

using core::JobEnd;

std::vector<std::string> StepsOf(const server::JobOrder& order) {
    std::vector<std::string> steps;
    for (int32_t i = 0; i < order.description.Count("script"); ++i) {
        steps.push_back(order.description.Get("script", std::string(), i));
    }
    constexpr std::string_view kPrefix = "script:";
    if (!order.title.starts_with(kPrefix)) return steps;
    std::istringstream title(order.title.substr(kPrefix.size()));
    for (std::string step; std::getline(title, step, ';');)
        steps.push_back(step);
    return steps;
}

JobEnd Play(const server::JobOrder& order, const server::CatalogueStore& catalogues,
            server::JobEvents& events, server::JobControl& control) {
    std::shared_ptr<const server::BackupInfo> used;
    for (const std::string& text : StepsOf(order)) {
        if (!control.MayGoOn()) return JobEnd::Aborted;
        std::istringstream step(text);
        std::string word;
        step >> word;
        if (word == "line") {
            int type = 0;
            std::string text;
            step >> type >> std::ws;
            std::getline(step, text);
            events.Words(static_cast<core::LineType>(type), text);
        } else if (word == "lines") {
            int count = 0;
            step >> count;
            for (int n = 0; n < count; ++n) {
                if (!control.MayGoOn()) return JobEnd::Aborted;
                events.Words(core::LineType::File, "/Volume/some/folder/file-" + std::to_string(n));
            }
        } else if (word == "progress") {
            server::Progress progress;
            step >> progress.size >> progress.maxSize;
            progress.path = "/Volume/file";
            events.SetProgress(progress);
        } else if (word == "touch") {
            std::string path;
            step >> path;
            std::ofstream{path};
        } else if (word == "until") {
            std::string path;
            step >> path;
            while (::access(path.c_str(), F_OK) != 0) {
                if (!control.MayGoOn()) return JobEnd::Aborted;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        } else if (word == "use") {
            std::string name;
            step >> name;
            used = catalogues.Use(name);
            if (!used) return JobEnd::Errors;
        } else if (word == "throw") {
            throw std::runtime_error("as the script wants it");
        } else if (word == "crash") {
            ::_exit(9);
        } else if (word == "end") {
            int status = 0;
            step >> status;
            return static_cast<JobEnd>(status);
        }
    }
    return JobEnd::Good;
}

// Shows the number that is in a file, which a test writes. It wakes the server for every change, be
// there an alarm or not, as a clock does that is set. "clock-seen" tells the test that it did.
class FileClock : public kit::WallClock {
public:
    FileClock(std::string file, std::function<void()> wake)
        : fFile(std::move(file)), fNow(Read()), fThread([this, wake = std::move(wake)] {
              while (!fEnd) {
                  const int64_t now = Read();
                  if (fNow.exchange(now) != now || now >= fAlarm) {
                      fAlarm = kNever;
                      wake();
                  }
                  if (std::exchange(fSeen, now) != now)
                      std::ofstream(fFile + "-seen") << now << ".";
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          }) {}
    ~FileClock() override {
        fEnd = true;
        fThread.join();
    }
    int64_t Now() const override { return fNow; }
    void SetAlarm(std::optional<int64_t> at) override { fAlarm = at.value_or(kNever); }

private:
    static constexpr int64_t kNever = INT64_MAX;
    int64_t Read() const {
        int64_t now = 0;
        std::ifstream(fFile) >> now;
        return now;
    }

    const std::string fFile;
    int64_t fSeen = 0;  // told to the test
    std::atomic<int64_t> fNow, fAlarm = kNever;
    std::atomic<bool> fEnd = false;
    std::thread fThread;
};

}  // namespace

int main() {
    return server::ServerMain([](const server::ServerFolders& folders,
                                 server::BackupServer::Configuration& configuration) {
        configuration.engine = [](const server::JobOrder& order, server::CatalogueStore& catalogues,
                                  server::JobEvents& events, server::JobControl& control) {
            return Play(order, catalogues, events, control);
        };
        configuration.keepAwake = [file = folders.program + "/awake"] {
            kit::UniqueFd lease(::open(file.c_str(), O_RDWR | O_CLOEXEC));
            if (lease.IsOpen()) ::flock(lease.Get(), LOCK_SH);
            return lease;
        };
        const std::string clock = folders.program + "/clock";
        if (::access(clock.c_str(), F_OK) != 0) return;
        configuration.clock = [clock](std::function<void()> wake) {
            return std::make_unique<FileClock>(clock, std::move(wake));
        };
    });
}
