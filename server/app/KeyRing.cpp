#include "server/app/KeyRing.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "core/protocol/Codes.h"

namespace server {

namespace {

constexpr int kMostDoublings = 4;

}  // namespace

// A 'ktpc' with passwords, answered name by name: in between it is others' turn.
class KeyRing::Question : public std::enable_shared_from_this<Question> {
public:
    Question(KeyRing& ring, BMessage message) : fRing(ring), fMessage(std::move(message)) {}

    bool Step() {
        if (fNext < fMessage.Count("name")) Answer(fNext++);
        if (fNext < fMessage.Count("name")) return false;
        // Who looks at nothing but the first one must learn of all.
        if (fIsWrong && !fReply.IsEmpty()) fReply.Set<int32_t>("result", 0, 0);
        if (fLocked.empty()) {
            fMessage.SendReply(std::move(fReply));
            return true;
        }
        // Who hears that the password is right asks for the tree next.
        fRing.fOpening.Post([self = shared_from_this()] {
            for (const auto& [name, key] : self->fLocked)
                self->fRing.fOpenTree(name, key, self->fMessage.SourceTeam());
            self->fMessage.SendReply(std::move(self->fReply));
        });
        return true;
    }

private:
    void Answer(int32_t index) {
        const auto name = fMessage.Find<std::string>("name", index);
        const auto backup = name ? fRing.fCatalogues.Find(*name) : std::nullopt;
        if (!backup) return;
        const auto password = fMessage.FindString("pw", index);
        bool right = !backup->isProtected;
        if (!right && password) {
            const auto key = fRing.Try(fMessage.SourceTeam(), *backup, archive::Secret(*password));
            right = key != nullptr;
            if (right && backup->isLocked && fRing.fOpenTree) fLocked.emplace_back(*name, key);
        }
        fIsWrong |= !right;
        fReply.Add("name", *name);
        fReply.Add<int32_t>("result", right ? 1 : 0);
    }

    KeyRing& fRing;
    BMessage fMessage;
    BMessage fReply{core::code::kPasswordResult};
    // Their trees are still to be opened.
    std::vector<std::pair<std::string, std::shared_ptr<const archive::AgeIdentity>>> fLocked;
    int32_t fNext = 0;
    bool fIsWrong = false;
};

KeyRing::KeyRing(CatalogueStore& catalogues, OpenTree openTree, Clock::duration delay)
    : fCatalogues(catalogues),
      fOpenTree(std::move(openTree)),
      fDelay(delay),
      fThread([this] { Run(); }) {}

KeyRing::~KeyRing() {
    {
        const std::lock_guard lock(fMutex);
        fEnd = true;
    }
    fPosted.notify_all();
    fThread.join();
}

void KeyRing::Check(BMessage& message) {
    if (!message.IsSourceWaiting()) return;
    if (message.Has("pw")) {
        const int32_t team = message.SourceTeam();
        const auto question = std::make_shared<Question>(*this, std::move(message));
        Post({team, [question] { return question->Step(); }});
        return;
    }
    BMessage reply(core::code::kPasswordResult);
    for (int32_t i = 0; i < message.Count("name"); ++i) {
        const auto backup = fCatalogues.Find(message.Get("name", std::string(), i));
        if (!backup) continue;
        reply.Add("name", backup->name);
        reply.Add<int32_t>("protected", backup->isProtected ? 1 : 0);
    }
    message.SendReply(std::move(reply));
}

BackupKeys KeyRing::TakeFor(int32_t team) {
    const std::lock_guard lock(fMutex);
    const auto client = fClients.find(team);
    return client == fClients.end() ? BackupKeys() : std::exchange(client->second.open, {});
}

void KeyRing::TeamGone(int32_t team) {
    const std::lock_guard lock(fMutex);
    if (team == 0) return;
    std::erase_if(fTasks, [&](const Task& task) { return task.team == team; });
    fClients.erase(team);
    if (fWorkingFor == team) fWorkingFor = 0;  // what it opens now is nobody's
}

void KeyRing::Protect(archive::Secret password,
                      std::function<void(kit::Result<archive::Protection>)> done) {
    const auto kept = std::make_shared<const archive::Secret>(std::move(password));
    Post({0, [kept, done = std::move(done)] {
              // Whatever happens, who asked must hear of it.
              kit::Result<archive::Protection> made =
                  kit::Error::Make(kit::ErrorKind::Io, "", "no memory for the key");
              try {
                  made = archive::MakeProtection(*kept);
              } catch (const std::bad_alloc&) {
              }
              done(std::move(made));
              return true;
          }});
}

void KeyRing::Post(Task task) {
    {
        const std::lock_guard lock(fMutex);
        fTasks.push_back(std::move(task));
    }
    fPosted.notify_all();
}

KeyRing::Clock::time_point KeyRing::BarredUntil(const Task& task) const {
    const auto client = fClients.find(task.team);
    return client == fClients.end() ? Clock::time_point() : client->second.barred;
}

void KeyRing::Run() {
    std::unique_lock lock(fMutex);
    while (!fEnd) {
        const auto next = std::min_element(
            fTasks.begin(), fTasks.end(), [now = Clock::now(), this](const auto& a, const auto& b) {
                return std::max(BarredUntil(a), now) < std::max(BarredUntil(b), now);
            });
        if (next == fTasks.end()) {
            fPosted.wait(lock);
            continue;
        }
        if (const auto until = BarredUntil(*next); until > Clock::now()) {
            fPosted.wait_until(lock, until);
            continue;
        }
        std::list<Task> taken;
        taken.splice(taken.end(), fTasks, next);
        const int32_t team = taken.front().team;
        fWorkingFor = team;
        lock.unlock();
        bool done = true;
        try {
            done = taken.front().step();
        } catch (const std::exception&) {
            // No memory: whoever waits gets the empty answer of a question that is dropped.
        }
        if (done) taken.clear();
        lock.lock();
        if (std::exchange(fWorkingFor, 0) == team) fTasks.splice(fTasks.end(), taken);
    }
}

std::shared_ptr<const archive::AgeIdentity> KeyRing::Try(int32_t team, const BackupInfo& backup,
                                                         const archive::Secret& password) {
    auto identity = archive::OpenKeyFile(backup.protection.keyFile, password);
    const std::lock_guard lock(fMutex);
    if (fWorkingFor != team) return nullptr;
    Client& client = fClients[team];
    if (!identity) {
        client.barred = Clock::now() + fDelay * (1 << std::min(client.wrong, kMostDoublings));
        ++client.wrong;
        return nullptr;
    }
    client.wrong = 0;
    auto key = std::make_shared<const archive::AgeIdentity>(std::move(*identity));
    client.open[backup.name] = key;
    return key;
}

}  // namespace server
