// What the tests of the backup tools and the status window share: a server that answers by script,
// alerts and panels that answer by script, volumes that are not there, a program folder with
// add-ons, and waiting for a condition.
#pragma once

#include <QPointer>
#include <QWidget>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>

#include "client/app/ServerLink.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTToolView.h"
#include "client/uikit/KTWindowLooper.h"
#include "kit/storage/BVolume.h"
#include "tests/TemporaryFolder.h"
#include "tests/client/ClientTesting.h"

namespace backup_testing {

using client_testing::Listener;
using client_testing::Settle;
using client_testing::WaitFor;

class ScriptedServer : public ServerLink {
public:
    bool PostServer(BMessage message) override {
        posted.push_back(std::move(message));
        return true;
    }
    std::optional<BMessage> AskServer(const BMessage& message) override {
        asked.push_back(message);
        const auto answer = answers.find(message.what);
        if (answer == answers.end()) return std::nullopt;
        return answer->second;
    }
    void AskServerLater(BMessage message, BMessenger::AnswerFunction done) override {
        asked.push_back(message);
        if (keepsWaiting)
            waiting.push_back(std::move(done));
        else
            AnswerTo(message, done);
    }
    void PostApplication(BMessage message) override { application.push_back(std::move(message)); }

    std::vector<BMessage> posted, asked, application;
    std::map<uint32_t, BMessage> answers;
    // Asked when `answers` has none; a code of 0 is no answer.
    std::function<BMessage(const BMessage&)> answer;
    bool keepsWaiting = false;  // what is asked later goes to `waiting`
    std::vector<BMessenger::AnswerFunction> waiting;

private:
    void AnswerTo(const BMessage& message, const BMessenger::AnswerFunction& done) {
        const auto known = answers.find(message.what);
        const BMessage reply = known != answers.end() ? known->second
                               : answer               ? answer(message)
                                                      : BMessage();
        done(reply.what ? BSendResult::Ok : BSendResult::NoReply, reply);
    }
};

// Put in place of the real ones as long as it lives; held by shared state, as the seam owns its
// object.
class ScriptedDialogs {
public:
    struct Panel {
        KTPanelRequest request;
        QPointer<QWidget> widget;
        std::function<void(std::optional<std::string>)> done;
    };
    struct State {
        std::vector<KTAlertRequest> alerts;
        std::deque<int> answers;
        std::vector<Panel> panels;
    };
    ScriptedDialogs() : fState(std::make_shared<State>()) {
        fFormer = KTDialogs::Replace(std::make_unique<Seam>(fState));
    }
    ~ScriptedDialogs() { KTDialogs::Replace(std::move(fFormer)); }

    void Answer(int button) { fState->answers.push_back(button); }
    const std::vector<KTAlertRequest>& Alerts() const { return fState->alerts; }
    std::vector<Panel>& Panels() { return fState->panels; }
    // The user closes the last panel with this path, or without one.
    void Close(std::optional<std::string> path) {
        Panel panel = fState->panels.back();
        panel.done(std::move(path));
        delete panel.widget;
        Settle();
    }

private:
    class Seam : public KTDialogs {
    public:
        explicit Seam(std::shared_ptr<State> state) : fState(std::move(state)) {}
        int RunAlert(const KTAlertRequest& request) override {
            fState->alerts.push_back(request);
            if (fState->answers.empty()) return request.buttons.size() == 1 ? 0 : -1;
            const int answer = fState->answers.front();
            fState->answers.pop_front();
            return answer;
        }
        QWidget* OpenPanel(const KTPanelRequest& request,
                           std::function<void(std::optional<std::string>)> done) override {
            auto* widget = new QWidget(request.parent, Qt::Dialog);
            widget->show();
            fState->panels.push_back({request, widget, std::move(done)});
            return widget;
        }
        std::shared_ptr<State> fState;
    };
    std::shared_ptr<State> fState;
    std::unique_ptr<KTDialogs> fFormer;
};

// Volumes as a test wants them; at first two disks. Names are labels.
class MountTable : public kit::MountSource {
public:
    struct Entry {
        const char *name, *path;
        uint64_t device;
        int64_t capacity = 1000, freeBytes = 400;
        const char* type = "ext4";
    };
    MountTable() { Set({{"Disk", "/", 1}, {"Data", "/mnt/data", 2}}); }
    void Set(std::vector<Entry> entries) {
        const std::lock_guard lock(fMutex);
        fEntries = std::move(entries);
    }
    // Looks that begin now see what there is, and answer when they are let go.
    void Hold() { fHeld.lock(); }
    void LetGo() { fHeld.unlock(); }

    std::vector<Mount> Mounts() override {
        std::vector<Mount> mounts;
        {
            const std::lock_guard lock(fMutex);
            for (const Entry& entry : fEntries)
                mounts.push_back({entry.path, "/", entry.type, "/dev/test", entry.device, false});
        }
        const std::lock_guard held(fHeld);
        return mounts;
    }
    std::string Label(const Mount& mount) override {
        const auto entry = Find(mount);
        return entry ? entry->name : "";
    }
    bool IsRemovable(const Mount&) override { return false; }
    std::optional<Space> SpaceOf(const Mount& mount) override {
        const auto entry = Find(mount);
        return entry ? Space{entry->capacity, entry->freeBytes, entry->device} : Space{};
    }

private:
    std::optional<Entry> Find(const Mount& mount) {
        const std::lock_guard lock(fMutex);
        for (const Entry& entry : fEntries)
            if (mount.mountPoint == entry.path) return entry;
        return std::nullopt;
    }
    std::mutex fMutex, fHeld;
    std::vector<Entry> fEntries;
};

// The job of a backup tool that goes to the destination of the tests.
inline BMessage Job(const char* medium, bool overwrite, int32_t type = 1) {
    BMessage volume;
    volume.Add("addon", "KTTest");
    volume.Add("medium", medium);
    volume.Add("overwrite", static_cast<int32_t>(overwrite));
    BMessage job;
    job.Add("job_type", type);
    job.Add("addon", "KTTest");
    job.Add("volume", volume);
    if (type != 1) job.Add("base_id", int32_t{6});
    return job;
}

// A program folder with add-ons: the real ones, and those of the tests.
class ProgramFolder : public TemporaryFolder {
public:
    ProgramFolder() {
        std::filesystem::create_directories(Destinations());
        std::filesystem::create_directories(Compressors());
        std::filesystem::create_directories(*this / "jobsettings");
    }
    std::string Destinations() const { return *this / "Backup_Server/add-ons/destination"; }
    std::string Compressors() const { return *this / "Backup_Server/add-ons/compressors"; }
    void AddReal() const {
        Copy(VELMORA_TEST_ADDONS "/destination/KTImage", Destinations());
        Copy(VELMORA_TEST_ADDONS "/compressors/KTNone", Compressors());
        Copy(VELMORA_TEST_ADDONS "/compressors/KTZstd", Compressors());
    }
    void AddTest() const { Copy(VELMORA_TEST_VOLUMES "/KTTest", Destinations()); }
    static void Copy(const std::string& file, const std::string& folder) {
        std::filesystem::copy(file, folder, std::filesystem::copy_options::overwrite_existing);
    }
};

// Everything a tool view is given.
struct Desk {
    ProgramFolder program;
    Preferences preferences{(program / "Backup.prefs").c_str(), "KTBACKUP"};
    ScriptedServer server;
    ScriptedDialogs dialogs;

    KTToolContext Context() { return {&server, &preferences, program.Path(), program.Path()}; }
};

inline BMessage Answer(uint32_t code, bool result, const BMessage& settings) {
    BMessage message(code);
    message.Add("result", result);
    message.Add("settings", settings);
    return message;
}

}  // namespace backup_testing
