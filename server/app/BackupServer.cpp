#include "server/app/BackupServer.h"

#include <algorithm>

#include "core/protocol/Codes.h"

namespace server {

namespace {

// Internal codes; they are only heeded when they come from this process.
constexpr uint32_t kLater = "slat"_code;
constexpr uint32_t kPanelPulse = "spul"_code;
constexpr uint32_t kWake = "swak"_code;
constexpr uint32_t kDay = "sday"_code;

constexpr std::chrono::milliseconds kPanelPeriod{100};
constexpr std::chrono::hours kDayPeriod{24};

}  // namespace

const BackupServer::Entry BackupServer::kTable[] = {
    {core::code::kRegisterClient, [](auto& server, auto& message) { server.Register(message); }},
    {core::code::kSubmitJob, [](auto& server, auto& message) { server.fJobs->Submit(message); }},
    {core::code::kListJobs, [](auto& server, auto& message) { server.fJobs->List(message); }},
    {core::code::kContinueJob,
     [](auto& server, auto& message) { server.fJobs->Continue(message); }},
    {core::code::kPauseJob, [](auto& server, auto& message) { server.fJobs->Pause(message); }},
    {core::code::kStartJobNow,
     [](auto& server, auto& message) { server.fJobs->StartNow(message); }},
    {core::code::kDeleteJob, [](auto& server, auto& message) { server.fJobs->Delete(message); }},
    {core::code::kEditJob, [](auto& server, auto& message) { server.fJobs->Edit(message); }},
    {core::code::kGetJob, [](auto& server, auto& message) { server.fJobs->Get(message); }},
    {core::code::kSetJob, [](auto& server, auto& message) { server.fJobs->Set(message); }},
    {core::code::kAcceptStatus,
     [](auto& server, auto& message) { server.fPanels->Accept(message); }},
    {core::code::kListCatalogue,
     [](auto& server, auto& message) { server.fBackups->List(message); }},
    {core::code::kFindEntries, [](auto& server, auto& message) { server.fBackups->Find(message); }},
    {core::code::kDeleteBackups,
     [](auto& server, auto& message) { server.fBackups->Delete(message); }},
    {core::code::kPassword, [](auto& server, auto& message) { server.fKeys->Check(message); }},
    {core::code::kScanMedium, [](auto& server, auto& message) { server.fBackups->Scan(message); }},
    {core::code::kListReports, [](auto& server, auto& message) { server.fReports->List(message); }},
    {core::code::kOpenReport, [](auto& server, auto& message) { server.fReports->Open(message); }},
    {core::code::kCloseReport,
     [](auto& server, auto& message) { server.fReports->Close(message); }},
    {core::code::kDeleteReports,
     [](auto& server, auto& message) { server.fReports->Delete(message); }},
    {core::code::kGetReportDeletion,
     [](auto& server, auto& message) { server.fReports->GetDeletion(message); }},
    {core::code::kReportDeletion,
     [](auto& server, auto& message) { server.fReports->SetDeletion(message); }},
};

BackupServer::BackupServer() : BApplication(core::kServerSignature) {}

BackupServer::~BackupServer() {
    fPanelPulse.reset();
    fDayPulse.reset();
    // What runs still writes its report; what writes still uses the desks.
    if (fJobs) fJobs->Stop();
    if (fBackups) fBackups->Stop();
    fKeys.reset();
    fWriting.reset();
    fJobs.reset();
    fPanels.reset();
    fBackups.reset();
    fReports.reset();
    // The ends of open questions come to `Later`.
    Disconnect();
}

kit::Status BackupServer::Open(Configuration configuration) {
    const auto wake = [this] { PostMessage(kWake); };
    fClock =
        configuration.clock ? configuration.clock(wake) : std::make_unique<kit::SystemClock>(wake);
    auto records = Records::Open(configuration.dataFolder);
    if (!records) return records.error();
    fRecords.emplace(std::move(*records));
    fCatalogues = std::make_unique<CatalogueStore>(configuration.dataFolder + "/catalogues");
    const auto opened = fCatalogues->Open();

    ServerHost& host = *this;
    fWriting = std::make_unique<Worker>();
    fReports = std::make_unique<ReportDesk>(host, *fRecords, configuration.dataFolder, *fWriting);
    fBackups =
        std::make_unique<CatalogueDesk>(host, *fCatalogues, *fReports, configuration.addOnFolder);
    fPanels = std::make_unique<JobPanels>(host);
    fKeys = std::make_unique<KeyRing>(*fCatalogues,
                                      [this](const std::string& backup, auto key, int32_t team) {
                                          fBackups->OpenTree(backup, std::move(key), team);
                                      });
    fJobs = std::make_unique<JobDesk>(JobDesk::Parts{
        .host = host,
        .records = *fRecords,
        .writing = *fWriting,
        .catalogues = *fCatalogues,
        .reports = *fReports,
        .panels = *fPanels,
        .keys = *fKeys,
        .engine = [this, engine = std::move(configuration.engine)](
                      const JobOrder& order, JobEvents& events,
                      JobControl& control) { return engine(order, *fCatalogues, events, control); },
        .keepAwake = std::move(configuration.keepAwake),
        .catalogueChanged = [this] { fBackups->TellChanges(); },
        .scheduleChanged = [this] { SetTimers(); },
    });

    std::vector<std::string> problems = fRecords->Problems();
    const auto& unreadable = fCatalogues->Problems();
    problems.insert(problems.end(), unreadable.begin(), unreadable.end());
    if (!opened) problems.push_back("The catalogues cannot be opened: " + opened.error().Text());
    if (!problems.empty()) {
        LineChunk lines;
        for (const auto& words : problems)
            lines.AddWords(core::LineType::Error, words);
        fReports->Write({0, 0, 0, "Backup server", 0}, std::move(lines));
    }
    fJobs->Recover();
    fReports->ApplyDeletion();
    fDayPulse = std::make_unique<KTPulseUtil>(kDayPeriod, kDay, BMessenger(this));
    Later([this] { fJobs->TimePassed(); });
    return {};
}

// --- messages -----------------------------------------------------------------------------------

void BackupServer::MessageReceived(BMessage& message) {
    if (!message.IsSourceRemote() && HandleOwn(message.what)) return;
    const auto* entry = std::find_if(std::begin(kTable), std::end(kTable),
                                     [&](const Entry& e) { return e.code == message.what; });
    if (entry != std::end(kTable)) {
        entry->handle(*this, message);
    } else if (!message.IsSourceRemote()) {
        BApplication::MessageReceived(message);  // what the kit tells its application
    }
    // Also for a known code that came as a request although it has no answer: nobody waits in vain.
    if (message.IsSourceWaiting()) AnswerUnknown(message);
}

void BackupServer::AnswerUnknown(BMessage& message) {
    if (message.what != B_GET_PROPERTY) {
        message.SendReply(core::code::kNone);
        return;
    }
    BMessage reply(B_MESSAGE_NOT_UNDERSTOOD);
    reply.Add<int32_t>("error", -1);
    reply.Add("message", "The backup server has no properties.");
    message.SendReply(std::move(reply));
}

bool BackupServer::HandleOwn(uint32_t code) {
    switch (code) {
        case kLater:
            DoLater();
            return true;
        case kPanelPulse:
            fPanels->Pulse();
            return true;
        case kWake:
            fJobs->TimePassed();
            return true;
        case kDay:
            fReports->ApplyDeletion();
            return true;
        default:
            return false;
    }
}

void BackupServer::Register(BMessage& message) {
    // The connection says who it is; "client_id" only repeats it.
    const int32_t team = message.SourceTeam();
    if (team <= 0) return;
    fClients.try_emplace(team, team);
    fPanels->ClientRegistered(team);
}

void BackupServer::TeamGone(int32_t team) {
    fClients.erase(team);
    fPanels->TeamGone(team);
    fKeys->TeamGone(team);
    fJobs->TeamGone(team);
}

bool BackupServer::QuitRequested() {
    fQuitting = true;
    fJobs->Stop();
    fBackups->Stop();
    return fJobs->IsIdle();
}

// --- ServerHost ---------------------------------------------------------------------------------

void BackupServer::Later(std::function<void()> function) {
    bool first = false;
    {
        std::lock_guard lock(fLaterMutex);
        first = fLater.empty();
        fLater.push_back(std::move(function));
    }
    if (first) PostMessage(kLater);
}

void BackupServer::DoLater() {
    std::deque<std::function<void()>> functions;
    {
        std::lock_guard lock(fLaterMutex);
        functions.swap(fLater);
    }
    for (auto& function : functions)
        function();
    if (fQuitting && fJobs->IsIdle()) Quit();
}

int64_t BackupServer::Now() const {
    return fClock->Now();
}

void BackupServer::NotifyAll(const BMessage& notice) {
    for (const auto& [team, client] : fClients)
        client.Messenger().SendMessage(notice);
}

std::vector<int32_t> BackupServer::Clients() const {
    std::vector<int32_t> teams;
    for (const auto& [team, client] : fClients)
        teams.push_back(team);
    return teams;
}

void BackupServer::Send(const BMessenger& target, BMessage message) {
    target.SendMessage(std::move(message));  // one that is gone is dropped by TeamGone
}

void BackupServer::Ask(const BMessenger& target, BMessage question,
                       std::function<void(BMessage)> done) {
    target.Ask(std::move(question), [this, done](BSendResult, BMessage answer) {
        Later([done, answer = std::move(answer)] { done(answer); });
    });
}

void BackupServer::SetTimers() {
    if (fPanels->IsIdle()) {
        fPanelPulse.reset();
    } else if (!fPanelPulse) {
        fPanelPulse = std::make_unique<KTPulseUtil>(kPanelPeriod, kPanelPulse, BMessenger(this));
    }
    fClock->SetAlarm(fJobs->NextWake());
}

}  // namespace server
