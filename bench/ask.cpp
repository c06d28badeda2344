// How long a question and its answer take between two processes, against the least that the same
// bytes cost between two bare threads of control on a socket.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kit/app/BApplication.h"
#include "kit/app/BRoster.h"

namespace {

using Clock = std::chrono::steady_clock;

class Answerer : public BApplication {
public:
    explicit Answerer(const std::string& folder)
        : BApplication("application/x-vnd.bench-answerer",
                       Options{kit::RunDirectory(folder), false}) {}
    ~Answerer() override { Stop(); }
    void MessageReceived(BMessage& message) override {
        if (message.what == "ask?"_code) {
            BMessage answer("ans!"_code);
            answer.Add("n", message.Get<int32_t>("n", 0));
            message.SendReply(std::move(answer));
        } else {
            BApplication::MessageReceived(message);
        }
    }
};

template <class Ask>
std::vector<double> Measure(int rounds, Ask ask) {
    std::vector<double> times;
    times.reserve(static_cast<size_t>(rounds));
    for (int i = 0; i < rounds; ++i) {
        const auto start = Clock::now();
        if (!ask(i)) {
            std::fprintf(stderr, "a question went wrong\n");
            std::exit(1);
        }
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times;
}

void Print(const char* what, const std::vector<double>& times) {
    const auto at = [&](double part) {
        return times[static_cast<size_t>(part * static_cast<double>(times.size() - 1))];
    };
    std::printf("%-44s %9.1f %9.1f %9.1f\n", what, at(0.5), at(0.9), at(0.99));
}

// One process reads, writes, reads, …; the other the other way round.
std::vector<double> BareSocket(int rounds, size_t bytes) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::exit(1);
    std::vector<char> buffer(bytes);
    const auto pass = [&](int from, int to) {
        for (size_t have = 0; have < bytes;) {
            const ssize_t count = ::read(from, buffer.data() + have, bytes - have);
            if (count <= 0) return false;
            have += static_cast<size_t>(count);
        }
        return to < 0 || ::write(to, buffer.data(), bytes) == static_cast<ssize_t>(bytes);
    };
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        while (pass(ends[1], ends[1])) {
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    auto times = Measure(rounds, [&](int) {
        return ::write(ends[0], buffer.data(), bytes) == static_cast<ssize_t>(bytes) &&
               pass(ends[0], -1);
    });
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return times;
}

int Answer(const char* folder) {
    Answerer application(folder);
    if (application.InitCheck() != BApplication::Start::Ready) return 1;
    application.Loop();
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 3 && std::string(arguments[1]) == "--answer") return Answer(arguments[2]);
    const int rounds = count > 1 ? std::atoi(arguments[1]) : 20000;

    const auto bare = BareSocket(rounds, 64);
    std::string folder = (std::filesystem::temp_directory_path() / "askXXXXXX").string();
    if (!::mkdtemp(folder.data())) return 1;
    {
        BApplication application("application/x-vnd.bench-asker",
                                 {kit::RunDirectory(folder), false});
        if (application.InitCheck() != BApplication::Start::Ready) return 1;
        const BRoster roster(application.Directory());
        const auto self = std::filesystem::read_symlink("/proc/self/exe").string();
        const auto team = roster.Launch(self, {"--answer", folder});
        if (!team || !roster.WaitForTeam(*team, 5000)) return 1;
        const BMessenger answerer(*team, BMessenger::kApplication);
        const auto ask = [&](int i) {
            BMessage question("ask?"_code);
            question.Add("n", int32_t{i});
            BMessage answer;
            return answerer.SendMessage(std::move(question), &answer) == BSendResult::Ok &&
                   answer.Get<int32_t>("n", -1) == i;
        };
        Measure(1000, ask);
        std::printf("%-44s %9s %9s %9s\n", "microseconds", "median", "90 %", "99 %");
        Print("question and answer, two processes", Measure(rounds, ask));
        Print("floor: 64 bytes there and back, bare socket", bare);
        answerer.SendMessage(B_QUIT_REQUESTED);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
