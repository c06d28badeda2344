// A program of the kit against a peer that speaks the protocol byte by byte, kindly or not.
#include <sys/wait.h>

#include <fstream>

#include "tests/kit/RawPeer.h"

namespace {

class Wire : public testing::Test {
protected:
    RawPeer Connect() { return {folder.Path(), echo.team}; }

    TemporaryFolder folder;
    EchoProcess echo{folder.Path()};
};

BMessage AskFor(int32_t team) {
    return Made("ask!"_code, {{"target", BMessenger(team, 9)}});
}

BMessage Tell(int32_t team, int32_t n) {
    return Made("tell"_code, {{"target", BMessenger(team, 5)}, {"n", n}});
}

int64_t PeakMemoryInKiB(int32_t team) {
    std::ifstream status("/proc/" + std::to_string(team) + "/status");
    std::string word;
    while (status >> word) {
        int64_t kib = 0;
        if (word == "VmHWM:" && status >> kib) return kib;
    }
    return -1;
}

TEST_F(Wire, AnAnswerIsTheseBytes) {
    RawPeer peer = Connect();
    // Of a kind, from a team, to a token, with a body of this code and no fields.
    const auto frame = [](uint8_t kind, int32_t team, uint8_t token, std::string_view code) {
        Bytes bytes{40, 0, 0, 0, kind, 0, 0, 0};
        for (int i = 0; i < 4; ++i)
            bytes.push_back(static_cast<uint8_t>(team >> (8 * i)));
        bytes.insert(bytes.end(), 4, token);
        const Bytes request{8, 7, 6, 5, 4, 3, 2, 1}, length{20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        bytes.insert(bytes.end(), request.begin(), request.end());
        for (const std::string_view text : {std::string_view("VMS1"), code})
            bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.insert(bytes.end(), length.begin(), length.end());
        return bytes;
    };
    ASSERT_TRUE(peer.Send(frame(2, ::getpid(), 0xFF, "dcba")));
    const auto answer = peer.Receive();
    ASSERT_TRUE(answer);
    // Let go unanswered: code 0.
    EXPECT_EQ(answer->Raw(), frame(3, echo.team, 0, std::string_view("\0\0\0\0", 4)));
}

TEST_F(Wire, HostileFramesEndTheirConnectionAndNothingElse) {
    RawPeer friendly = Connect();
    ASSERT_EQ(friendly.Ask("cnt?"_code), "cnt!"_code);
    BMessage pointer;
    pointer.Add("p", static_cast<void*>(&pointer));
    BMessage around = Made({{"m", pointer}});

    const auto good = RawFrame::Message(BMessage("note"_code));
    std::vector<std::pair<const char*, Bytes>> cases;
    const auto add = [&](const char* what, auto change) {
        RawFrame frame = good;
        change(frame);
        cases.emplace_back(what, frame.Raw());
    };
    add("kind 0", [](RawFrame& frame) { frame.kind = 0; });
    add("kind 4", [](RawFrame& frame) { frame.kind = 4; });
    add("first zero byte", [](RawFrame& frame) { frame.zero[0] = 1; });
    add("last zero byte", [](RawFrame& frame) { frame.zero[2] = 1; });
    add("another sender", [](RawFrame& frame) { frame.sender = ::getppid(); });
    add("sender 0", [](RawFrame& frame) { frame.sender = 0; });
    add("request number of a message", [](RawFrame& frame) { frame.request = 1; });
    add("token of an answer", [](RawFrame& frame) { frame.kind = 3; });
    add("no body", [](RawFrame& frame) { frame.body.clear(); });
    add("body cut", [](RawFrame& frame) { frame.body.pop_back(); });
    add("body too long", [](RawFrame& frame) { frame.body.push_back(0); });
    add("pointer inside", [&](RawFrame& frame) { frame.body = pointer.Flatten(); });
    add("pointer deep inside", [&](RawFrame& frame) { frame.body = around.Flatten(); });
    add("bad answer", [](RawFrame& frame) {
        frame.kind = 3;
        frame.token = 0;
        frame.body[0] = 'X';
    });
    for (const uint32_t length : {0xFFFFFFFFu, (256u << 20) + 1, 19u, 0u}) {
        Bytes bytes = good.Raw();
        std::memcpy(bytes.data(), &length, 4);
        cases.emplace_back("length", bytes);
    }
    for (const auto& [what, bytes] : cases) {
        SCOPED_TRACE(what);
        RawPeer hostile = Connect();
        EXPECT_EQ(hostile.Ask("cnt?"_code), "cnt!"_code);
        hostile.Send(bytes);
        EXPECT_TRUE(hostile.HangsUp());
        EXPECT_EQ(friendly.Ask("cnt?"_code), "cnt!"_code);
    }
    ASSERT_TRUE(friendly.Send(RawFrame::Request(1, BMessage("cnt?"_code))));
    EXPECT_EQ(friendly.Receive()->Said().Get<int32_t>("notes", -1), 0) << "none was delivered";
}

TEST_F(Wire, AnswersNobodyWaitsForAreDropped) {
    RawPeer peer = Connect();
    EXPECT_TRUE(peer.Send(RawFrame::Answer(77, BMessage("what"_code))));
    EXPECT_EQ(peer.Ask("cnt?"_code), "cnt!"_code);
}

TEST_F(Wire, UnknownTokensAreLetGo) {
    RawPeer peer = Connect();
    for (const int32_t token : {0, 999999, -2, INT32_MIN}) {
        EXPECT_TRUE(peer.Send(RawFrame::Message(BMessage("note"_code), token)));
        EXPECT_EQ(peer.Ask("cnt?"_code, token), 0u);
    }
    EXPECT_EQ(peer.Ask("cnt?"_code), "cnt!"_code);
}

TEST_F(Wire, FramesMayComeInAnyPieces) {
    RawPeer peer = Connect();
    Bytes bytes;
    for (uint64_t i = 1; i <= 3; ++i) {
        const Bytes one = RawFrame::Request(i, BMessage("cnt?"_code)).Raw();
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    for (const uint8_t byte : bytes)
        ASSERT_TRUE(peer.Send(Bytes{byte}));
    for (uint64_t i = 1; i <= 3; ++i)
        EXPECT_EQ(peer.Receive()->request, i);
    ASSERT_TRUE(peer.Send(bytes));
    for (uint64_t i = 1; i <= 3; ++i)
        EXPECT_EQ(peer.Receive()->request, i);

    for (const size_t cut : {size_t{1}, size_t{4}, size_t{23}, size_t{24}, size_t{43}}) {
        RawPeer half = Connect();
        half.Send(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(cut)));
        half.Close();
    }
    EXPECT_EQ(peer.Ask("cnt?"_code), "cnt!"_code);
}

TEST_F(Wire, WhatIsSaidBeforeHangingUpIsHeard) {
    RawPeer peer = Connect();
    {
        RawPeer brief = Connect();
        for (int i = 0; i < 100; ++i)
            brief.Send(RawFrame::Message(BMessage("note"_code)));
        // Its answer meets a closed connection.
        brief.Send(RawFrame::Request(1, BMessage("cnt?"_code)));
        for (int i = 0; i < 100; ++i)
            brief.Send(RawFrame::Message(BMessage("note"_code)));
    }
    EXPECT_TRUE(WaitUntil([&] {
        peer.Send(RawFrame::Request(1, BMessage("cnt?"_code)));
        const auto answer = peer.Receive();
        return !answer || answer->Said().Get<int32_t>("notes", 0) == 200;
    }));
}

TEST_F(Wire, AnAnnouncedLengthTakesNoMemory) {
    RawPeer friendly = Connect();
    const int64_t before = PeakMemoryInKiB(echo.team);
    std::vector<RawPeer> hostile;
    for (int i = 0; i < 20; ++i) {
        Bytes bytes = RawFrame::Message(BMessage("note"_code)).Raw();
        const uint32_t length = 256u << 20;
        std::memcpy(bytes.data(), &length, 4);
        hostile.push_back(Connect());
        ASSERT_TRUE(hostile.back().Send(bytes));
    }
    EXPECT_EQ(friendly.Ask("cnt?"_code), "cnt!"_code);
    EXPECT_LT(PeakMemoryInKiB(echo.team) - before, 64 << 10);
}

TEST_F(Wire, WhoDoesNotReadIsCutAndHoldsUpNobody) {
    RawPeer friendly = Connect();
    RawPeer flooding = Connect();
    BMessage large("echo"_code);
    large.AddData("data", "RAWT"_code, Bytes(1 << 20).data(), 1 << 20);
    const RawFrame frame = RawFrame::Request(1, large);
    int sent = 0;
    while (sent < 400 && flooding.Send(frame)) {
        if (++sent % 16 == 0) {
            ASSERT_EQ(friendly.Ask("cnt?"_code), "cnt!"_code);
        }
    }
    EXPECT_GT(sent, 60) << "64 MiB may wait";
    EXPECT_LT(sent, 400);
    EXPECT_EQ(friendly.Ask("cnt?"_code), "cnt!"_code);
}

TEST_F(Wire, OneConnectionServesBothDirections) {
    RawPeer peer = Connect();
    for (int32_t n = 1; n <= 3; ++n)
        ASSERT_TRUE(peer.Send(RawFrame::Message(Tell(::getpid(), n))));
    for (int32_t n = 1; n <= 3; ++n) {
        const auto told = peer.Receive();
        ASSERT_TRUE(told);
        EXPECT_EQ(told->kind, 1);
        EXPECT_EQ(told->sender, echo.team);
        EXPECT_EQ(told->token, 5);
        EXPECT_EQ(told->request, 0u);
        EXPECT_EQ(told->Said().what, "told"_code);
        EXPECT_EQ(told->Said().Get<int32_t>("n", 0), n);
    }
    ASSERT_TRUE(peer.Send(RawFrame::Request(7, AskFor(::getpid()))));
    const auto quiz = peer.Receive();
    ASSERT_TRUE(quiz);
    EXPECT_EQ(quiz->kind, 2);
    EXPECT_EQ(quiz->token, 9);
    ASSERT_TRUE(peer.Send(RawFrame::Answer(quiz->request, BMessage("quip"_code))));
    const auto answer = peer.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->request, 7u);
    EXPECT_EQ(answer->Said().what, "quip"_code);
}

TEST_F(Wire, AnswersGoBackOnTheirOwnConnection) {
    RawPeer first = Connect();
    RawPeer second = Connect();
    ASSERT_TRUE(first.Send(RawFrame::Request(1, BMessage("keep"_code))));
    EXPECT_EQ(first.Ask("cnt?"_code), "cnt!"_code);
    ASSERT_TRUE(second.Send(RawFrame::Request(1, BMessage("keep"_code))));
    ASSERT_TRUE(second.Send(RawFrame::Request(2, BMessage("free"_code))));
    const auto kept = second.Receive();
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->request, 1u);
    EXPECT_EQ(kept->Said().what, "late"_code);
    EXPECT_EQ(second.Receive()->request, 2u);
    EXPECT_EQ(first.Receive()->Said().what, "late"_code);
}

TEST_F(Wire, AnOpenQuestionEndsWithItsConnection) {
    RawPeer other = Connect();
    ASSERT_EQ(other.Ask("cnt?"_code), "cnt!"_code);
    RawPeer peer = Connect();
    ASSERT_TRUE(peer.Send(RawFrame::Request(7, AskFor(::getpid()))));
    // The older connection is the one used.
    ASSERT_EQ(other.Receive()->Said().what, "quiz"_code);
    other.Close();
    const auto answer = peer.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->Said().what, 0u);
    EXPECT_EQ(peer.Ask("cnt?"_code), "cnt!"_code);
}

// A process that listens but takes no connection until it is told to; then it passes on what it
// reads.
class Sleeper {
public:
    explicit Sleeper(const std::string& folder) {
        int ready[2];
        int out[2];
        if (::pipe(ready) != 0 || ::pipe(out) != 0) ADD_FAILURE();
        team = ::fork();
        if (team == 0) {
            const sockaddr_un address = RawAddress(folder, ::getpid());
            const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
            ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
            ::listen(listener, 0);
            [[maybe_unused]] ssize_t ignored = ::write(ready[1], "r", 1);
            ::raise(SIGSTOP);
            for (;;) {
                const int socket = ::accept(listener, nullptr, nullptr);
                char buffer[4096];
                ssize_t count = 0;
                while ((count = ::read(socket, buffer, sizeof buffer)) > 0) {
                    ignored = ::write(out[1], buffer, static_cast<size_t>(count));
                }
                ::close(socket);
            }
        }
        ::close(ready[1]);
        ::close(out[1]);
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        int status = 0;
        ::waitpid(team, &status, WUNTRACED);
        fOut = kit::UniqueFd(out[0]);
    }
    ~Sleeper() {
        ::kill(team, SIGKILL);
        ::waitpid(team, nullptr, 0);
    }
    void WakeUp() { ::kill(team, SIGCONT); }
    Bytes Read(size_t size) {
        Bytes bytes(size);
        for (size_t have = 0; have < size;) {
            const ssize_t count = ::read(fOut.Get(), &bytes[have], size - have);
            if (count <= 0) break;
            have += static_cast<size_t>(count);
        }
        return bytes;
    }

    int32_t team = 0;

private:
    kit::UniqueFd fOut;
};

TEST_F(Wire, WhoDoesNotAcceptHoldsUpNobodyAndGetsItLater) {
    Sleeper sleeper(folder.Path());
    // Its backlog is full before the program tries.
    std::vector<kit::UniqueFd> waiting;
    const sockaddr_un address = RawAddress(folder.Path(), sleeper.team);
    for (int i = 0; i < 100; ++i) {
        waiting.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (::connect(waiting.back().Get(), reinterpret_cast<const sockaddr*>(&address),
                      sizeof address) != 0) {
            ASSERT_EQ(errno, EAGAIN);
            break;
        }
    }
    RawPeer peer = Connect();
    ASSERT_TRUE(peer.Send(RawFrame::Message(Tell(sleeper.team, 1))));
    ASSERT_TRUE(peer.Send(RawFrame::Message(Tell(sleeper.team, 2))));
    EXPECT_EQ(peer.Ask("cnt?"_code), "cnt!"_code);
    waiting.clear();
    sleeper.WakeUp();
    RawFrame expected = RawFrame::Message(BMessage("told"_code), 5);
    expected.sender = echo.team;
    for (int32_t n = 1; n <= 2; ++n) {
        expected.body = Made("told"_code, {{"n", n}}).Flatten();
        EXPECT_EQ(sleeper.Read(expected.Raw().size()), expected.Raw()) << n;
    }
}

TEST_F(Wire, ASocketOfAnotherProcessIsNotBelieved) {
    // We listen under the number of another process.
    Sleeper sleeper(folder.Path());
    const sockaddr_un address = RawAddress(folder.Path(), sleeper.team);
    ::unlink(address.sun_path);
    const kit::UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    ASSERT_EQ(::listen(listener.Get(), 5), 0);
    RawPeer peer = Connect();
    ASSERT_TRUE(peer.Send(RawFrame::Request(7, AskFor(sleeper.team))));
    EXPECT_EQ(peer.Receive()->Said().what, 0u);
    RawPeer accepted{kit::UniqueFd(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC))};
    EXPECT_TRUE(accepted.HangsUp()) << "nothing was said to the impostor";
}

}  // namespace
