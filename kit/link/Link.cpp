#include "kit/link/Link.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <condition_variable>

#include "kit/app/HandlerRegistry.h"
#include "kit/link/Peer.h"

namespace kit {

namespace {

constexpr uint64_t kListener = 0;
constexpr uint64_t kWakeUp = 1;
constexpr int kReadsInARow = 8;  // then the other connections have their turn
constexpr std::chrono::milliseconds kRetry{20};
constexpr std::chrono::seconds kLongestFinish{2};
constexpr std::chrono::milliseconds kPatienceAtFinish{200};

std::mutex sCurrentMutex;
std::shared_ptr<Link> sCurrent;

// The way back to an asker in another process. Harmless once the link or the connection is gone.
class RemoteDelivery : public BDelivery {
public:
    RemoteDelivery(std::weak_ptr<Link> link, uint64_t connection, int32_t team,
                   const FrameHeader& header)
        : fLink(std::move(link)), fConnection(connection), fRequest(header.request) {
        senderTeam = team;
        remote = true;
        waiting = header.kind == FrameKind::Request;
    }
    void Answer(BMessage&& answer) override {
        if (const auto link = fLink.lock()) link->Answer(fConnection, fRequest, answer);
    }

private:
    std::weak_ptr<Link> fLink;
    uint64_t fConnection;
    uint64_t fRequest;
};

Status Watch(int epoll, int fd, uint64_t id, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0) return {};
    return Error::FromErrno(errno, "", "epoll_ctl");
}

}  // namespace

// --- any thread ---------------------------------------------------------------------------------

Result<std::shared_ptr<Link>> Link::Start(const RunDirectory& directory,
                                          std::function<void(int32_t)> teamGone) {
    std::shared_ptr<Link> link(new Link(std::move(teamGone)));
    if (Status status = link->Open(directory); !status) return status.error();
    // Signals are for the program's own threads.
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &former);
    link->fThread = std::thread([raw = link.get()] {
        pthread_setname_np(pthread_self(), "link");
        raw->fThreadId = std::this_thread::get_id();
        raw->Work();
    });
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    std::lock_guard lock(sCurrentMutex);
    sCurrent = link;
    return link;
}

std::shared_ptr<Link> Link::Current() {
    std::lock_guard lock(sCurrentMutex);
    return sCurrent;
}

Link::~Link() {
    Stop();
}

void Link::Stop() {
    {
        std::lock_guard lock(sCurrentMutex);
        if (sCurrent.get() == this) sCurrent.reset();
    }
    {
        std::lock_guard lock(fMutex);
        fStop = true;
    }
    if (!fThread.joinable()) return;
    ::eventfd_write(fWakeUp.Get(), 1);
    fThread.join();
}

Status Link::Open(const RunDirectory& directory) {
    fDirectory = directory;
    fSocketPath = directory.SocketPath(::getpid());
    sockaddr_un address{};
    if (!SocketAddress(fSocketPath, &address)) {
        return Error::Make(ErrorKind::TooLarge, fSocketPath, "the path is too long for a socket");
    }
    fListener = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fListener.IsOpen()) return Error::FromErrno(errno, fSocketPath, "socket");
    // A former process of this number may have left its own.
    ::unlink(fSocketPath.c_str());
    if (::bind(fListener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Error::FromErrno(errno, fSocketPath, "bind");
    }
    if (::listen(fListener.Get(), 128) != 0) return Error::FromErrno(errno, fSocketPath, "listen");
    fEpoll = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    fWakeUp = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fEpoll.IsOpen() || !fWakeUp.IsOpen()) return Error::FromErrno(errno, "", "epoll");
    if (Status status = kit::Watch(fEpoll.Get(), fListener.Get(), kListener, EPOLLIN); !status) {
        return status;
    }
    // Edge-triggered: every write to it is an event of its own, and nobody has to read it.
    return kit::Watch(fEpoll.Get(), fWakeUp.Get(), kWakeUp, EPOLLIN | EPOLLET);
}

bool Link::Push(Order order) {
    {
        std::lock_guard lock(fMutex);
        if (fStopped) return false;
        fOrders.push_back(std::move(order));
        if (fAwake) return true;
        fAwake = true;
    }
    ::eventfd_write(fWakeUp.Get(), 1);
    return true;
}

bool Link::PushAndWait(Order order) {
    struct Outcome {
        std::mutex mutex;
        std::condition_variable known;
        std::optional<bool> reached;
    };
    const auto outcome = std::make_shared<Outcome>();
    order.connected = [outcome](bool reached) {
        {
            std::lock_guard lock(outcome->mutex);
            outcome->reached = reached;
        }
        outcome->known.notify_one();
    };
    if (!Push(std::move(order))) return false;
    std::unique_lock lock(outcome->mutex);
    outcome->known.wait(lock, [&] { return outcome->reached.has_value(); });
    return *outcome->reached;
}

bool Link::IsReachable(int32_t team) const {
    std::lock_guard lock(fMutex);
    return fReachable.contains(team);
}

bool Link::Reach(int32_t team) {
    if (team <= 0) return false;
    if (IsReachable(team)) return true;
    if (IsLinkThread()) return ConnectionTo(team) != nullptr;
    Order order;
    order.kind = Order::Kind::Connect;
    order.team = team;
    return PushAndWait(std::move(order));
}

BSendResult Link::Send(int32_t team, int32_t token, const BMessage& message) {
    if (team <= 0) return BSendResult::NoTarget;
    if (message.HoldsPointer()) return BSendResult::Refused;
    Order order;
    order.team = team;
    order.frame = BuildFrame({FrameKind::Message, ::getpid(), token, 0}, message);
    if (order.frame.empty()) return BSendResult::Refused;
    bool sent = false;
    if (IsReachable(team) || (IsLinkThread() && ConnectionTo(team))) {
        sent = Push(std::move(order));
    } else if (!IsLinkThread()) {
        sent = PushAndWait(std::move(order));
    }
    return sent ? BSendResult::Ok : BSendResult::NoTarget;
}

uint64_t Link::Ask(int32_t team, int32_t token, const BMessage& message, AnswerFunction done) {
    const auto refuse = [&done](BSendResult result) {
        done(result, BMessage());
        return uint64_t{0};
    };
    if (team <= 0) return refuse(BSendResult::NoTarget);
    if (message.HoldsPointer()) return refuse(BSendResult::Refused);
    Order order;
    order.team = team;
    {
        std::lock_guard lock(fMutex);
        order.request = ++fLastRequest;
    }
    const uint64_t request = order.request;
    order.frame = BuildFrame({FrameKind::Request, ::getpid(), token, request}, message);
    if (order.frame.empty()) return refuse(BSendResult::Refused);
    order.done = done;
    if (!Push(std::move(order))) return refuse(BSendResult::NoTarget);
    return request;
}

void Link::Forget(uint64_t request) {
    Order order;
    order.kind = Order::Kind::Forget;
    order.request = request;
    Push(std::move(order));
}

void Link::Answer(uint64_t connection, uint64_t request, const BMessage& answer) {
    Order order;
    order.kind = Order::Kind::Answer;
    order.connection = connection;
    const FrameHeader header{FrameKind::Answer, ::getpid(), 0, request};
    // What may not go out must not leave the asker waiting either.
    if (!answer.HoldsPointer()) order.frame = BuildFrame(header, answer);
    if (order.frame.empty()) order.frame = BuildFrame(header, BMessage());
    Push(std::move(order));
}

// --- the connection thread ----------------------------------------------------------------------

bool Link::TakeOrders(std::vector<Order>* orders) {
    orders->clear();
    std::lock_guard lock(fMutex);
    orders->swap(fOrders);
    // The last batch: who goes on sending must not keep the thread from ending.
    if (fStop) fStopped = true;
    return !fStop || !orders->empty();
}

// The number of events; 0 also when new orders have come.
int Link::WaitForEvents(std::span<epoll_event> events) {
    {
        std::lock_guard lock(fMutex);
        // The wake-up of Stop may have been taken together with that of an order.
        if (fStop || !fOrders.empty()) return 0;
        fAwake = false;
    }
    const int count = ::epoll_wait(fEpoll.Get(), events.data(), static_cast<int>(events.size()),
                                   PatienceInMilliseconds());
    std::lock_guard lock(fMutex);
    fAwake = true;
    return count;
}

void Link::Work() {
    std::vector<Order> orders;
    std::array<epoll_event, 32> events;
    while (TakeOrders(&orders)) {
        for (Order& order : orders)
            Execute(order);
        const auto unsent = std::exchange(fUnsent, {});
        for (const uint64_t id : unsent) {
            if (const auto found = fConnections.find(id); found != fConnections.end()) {
                Flush(*found->second);
            }
        }
        const int count = WaitForEvents(events);
        for (int i = 0; i < count; ++i) {
            const uint64_t id = events[static_cast<size_t>(i)].data.u64;
            const uint32_t what = events[static_cast<size_t>(i)].events;
            if (id == kWakeUp) continue;
            if (id == kListener) {
                Accept();
                continue;
            }
            auto found = fConnections.find(id);
            if (found == fConnections.end()) continue;
            if ((what & EPOLLOUT) != 0) Flush(*found->second);
            found = fConnections.find(id);
            if (found == fConnections.end() || (what & ~uint32_t{EPOLLOUT}) == 0) continue;
            if (ReadFrom(*found->second) == Connection::Read::Ended) End(id);
        }
        RetryConnects();
    }
    Finish();
}

int Link::PatienceInMilliseconds() const {
    return fRetryAt == std::chrono::steady_clock::time_point::max()
               ? -1
               : static_cast<int>(kRetry.count());
}

void Link::RetrySoon() {
    fRetryAt = std::chrono::steady_clock::now() + kRetry;
}

void Link::Execute(Order& order) {
    switch (order.kind) {
        case Order::Kind::Connect:
            order.connected(ConnectionTo(order.team) != nullptr);
            return;
        case Order::Kind::Forget:
            for (const auto& [id, connection] : fConnections) {
                if (connection->OpenRequests().erase(order.request) > 0) return;
            }
            return;
        case Order::Kind::Answer:
            if (const auto found = fConnections.find(order.connection);
                found != fConnections.end()) {
                QueueFrame(*found->second, std::move(order.frame));
            }
            return;
        case Order::Kind::Send:
            break;
    }
    Connection* const connection = ConnectionTo(order.team);
    if (order.connected) order.connected(connection != nullptr);
    if (!connection) {
        if (order.done) order.done(BSendResult::NoTarget, BMessage());
        return;
    }
    fMet.insert(order.team);
    if (order.done) connection->OpenRequests().emplace(order.request, std::move(order.done));
    QueueFrame(*connection, std::move(order.frame));
}

// Sends what the peers still take and tells every open question that there will be no answer.
void Link::Finish() {
    using Clock = std::chrono::steady_clock;
    std::vector<Order> late;
    {
        std::lock_guard lock(fMutex);
        fStopped = true;
        late.swap(fOrders);
    }
    for (Order& order : late) {
        if (order.connected) order.connected(false);
        if (order.done) order.done(BSendResult::NoTarget, BMessage());
    }
    fFinishing = true;
    fListener.Reset();
    ::unlink(fSocketPath.c_str());
    const auto end = Clock::now() + kLongestFinish;
    auto giveUp = Clock::now() + kPatienceAtFinish;
    std::array<epoll_event, 32> events;
    const auto isWriting = [this] {
        return std::any_of(fConnections.begin(), fConnections.end(), [](const auto& entry) {
            return entry.second->established && entry.second->IsWriting();
        });
    };
    while (isWriting() && Clock::now() < std::min(end, giveUp)) {
        const int count = ::epoll_wait(fEpoll.Get(), events.data(), events.size(), 20);
        for (int i = 0; i < count; ++i) {
            const auto& event = events[static_cast<size_t>(i)];
            const auto found = fConnections.find(event.data.u64);
            if (found == fConnections.end()) continue;
            if ((event.events & EPOLLOUT) != 0) {
                giveUp = Clock::now() + kPatienceAtFinish;
                Flush(*found->second);
            } else if ((event.events & (EPOLLHUP | EPOLLERR)) != 0) {
                End(event.data.u64);
            }
        }
    }
    while (!fConnections.empty())
        End(fConnections.begin()->first);
}

void Link::Accept() {
    for (;;) {
        UniqueFd socket(::accept4(fListener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket.IsOpen()) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                // Out of descriptors or memory: the caller stays in the backlog until there are
                // some.
                fAcceptPaused = true;
                RetrySoon();
                ::epoll_ctl(fEpoll.Get(), EPOLL_CTL_DEL, fListener.Get(), nullptr);
            }
            return;
        }
        const auto team = TrustedPeer(socket.Get());
        if (!team) continue;
        Connection& connection = Adopt(*team, std::move(socket));
        connection.established = true;
        Watch(connection);
    }
}

Connection& Link::Adopt(int32_t team, UniqueFd socket) {
    const uint64_t id = ++fLastConnection;
    auto& slot = fConnections[id];
    slot = std::make_unique<Connection>(id, team, std::move(socket));
    std::lock_guard lock(fMutex);
    ++fReachable[team];
    return *slot;
}

Connection* Link::ConnectionTo(int32_t team) {
    for (const auto& [id, connection] : fConnections) {
        if (connection->Team() == team) return connection.get();
    }
    if (fFinishing) return nullptr;
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.IsOpen()) return nullptr;
    const Connecting outcome = TryConnect(socket.Get(), team);
    if (outcome == Connecting::Failed) return nullptr;
    Connection& connection = Adopt(team, std::move(socket));
    connection.established = outcome == Connecting::Done;
    if (connection.established) {
        Watch(connection);
    } else {
        RetrySoon();
    }
    return &connection;
}

Link::Connecting Link::TryConnect(int socket, int32_t team) const {
    sockaddr_un address{};
    if (!SocketAddress(fDirectory.SocketPath(team), &address)) return Connecting::Failed;
    while (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == EINTR) continue;
        // A peer that does not accept has a full backlog: it may wake up yet.
        return errno == EAGAIN ? Connecting::Later : Connecting::Failed;
    }
    return TrustedPeer(socket) == team ? Connecting::Done : Connecting::Failed;
}

// What could not be done at once is tried again after a pause, not in every round.
void Link::RetryConnects() {
    if (std::chrono::steady_clock::now() < fRetryAt) return;
    fRetryAt = std::chrono::steady_clock::time_point::max();
    if (std::exchange(fAcceptPaused, false) &&
        !kit::Watch(fEpoll.Get(), fListener.Get(), kListener, EPOLLIN)) {
        fAcceptPaused = true;
        RetrySoon();
    }
    std::vector<uint64_t> failed;
    for (const auto& [id, connection] : fConnections) {
        if (connection->established) continue;
        switch (TryConnect(connection->Socket(), connection->Team())) {
            case Connecting::Failed:
                failed.push_back(id);
                break;
            case Connecting::Later:
                RetrySoon();
                break;
            case Connecting::Done:
                connection->established = true;
                Watch(*connection);
                fUnsent.push_back(id);
        }
    }
    for (const uint64_t id : failed)
        End(id);
}

void Link::Watch(Connection& connection) {
    connection.watchesOut = false;
    if (!kit::Watch(fEpoll.Get(), connection.Socket(), connection.Id(), EPOLLIN)) {
        ::shutdown(connection.Socket(), SHUT_RDWR);
    }
}

void Link::QueueFrame(Connection& connection, Bytes frame) {
    if (!connection.IsWriting()) fUnsent.push_back(connection.Id());
    connection.Queue(std::move(frame));
    if (connection.IsOverfull()) Flush(connection);
}

void Link::Flush(Connection& connection) {
    const uint64_t id = connection.Id();
    bool works = true;
    if (connection.established) works = connection.WriteSome();
    if (!works) {
        // The peer is gone, but what it said before is still to be heard.
        connection.DropOutgoing();
        for (int i = 0; i < kReadsInARow && ReadFrom(connection) == Connection::Read::Some; ++i) {
        }
    }
    if (!works || connection.IsOverfull()) {
        End(id);
        return;
    }
    if (connection.established && connection.IsWriting() != connection.watchesOut) {
        connection.watchesOut = connection.IsWriting();
        epoll_event event{};
        event.events = EPOLLIN | (connection.watchesOut ? uint32_t{EPOLLOUT} : 0u);
        event.data.u64 = id;
        ::epoll_ctl(fEpoll.Get(), EPOLL_CTL_MOD, connection.Socket(), &event);
    }
}

Connection::Read Link::ReadFrom(Connection& connection) {
    for (int i = 0; i < kReadsInARow; ++i) {
        const Connection::Read read = connection.ReadSome();
        if (read == Connection::Read::Ended) return read;
        FrameParser::Frame frame;
        FrameParser::Step step;
        while ((step = connection.Frames().Next(&frame)) == FrameParser::Step::Frame) {
            if (!Handle(connection, frame)) return Connection::Read::Ended;
        }
        if (step == FrameParser::Step::Malformed) return Connection::Read::Ended;
        if (read == Connection::Read::All) return read;
    }
    return Connection::Read::Some;
}

bool Link::Handle(Connection& connection, const FrameParser::Frame& frame) {
    const FrameHeader& header = frame.header;
    if (header.sender != connection.Team()) return false;
    auto message = BMessage::Unflatten(frame.body);
    if (!message || message->HoldsPointer()) return false;
    fMet.insert(connection.Team());
    if (header.kind == FrameKind::Answer) {
        auto open = connection.OpenRequests().extract(header.request);
        // One that nobody waits for any more is dropped.
        if (!open.empty()) open.mapped()(BSendResult::Ok, std::move(*message));
        return true;
    }
    message->SetDelivery(std::make_unique<RemoteDelivery>(weak_from_this(), connection.Id(),
                                                          connection.Team(), header));
    // Not taken by anybody it is let go here, which answers a request.
    HandlerRegistry::Get().Post(header.token, *message);
    return true;
}

void Link::End(uint64_t id) {
    const auto found = fConnections.find(id);
    if (found == fConnections.end()) return;
    const std::unique_ptr<Connection> connection = std::move(found->second);
    fConnections.erase(found);
    const int32_t team = connection->Team();
    bool last = false;
    {
        std::lock_guard lock(fMutex);
        last = --fReachable[team] == 0;
        if (last) fReachable.erase(team);
    }
    for (auto& [request, done] : connection->OpenRequests())
        done(BSendResult::NoReply, BMessage());
    if (last && fMet.erase(team) > 0 && !fFinishing) fTeamGone(team);
}

}  // namespace kit
