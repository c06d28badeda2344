// BackupApplication: the client's application object. Its constructor runs the start-up on the Qt
// main thread, up to the shown main window; from Run() on it routes messages between windows,
// server and whoever asks, in a thread of its own. client/app/Routing.h has the table.
#pragma once

#include <functional>
#include <memory>

#include "client/app/ServerLink.h"
#include "client/app/ServerProcess.h"
#include "client/settings/Preferences.h"
#include "kit/app/BApplication.h"

class BackupWindow;

// All settings of the client; made and ended with the application object.
extern Preferences* Pref;

class BackupApplication : public BApplication, public ServerLink {
public:
    // Everything the start-up takes from outside, so that a test can give its own.
    struct Setup {
        BApplication::Options application;
        std::string programFolder = ProgramFolder();
        std::string userFolder = FolderToWrite(ProgramFolder());
        std::function<bool(const std::string&)> isReadOnly;          // of the user folder
        std::function<bool(const std::string&)> supportsAttributes;  // of the user folder
        ServerProcess::Patience serverPatience;
        bool background = false;  // no window at first; closed, it only hides
        std::chrono::milliseconds answerPatience{10'000};
        std::chrono::milliseconds cataloguePatience{60'000};
    };
    BackupApplication();
    explicit BackupApplication(Setup setup);
    ~BackupApplication() override;

    BackupWindow* Window() const { return fWindow.get(); }
    const std::string& UserFolder() const { return fSetup.userFolder; }

    // The program folder where the user may write there, else a folder of the user's own.
    static std::string FolderToWrite(const std::string& programFolder);
    // Adds the settings that every start must find.
    static void SetDefaults(Preferences* store);

    // --- ServerLink -----------------------------------------------------------------------------
    bool PostServer(BMessage message) override;                           // any thread
    std::optional<BMessage> AskServer(const BMessage& message) override;  // Qt main thread
    void AskServerLater(BMessage message, BMessenger::AnswerFunction done) override;  // any thread
    void PostApplication(BMessage message) override;                                  // any thread

    // --- looper ---------------------------------------------------------------------------------
    void MessageReceived(BMessage& message) override;
    void RefsReceived(BMessage& message) override;
    void TeamGone(int32_t team) override;
    bool QuitRequested() override;  // asks the main window, which ends the program

private:
    void StartUp();
    void CheckDevice();
    void OpenWindow();
    void RegisterClient();
    void ToServer(BMessage& message);
    void RelayToServer(BMessage& message);
    bool AnswerScripting(BMessage& message);
    void PostWindow(BMessage message);

    Setup fSetup;
    ServerProcess fServer;
    std::unique_ptr<Preferences> fPreferences;
    std::unique_ptr<BackupWindow> fWindow;
    BMessenger fWindowMessenger;
};
