#include "ctl/ServerConnection.h"

#include "kit/app/SharedArea.h"

namespace ctl {

namespace {

constexpr int kLaunchMilliseconds = 10'000;
constexpr std::chrono::seconds kAnswerPatience{60};

kit::Result<int32_t> FindOrLaunch(const kit::RunDirectory& directory, const std::string& program) {
    const BRoster roster(directory);
    if (auto team = roster.TeamFor(core::kServerSignature)) return *team;
    auto launched = roster.Launch(program);
    if (!launched) return launched.error();
    if (roster.WaitForTeam(*launched, kLaunchMilliseconds)) return *launched;
    // Somebody else launched one at the same moment, and ours stepped back.
    if (auto team = roster.TeamFor(core::kServerSignature)) return *team;
    return kit::Error::Make(kit::ErrorKind::Io, program, "the backup server does not start");
}

}  // namespace

ServerConnection::ServerConnection()
    : BApplication(core::kCommandLineSignature, Options{.multiple = true}) {}

ServerConnection::~ServerConnection() {
    Stop();
}

kit::Status ServerConnection::Connect() {
    if (InitCheck() != Start::Ready) return kit::Error::Make(kit::ErrorKind::Io, {}, Problem());
    auto team = FindOrLaunch(Directory(), ProgramFolder() + "/Backup_Server/BackupServer");
    if (!team) return team.error();
    fServer = BMessenger(*team, BMessenger::kApplication);
    Run();
    BMessage registration(core::code::kRegisterClient);
    registration.Add("client_id", Team());
    if (!Send(std::move(registration))) {
        return kit::Error::Make(kit::ErrorKind::Io, {}, "the backup server cannot be reached");
    }
    return {};
}

bool ServerConnection::Send(BMessage message) {
    return fServer.SendMessage(std::move(message)) == BSendResult::Ok;
}

std::optional<BMessage> ServerConnection::Ask(BMessage question) {
    BMessage answer;
    if (fServer.SendMessage(std::move(question), &answer, kAnswerPatience) != BSendResult::Ok) {
        return std::nullopt;
    }
    return answer;
}

std::optional<BMessage> ServerConnection::OpenReport(int32_t id) {
    BMessage open(core::code::kOpenReport);
    open.Add("report_id", id);
    open.Add("user", BMessenger(this));
    if (!Send(open)) return std::nullopt;
    std::deque<Event> others;
    std::optional<BMessage> text;
    const auto end = std::chrono::steady_clock::now() + kAnswerPatience;
    while (!text) {
        auto event = Next(
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
        if (!event) break;
        const bool isText = event->kind == Event::Kind::Message &&
                            event->message.what == core::code::kReportText &&
                            event->message.Get<int32_t>("report_id", 0) == id;
        const bool isOver = event->kind == Event::Kind::ServerGone;
        if (!isText) {
            others.push_back(std::move(*event));
            if (isOver) break;
            continue;
        }
        text = std::move(event->message);
        if (auto area = text->Find<int32_t>("area_id")) {
            auto read = kit::SharedArea::Read(fServer.Team(), *area);
            text->SendReply(core::code::kAreaRead);
            text = read ? std::optional(std::move(*read)) : std::nullopt;
            break;
        }
    }
    std::lock_guard lock(fMutex);
    while (!others.empty()) {
        fEvents.push_front(std::move(others.back()));
        others.pop_back();
    }
    return text;
}

std::optional<ServerConnection::Event> ServerConnection::Next(std::chrono::milliseconds patience) {
    std::unique_lock lock(fMutex);
    if (!fArrived.wait_for(lock, patience, [this] { return !fEvents.empty(); }))
        return std::nullopt;
    Event event = std::move(fEvents.front());
    fEvents.pop_front();
    return event;
}

void ServerConnection::Put(Event event) {
    {
        std::lock_guard lock(fMutex);
        fEvents.push_back(std::move(event));
    }
    fArrived.notify_one();
}

void ServerConnection::Interrupt() {
    Put({Event::Kind::Interrupt, {}});
}

void ServerConnection::MessageReceived(BMessage& message) {
    if (message.IsSourceRemote() && message.SourceTeam() == fServer.Team()) {
        Put({Event::Kind::Message, std::move(message)});
    } else if (!message.IsSourceRemote()) {
        BApplication::MessageReceived(message);
    }
}

void ServerConnection::TeamGone(int32_t team) {
    if (team == fServer.Team()) Put({Event::Kind::ServerGone, {}});
}

}  // namespace ctl
