// The server's application object: registers clients, takes every message to the part that handles
// it, and gives the parts their thread, clock and timers.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "kit/app/BApplication.h"
#include "kit/support/KTPulseUtil.h"
#include "kit/support/WallClock.h"
#include "server/app/Client.h"
#include "server/app/JobDesk.h"
#include "server/app/KeyRing.h"
#include "server/catalogue/CatalogueDesk.h"

namespace server {

class BackupServer : public BApplication, private ServerHost {
public:
    struct Configuration {
        std::string dataFolder;
        std::string addOnFolder;
        // Runs one job, with the catalogues of this server.
        std::function<core::JobEnd(const JobOrder&, CatalogueStore&, JobEvents&, JobControl&)>
            engine;
        SleepGuard keepAwake;  // empty: the machine sleeps as it likes
        // Another clock than the machine's; it calls `wake` as kit::SystemClock does.
        std::function<std::unique_ptr<kit::WallClock>(std::function<void()> wake)> clock;
    };

    BackupServer();  // InitCheck tells whether it is the one
    ~BackupServer() override;

    // Opens the records and takes up the queue. Before the loop.
    kit::Status Open(Configuration configuration);

    void MessageReceived(BMessage& message) override;
    void TeamGone(int32_t team) override;
    // Jobs are aborted first; the loop ends when they have ended.
    bool QuitRequested() override;

private:
    // Every message that the server knows, in one table.
    struct Entry {
        uint32_t code;
        void (*handle)(BackupServer& server, BMessage& message);
    };
    static const Entry kTable[];

    void Register(BMessage& message);  // 'KTAD'
    bool HandleOwn(uint32_t code);     // pulses and work handed over; never from another process
    void DoLater();
    void SetTimers();
    static void AnswerUnknown(BMessage& message);

    // ServerHost
    void Later(std::function<void()> function) override;
    int64_t Now() const override;
    core::Zone LocalZone() const override { return core::Zone::OfSystem(); }
    void NotifyAll(const BMessage& notice) override;
    bool IsClient(int32_t team) const override { return fClients.contains(team); }
    std::vector<int32_t> Clients() const override;
    void Send(const BMessenger& target, BMessage message) override;
    void Ask(const BMessenger& target, BMessage question,
             std::function<void(BMessage)> done) override;

    std::mutex fLaterMutex;
    std::deque<std::function<void()>> fLater;
    std::map<int32_t, Client> fClients;
    bool fQuitting = false;

    std::unique_ptr<kit::WallClock> fClock;
    std::optional<Records> fRecords;
    std::unique_ptr<CatalogueStore> fCatalogues;
    std::unique_ptr<Worker> fWriting;
    std::unique_ptr<ReportDesk> fReports;
    std::unique_ptr<CatalogueDesk> fBackups;
    std::unique_ptr<JobPanels> fPanels;
    std::unique_ptr<KeyRing> fKeys;
    std::unique_ptr<JobDesk> fJobs;

    std::unique_ptr<KTPulseUtil> fPanelPulse;  // while jobs run
    std::unique_ptr<KTPulseUtil> fDayPulse;
};

}  // namespace server
