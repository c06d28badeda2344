// The link of this process to other teams: one thread that owns every socket, the listening one
// included. Everybody else hands it finished frames. One per process, made by BApplication.
//
// Frames to one team go out in the order in which they were handed over. A peer that does not read
// holds up nobody; its connection is cut once too much waits for it. docs/protocol.md has the
// rules.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "kit/app/RunDirectory.h"
#include "kit/link/Connection.h"

struct epoll_event;

namespace kit {

class Link : public std::enable_shared_from_this<Link> {
public:
    using AnswerFunction = BMessenger::AnswerFunction;

    // Opens this team's socket and starts the thread. `teamGone` is called on it when the last
    // connection of a team that had something to say, or was sent something, has ended; it may
    // send.
    static Result<std::shared_ptr<Link>> Start(const RunDirectory& directory,
                                               std::function<void(int32_t team)> teamGone);
    // The process's link while it runs. Any thread, as all that follows.
    static std::shared_ptr<Link> Current();

    ~Link();
    // Sends what is still queued, for as long as the peers take it (2 s at most), ends the
    // connections, removes the socket. Not on the connection thread.
    void Stop();

    BSendResult Send(int32_t team, int32_t token, const BMessage& message);
    // `done` is called exactly once, on the connection thread or before Ask returns. Gives a number
    // for Forget, 0 when nothing was sent.
    uint64_t Ask(int32_t team, int32_t token, const BMessage& message, AnswerFunction done);
    // Nobody waits for that answer any more: `done` is dropped uncalled if it was not called yet.
    void Forget(uint64_t request);
    void Answer(uint64_t connection, uint64_t request, const BMessage& answer);
    // There is a connection to the team, or one could be made.
    bool Reach(int32_t team);

    bool IsLinkThread() const { return std::this_thread::get_id() == fThreadId.load(); }

private:
    // What other threads hand over.
    struct Order {
        enum class Kind { Send, Answer, Forget, Connect };
        Kind kind = Kind::Send;
        int32_t team = 0;
        uint64_t connection = 0;  // of an answer
        uint64_t request = 0;
        Bytes frame;
        AnswerFunction done;                  // of a request
        std::function<void(bool)> connected;  // somebody waits to hear it
    };

    explicit Link(std::function<void(int32_t)> teamGone) : fTeamGone(std::move(teamGone)) {}
    Status Open(const RunDirectory& directory);

    bool Push(Order order);  // false: stopped; the order is dropped
    bool PushAndWait(Order order);
    bool IsReachable(int32_t team) const;

    // The rest runs on the connection thread.
    void Work();
    int WaitForEvents(std::span<epoll_event> events);
    bool TakeOrders(std::vector<Order>* orders);
    void Execute(Order& order);
    int PatienceInMilliseconds() const;
    void Finish();

    void Accept();
    Connection* ConnectionTo(int32_t team);  // made when need be; null: it cannot be reached
    enum class Connecting { Done, Later, Failed };
    Connecting TryConnect(int socket, int32_t team) const;
    void RetryConnects();
    void RetrySoon();
    Connection& Adopt(int32_t team, UniqueFd socket);
    void QueueFrame(Connection& connection, Bytes frame);
    void Flush(Connection& connection);  // may end it
    void Watch(Connection& connection);
    Connection::Read ReadFrom(Connection& connection);  // a few times at most
    // False: the connection is to end.
    bool Handle(Connection& connection, const FrameParser::Frame& frame);
    void End(uint64_t id);

    std::function<void(int32_t)> fTeamGone;
    std::string fSocketPath;
    RunDirectory fDirectory{""};
    UniqueFd fListener;
    UniqueFd fEpoll;
    UniqueFd fWakeUp;

    std::map<uint64_t, std::unique_ptr<Connection>> fConnections;  // oldest first
    std::set<int32_t> fMet;         // teams that something was said to or heard from
    std::vector<uint64_t> fUnsent;  // connections with frames nobody tried to write yet
    uint64_t fLastConnection = 1;   // numbers up to this one name the listener and the wake-up
    bool fAcceptPaused = false;
    bool fFinishing = false;
    std::chrono::steady_clock::time_point fRetryAt = std::chrono::steady_clock::time_point::max();

    mutable std::mutex fMutex;
    std::vector<Order> fOrders;
    std::map<int32_t, int> fReachable;  // teams and the number of their connections
    uint64_t fLastRequest = 0;
    bool fAwake = true;  // it looks for orders before it sleeps
    bool fStop = false;
    bool fStopped = false;

    std::thread fThread;
    std::atomic<std::thread::id> fThreadId;
};

}  // namespace kit
