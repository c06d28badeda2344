// The keys of protected backups: checks passwords ('ktpc'), keeps what a right one opened until the
// client's next job that reads backups, and makes the keys of new ones. Each password costs about a
// second and 256 MiB, so they take turns on a thread of their own; after a wrong one its client
// waits, nobody else.
//
// Looper's thread, but for what is said.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <thread>

#include "kit/message/BMessage.h"
#include "server/app/Worker.h"
#include "server/archive/KeyFile.h"
#include "server/catalogue/CatalogueStore.h"
#include "server/engine/JobEnvironment.h"

namespace server {

class KeyRing {
public:
    using Clock = std::chrono::steady_clock;
    // Opens the tree of a backup that came by insert. On a thread of its own; who gave the password
    // waits for it, nobody else.
    using OpenTree = std::function<void(
        const std::string& backup, std::shared_ptr<const archive::AgeIdentity> key, int32_t team)>;

    // After a wrong password the next one of the same client is looked at so much later; twice as
    // long after the second, up to 16 times.
    explicit KeyRing(CatalogueStore& catalogues, OpenTree openTree = {},
                     Clock::duration delay = std::chrono::seconds(1));
    ~KeyRing();  // what still waits is let go

    void Check(BMessage& message);  // 'ktpc'
    // Everything that this client's passwords opened; afterwards it has nothing open any more.
    BackupKeys TakeFor(int32_t team);
    void TeamGone(int32_t team);

    // `done` is called on the ring's own thread.
    void Protect(archive::Secret password,
                 std::function<void(kit::Result<archive::Protection>)> done);

private:
    struct Task {
        int32_t team = 0;            // 0: nobody's
        std::function<bool()> step;  // false: there is another one
    };
    struct Client {
        BackupKeys open;
        int wrong = 0;
        Clock::time_point barred;  // until then
    };
    class Question;

    void Post(Task task);
    void Run();
    Clock::time_point BarredUntil(const Task& task) const;
    // What the password opens, null for a wrong one; then the backup is open for the client.
    std::shared_ptr<const archive::AgeIdentity> Try(int32_t team, const BackupInfo& backup,
                                                    const archive::Secret& password);

    CatalogueStore& fCatalogues;
    const OpenTree fOpenTree;
    const Clock::duration fDelay;

    std::mutex fMutex;
    std::condition_variable fPosted;
    std::list<Task> fTasks;
    std::map<int32_t, Client> fClients;
    int32_t fWorkingFor = 0;
    bool fEnd = false;
    std::thread fThread;
    Worker fOpening;
};

}  // namespace server
