#include "server/app/JobPanels.h"

#include <algorithm>

namespace server {

void JobPanels::JobStarted(int32_t id, core::JobType type, const std::string& title,
                           int32_t submitter, std::shared_ptr<JobStream> stream) {
    Show show;
    show.start.what = core::code::kJobStarted;
    show.start.Add("job_id", id);
    show.start.Add("job_type", static_cast<int32_t>(type));
    show.start.Add("title", title);
    show.stream = std::move(stream);
    const Show& kept = fShows[id] = std::move(show);
    if (fHost.IsClient(submitter)) {
        AskForPanel(submitter, kept);
    } else {
        for (const int32_t team : fHost.Clients())
            AskForPanel(team, kept);
    }
}

void JobPanels::AskForPanel(int32_t team, const Show& show) {
    fHost.Ask(BMessenger(team, BMessenger::kApplication), show.start,
              [this](const BMessage& answer) {
                  if (answer.what == core::code::kAcceptStatus) Accept(answer);
              });
}

void JobPanels::ClientRegistered(int32_t team) {
    for (const auto& [id, show] : fShows) {
        const bool watches = std::any_of(show.panels.begin(), show.panels.end(),
                                         [&](const Panel& p) { return p.target.Team() == team; });
        if (!show.end && !watches) AskForPanel(team, show);
    }
}

void JobPanels::Accept(const BMessage& acceptance) {
    const auto id = acceptance.Find<int32_t>("job_id");
    const auto user = acceptance.Find<BMessenger>("user");
    auto at = id ? fShows.find(*id) : fShows.end();
    if (at == fShows.end() || !user) return;
    Show& show = at->second;
    auto panel = std::find_if(show.panels.begin(), show.panels.end(),
                              [&](const Panel& p) { return p.target == *user; });
    if (panel != show.panels.end() && panel->told) return;
    const auto fresh = show.stream->TakeNew();
    for (const Panel& other : show.panels)
        Send(other, fresh);
    if (show.panels.empty()) {
        // What was said before anybody listened; the volume and the progress come below.
        for (const BMessage& message : fresh) {
            const auto type = static_cast<core::LineType>(message.Get<int32_t>("linetype", 0));
            if (type == core::LineType::Volume || type == core::LineType::Progress) continue;
            fHost.Send(*user, message);
        }
    }
    if (panel == show.panels.end()) panel = show.panels.insert(panel, Panel{*user});
    Send(*panel, show.stream->Latest());
    if (show.end) SendEnd(*id, show, *panel);
}

void JobPanels::Send(const Panel& panel, const std::vector<BMessage>& messages) {
    for (const BMessage& message : messages)
        fHost.Send(panel.target, message);
}

void JobPanels::SendNew(Show& show) {
    for (const BMessage& message : show.stream->TakeNew()) {
        for (const Panel& panel : show.panels)
            fHost.Send(panel.target, message);
    }
}

void JobPanels::SendEnd(int32_t id, const Show& show, Panel& panel) {
    BMessage end(core::code::kJobFinished);
    end.Add("job_id", id);
    end.Add("status", static_cast<int32_t>(*show.end));
    fHost.Send(panel.target, std::move(end));
    panel.told = true;
}

void JobPanels::JobEnded(int32_t id, core::JobEnd end) {
    auto at = fShows.find(id);
    if (at == fShows.end() || at->second.end) return;
    Show& show = at->second;
    show.end = end;
    show.ended = fHost.Now();
    // Lines that nobody was there to see are in the report.
    SendNew(show);
    for (Panel& panel : show.panels)
        SendEnd(id, show, panel);
    std::erase_if(fShows, [&](const auto& entry) {
        const Show& old = entry.second;
        return old.end && fHost.Now() - old.ended > kKeepSeconds;
    });
}

void JobPanels::TeamGone(int32_t team) {
    for (auto& [id, show] : fShows) {
        std::erase_if(show.panels, [&](const Panel& panel) { return panel.target.Team() == team; });
    }
}

void JobPanels::Pulse() {
    for (auto& [id, show] : fShows) {
        if (!show.end && !show.panels.empty()) SendNew(show);
    }
}

bool JobPanels::IsIdle() const {
    return std::all_of(fShows.begin(), fShows.end(),
                       [](const auto& entry) { return entry.second.end.has_value(); });
}

}  // namespace server
