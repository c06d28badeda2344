// The panels that show running jobs: asks clients for one when a job starts ('KTJS', answered by
// 'KTAB'), sends them what the job says ('KTJF') and its end ('KTJf', once to each). A job that
// nobody watches runs just the same; a panel that comes up to a minute after the end still gets the
// outcome.
//
// Looper's thread.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server/app/JobStream.h"
#include "server/app/ServerHost.h"

namespace server {

class JobPanels {
public:
    static constexpr int64_t kKeepSeconds = 60;

    explicit JobPanels(ServerHost& host) : fHost(host) {}

    // `submitter`: the team that is asked; when it is no client any more all are.
    void JobStarted(int32_t id, core::JobType type, const std::string& title, int32_t submitter,
                    std::shared_ptr<JobStream> stream);
    void JobEnded(int32_t id, core::JobEnd end);
    void ClientRegistered(int32_t team);  // asked for a panel of every job now running
    void TeamGone(int32_t team);
    void Accept(const BMessage& acceptance);  // 'KTAB', as an answer or as a message

    void Pulse();         // ten times a second while a job runs
    bool IsIdle() const;  // no job runs: no pulses are needed

private:
    struct Panel {
        BMessenger target;
        bool told = false;  // of the end
    };
    struct Show {
        BMessage start;  // 'KTJS'
        std::shared_ptr<JobStream> stream;
        std::vector<Panel> panels;
        std::optional<core::JobEnd> end;
        int64_t ended = 0;
    };
    void AskForPanel(int32_t team, const Show& show);
    void Send(const Panel& panel, const std::vector<BMessage>& messages);
    void SendNew(Show& show);
    void SendEnd(int32_t id, const Show& show, Panel& panel);

    ServerHost& fHost;
    std::map<int32_t, Show> fShows;
};

}  // namespace server
