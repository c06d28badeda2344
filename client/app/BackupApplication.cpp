#include "client/app/BackupApplication.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "client/app/ClientCodes.h"
#include "client/app/Languages.h"
#include "client/app/OpenFile.h"
#include "client/app/Product.h"
#include "client/app/Routing.h"
#include "client/app/ServerQuestion.h"
#include "client/mainwindow/BackupWindow.h"
#include "client/uikit/KTAlert.h"
#include "core/files/HeaderFile.h"
#include "core/locale/TextTable.h"
#include "core/protocol/Codes.h"
#include "kit/storage/NodeAttributes.h"

Preferences* Pref = nullptr;

namespace {

constexpr char kAlertTitle[] = "Backup";
constexpr BRect kDefaultFrame{50, 80, 600, 435};

void StopAlert(QWidget* parent, const char* text) {
    KTAlert(parent, kAlertTitle, text, {"Stop"}, KTAlertRequest::Kind::Stop);
}

}  // namespace

BackupApplication::BackupApplication() : BackupApplication(Setup()) {}

BackupApplication::BackupApplication(Setup setup)
    : BApplication(core::kClientSignature, setup.application),
      fSetup(std::move(setup)),
      fServer(Directory(), fSetup.programFolder + "/Backup_Server/BackupServer",
              fSetup.serverPatience) {
    if (!fSetup.isReadOnly) fSetup.isReadOnly = kit::IsReadOnly;
    if (!fSetup.supportsAttributes) fSetup.supportsAttributes = kit::SupportsAttributes;
    if (InitCheck() == BApplication::Start::Ready) StartUp();
}

BackupApplication::~BackupApplication() {
    fWindow.reset();
    Stop();
    Pref = nullptr;
}

void BackupApplication::StartUp() {
    client::InstallBuiltInTexts();

    const std::string& folder = fSetup.userFolder;
    std::error_code ignored;  // what cannot be made is found by the device test
    std::filesystem::create_directories(folder, ignored);
    CheckDevice();
    ::mkdir((folder + "/jobsettings").c_str(), 0777);
    ::mkdir((folder + "/locale").c_str(), 0777);

    fPreferences = std::make_unique<Preferences>((folder + "/Backup.prefs").c_str(),
                                                 core::kSettingsMagic.data());
    Pref = fPreferences.get();
    SetDefaults(Pref);
    client::UseLanguage(client::LanguageFolders(fSetup.programFolder, folder),
                        Pref->GetString("KT_LANGUAGE", client::kDefaultLanguage));

    const bool hasServer = fServer.FindOrLaunch();
    RegisterClient();
    OpenWindow();
    if (!hasServer) {
        StopAlert(fWindow.get(), client::kNoServerText);
        PostMessage(B_QUIT_REQUESTED);
    }
}

void BackupApplication::CheckDevice() {
    if (fSetup.isReadOnly(fSetup.userFolder)) {
        StopAlert(nullptr, "ERROR: Velmora Backup can't be started from a read only device!");
        PostMessage(B_QUIT_REQUESTED);
    }
    if (!fSetup.supportsAttributes(fSetup.userFolder)) {
        StopAlert(nullptr,
                  "ERROR: Velmora Backup can't be started from a device that doesn't support file "
                  "attributes!");
        PostMessage(B_QUIT_REQUESTED);
    }
}

void BackupApplication::OpenWindow() {
    BRect frame = Pref->GetRect("KT_MAINWINPOS");
    if (frame.Width() == 0) {
        frame = kDefaultFrame;
        Pref->Set("KT_MAINWINPOS", frame);
    }
    KTToolContext context;
    context.server = this;
    context.preferences = Pref;
    context.programFolder = fSetup.programFolder;
    context.userFolder = fSetup.userFolder;
    fWindow = std::make_unique<BackupWindow>(std::move(context), frame);
    fWindowMessenger = BMessenger(static_cast<BHandler*>(fWindow.get()));
    if (fSetup.background)
        fWindow->StayInBackground();
    else
        fWindow->show();
}

std::string BackupApplication::FolderToWrite(const std::string& programFolder) {
    if (::access(programFolder.c_str(), W_OK) == 0) return programFolder;
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return std::string(data) + "/velmora-backup";
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + "/.local/share/velmora-backup";
}

void BackupApplication::SetDefaults(Preferences* store) {
    BMessage status = store->GetMessageData("status");
    if (!status.Find<int32_t>("autoopen")) {
        status.Add("autoopen", int32_t{1});
        store->Set("status", status);
    }
    BMessage restore = store->GetMessageData("restore");
    if (!restore.Find<BMessage>("restore")) {
        BMessage defaults;
        defaults.Add("createemptydirs", int32_t{1});
        defaults.Add("divert", int32_t{1});
        restore.Add("restore",
                    defaults);  // one level deeper than the group: files in use have it so
        store->Set("restore", restore);
    }
}

void BackupApplication::RegisterClient() {
    BMessage registration(core::code::kRegisterClient);
    registration.Add("client_id", Team());
    PostServer(std::move(registration));
}

bool BackupApplication::PostServer(BMessage message) {
    return fServer.Team() > 0 &&
           fServer.Messenger().SendMessage(std::move(message)) == BSendResult::Ok;
}

std::optional<BMessage> BackupApplication::AskServer(const BMessage& message) {
    if (fServer.Team() <= 0) return std::nullopt;
    return client::AskAndWait(fServer.Messenger(), message,
                              message.what == core::code::kListCatalogue ? fSetup.cataloguePatience
                                                                         : fSetup.answerPatience);
}

void BackupApplication::AskServerLater(BMessage message, BMessenger::AnswerFunction done) {
    if (fServer.Team() <= 0) return done(BSendResult::NoTarget, BMessage());
    fServer.Messenger().Ask(std::move(message), std::move(done));
}

void BackupApplication::PostApplication(BMessage message) {
    PostMessage(std::move(message));
}

void BackupApplication::PostWindow(BMessage message) {
    fWindowMessenger.SendMessage(std::move(message));
}

void BackupApplication::MessageReceived(BMessage& message) {
    using client::Route;
    const bool namesJob = message.Find<int32_t>("job_id").has_value();
    switch (client::RouteOf(message.what, message.IsSourceRemote(), namesJob)) {
        case Route::SubmitJob:
            message.Add("client_id", Team());
            ToServer(message);
            break;
        case Route::Server:
        case Route::ServerByJobId:
            ToServer(message);
            break;
        case Route::AskServer:
            RelayToServer(message);
            break;
        case Route::Window:
            PostWindow(std::move(message));
            break;
        case Route::Dropped:
            break;
        case Route::Application:
            if (message.what != B_GET_PROPERTY || !AnswerScripting(message))
                BApplication::MessageReceived(message);
    }
}

void BackupApplication::ToServer(BMessage& message) {
    const bool startsSomething = client::StartsSomething(message.what) && !message.IsSourceRemote();
    // A connection whose other end has just died still takes messages, and loses them: what the
    // user starts is worth a look first.
    if (startsSomething && fServer.Team() > 0 && fServer.IsGone(fServer.Team()))
        PostWindow(BMessage(client::code::kServerGone));
    if (PostServer(message) || !startsSomething) return;
    // Nothing else could be routed meanwhile anyway: there is no server.
    if (fServer.FindOrLaunch()) {
        RegisterClient();
        PostWindow(BMessage(client::code::kServerBack));
        if (PostServer(message)) return;
    }
    PostWindow(BMessage(client::code::kServerMissing));
}

void BackupApplication::RelayToServer(BMessage& message) {
    const uint32_t code = client::AnswerCodeOf(message.what);
    BMessage question(message);
    // The asker waits, this loop does not: the answer is handed on by whoever brings it.
    auto asked = std::make_shared<BMessage>(std::move(message));
    auto answer = [asked, code](BSendResult, BMessage reply) {
        reply.what = code;
        asked->SendReply(std::move(reply));
    };
    if (fServer.Team() > 0)
        fServer.Messenger().Ask(std::move(question), answer);
    else
        answer(BSendResult::NoTarget, BMessage());
}

bool BackupApplication::AnswerScripting(BMessage& message) {
    const int32_t count = message.Count("specifiers", B_MESSAGE_TYPE);
    const auto specifier = message.Find<BMessage>("specifiers", count - 1);
    if (count == 0 || !specifier || specifier->what != B_DIRECT_SPECIFIER) return false;
    const std::string property = specifier->Get("property", std::string());
    BMessage reply(B_REPLY);
    if (property == "DefaultText") {
        for (const char* text : core::kTextTable)
            reply.Add("result", text);
    } else if (property == "DefaultLanguage") {
        reply.Add("result", client::kDefaultLanguage);
    } else if (property == "TextAppID") {
        reply.Add("result", client::kTextAppId);
    } else {
        return false;
    }
    message.SendReply(std::move(reply));
    return true;
}

void BackupApplication::RefsReceived(BMessage& message) {
    PostWindow(BMessage(client::code::kRaise));
    const auto file = message.Find<entry_ref>("refs");
    if (!file) return;
    const uint32_t tool = client::ToolForFile(file->path);
    if (tool == 0) return;
    BMessage open(tool);
    open.Add("ref", *file);
    PostWindow(std::move(open));
}

void BackupApplication::TeamGone(int32_t team) {
    if (team <= 0 || team != fServer.Team()) return;
    if (fServer.IsGone(team)) {
        PostWindow(BMessage(client::code::kServerGone));
        return;
    }
    // Only the connection broke; to the server this client is gone until it registers again.
    RegisterClient();
    PostWindow(BMessage(client::code::kServerBack));
}

bool BackupApplication::QuitRequested() {
    PostWindow(BMessage(B_QUIT_REQUESTED));
    return false;
}
