// What the tests of the tools share: volumes that are not there, a program folder with add-ons, and
// the tests' own way with views.
#pragma once

#include <QLabel>
#include <QLineEdit>
#include <mutex>

#include "client/settings/Preferences.h"
#include "client/uikit/KTToolView.h"
#include "kit/storage/BVolume.h"
#include "tests/client/ClientTesting.h"

namespace backup_testing {

using namespace client_testing;

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
    const BMessage volume =
        Made({{"addon", "KTTest"}, {"medium", medium}, {"overwrite", int32_t{overwrite}}});
    BMessage job = Made({{"job_type", type}, {"addon", "KTTest"}, {"volume", volume}});
    if (type != 1) job.Add("base_id", int32_t{6});
    return job;
}

// One more job in a list of the server's.
inline void AddJob(BMessage& jobs, int32_t id, const std::string& title, int32_t status,
                   int32_t type, bool base = false) {
    jobs.Add("job_id", id);
    jobs.Add("title", title);
    jobs.Add("jobstatus", status);
    jobs.Add("job_type", type);
    jobs.Add("date", BTime{0});
    jobs.Add("base", base);
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

// The rules as trees record them.
inline BMessage Selection(const Texts& rules) {
    BMessage message;
    for (const std::string& rule : rules)
        message.Add("SELECTION", rule);
    return message;
}

// What a dialog says to its tool.
inline BMessage Answer(uint32_t code, bool result, const BMessage& settings) {
    return Made(code, {{"result", result}, {"settings", settings}});
}

// A test about one view or window, which it finds things in by their names.
class WidgetTest : public ::testing::Test {
protected:
    virtual QWidget* Subject() = 0;

    template <class T = QWidget>
    T* Find(const QString& name) {
        return Child<T>(Subject(), name);
    }
    QString Words(const char* label) { return Find<QLabel>(label)->text(); }
    QLineEdit* Field(const char* name) { return Find<QLineEdit>(name); }
    bool IsChecked(const char* name) { return Find<QAbstractButton>(name)->isChecked(); }
    void Press(const char* button) { Click(Subject(), button); }
    void Choose(const QString& menu, int index) {
        client_testing::Choose(Find<QComboBox>(menu), index);
    }
    void Send(BMessage message) {
        dynamic_cast<BHandler&>(*Subject()).MessageReceived(message);
        Settle();
    }
    // The one message for the server that a tool has handed to the application.
    BMessage Sent() {
        EXPECT_EQ(desk.server.application.size(), 1u);
        return desk.server.application.empty() ? BMessage() : desk.server.application.back();
    }

    Desk desk;
};

// A test about a dialog of `tool`.
template <class Dialog>
class DialogTest : public WidgetTest {
protected:
    DialogTest() {
        parent.resize(700, 500);
        parent.show();
    }
    ~DialogTest() override { delete dialog; }
    QWidget* Subject() override { return dialog; }
    void Show(Dialog* made) {
        delete dialog;
        dialog = made;
        dialog->show();
        dialog->activateWindow();
        Settle();
    }

    Listener tool;
    QWidget parent;
    QPointer<Dialog> dialog;
};

// What a tool keeps in the settings.
inline BMessage SettingsOf(KTToolView& tool) {
    BMessage settings;
    tool.GetPref(&settings);
    return settings;
}

}  // namespace backup_testing
