// The settings of KTRemote and its window.
#include "addons/KTRemote/KTRemote.h"

#include <algorithm>

#include "addons/common/KTMediaSettings.h"

namespace {

struct Words {
    const char *title, *remote, *remoteHint, *mediaSizeHint;
    const char *noRemote, *notRemote, *withOptions, *notInstalled, *notKnown;
};

constexpr Words kEnglishWords = {
    .title = "Remote Settings",
    .remote = "Remote",
    .remoteHint =
        "Name and folder as rclone has them, like \"nas:backups\"; the name is one that "
        "\"rclone config\" has set up. Every backup becomes a folder in it.",
    .mediaSizeHint = "What is smaller than 4 GB can be sent again when the connection was lost.",
    .noRemote = "Please enter a remote!",
    .notRemote = "Please enter the remote by its name and a folder, like \"nas:backups\"!",
    .withOptions =
        "Please set the remote up with \"rclone config\" and enter its name and a "
        "folder only!",
    .notInstalled = "The program \"rclone\" is not installed!",
    .notKnown = "rclone knows no remote of this name! Set it up with \"rclone config\".",
};

constexpr Words kGermanWords = {
    .title = "Remote-Einstellungen",
    .remote = "Remote",
    .remoteHint =
        "Name und Ordner, wie rclone sie schreibt, etwa „nas:sicherungen“; der Name ist "
        "mit „rclone config“ eingerichtet. Jede Sicherung wird ein Ordner darin.",
    .mediaSizeHint =
        "Was kleiner als 4 GB ist, kann nach einem Abbruch der Verbindung noch einmal "
        "gesendet werden.",
    .noRemote = "Bitte geben Sie ein Remote an!",
    .notRemote = "Bitte geben Sie das Remote mit Name und Ordner an, etwa „nas:sicherungen“!",
    .withOptions =
        "Bitte richten Sie das Remote mit „rclone config“ ein und geben Sie hier nur "
        "Name und Ordner an!",
    .notInstalled = "Das Programm „rclone“ ist nicht installiert!",
    .notKnown = "rclone kennt kein Remote dieses Namens! Richten Sie es mit „rclone config“ ein.",
};

const char* ProblemWith(const std::string& remote, const Words& words) {
    if (remote.empty()) return words.noRemote;
    const std::string name = remote.substr(0, remote.find(':'));
    if (name.empty() || name.find_first_of(",=\"'") != std::string::npos) return words.withOptions;
    const bool isClean =
        std::none_of(remote.begin(), remote.end(), [](char c) { return c >= 0 && c < ' '; });
    if (name.size() == remote.size() || name[0] == '-' || name.find('/') != std::string::npos ||
        !isClean) {
        return words.notRemote;
    }
    return nullptr;
}

// Whether rclone is there and knows the name. What cannot be found out is left to the job.
const char* ProblemKnownToRclone(const std::string& remote, const RcloneLimits& limits,
                                 const Words& words) {
    constexpr auto kPatience = std::chrono::seconds(5);
    const auto names = Rclone::Ask(limits, {"listremotes"}, {}, kPatience, {});
    if (!names && names.error().kind == kit::ErrorKind::Unsupported) return words.notInstalled;
    if (!names) return nullptr;
    const std::string line = remote.substr(0, remote.find(':') + 1) + "\n";
    return ("\n" + *names).find("\n" + line) == std::string::npos ? words.notKnown : nullptr;
}

}  // namespace

KTRemote::KTRemote(RcloneLimits limits)
    : fLimits(std::move(limits)), fReader(fLimits, [this] { return IsAborted(); }) {}

int32_t KTRemote::Archive(BMessage* message, bool) const {
    GetSettings(message);
    return 0;
}

void KTRemote::SetSettings(const BMessage& settings) {
    fRemote = settings.Get<std::string>("remote", "");
    fMediaSize = settings.Get<int64_t>("mediasize", kUsualMediaSize);
    fOverwrite = settings.Get<int32_t>("overwrite", 0) != 0;
    // What a message brings that another program wrote is not shown anywhere.
    if (ProblemWith(fRemote, kEnglishWords)) fRemote.clear();
    fMovesFolders = -1;
    ForgetFiles();
}

void KTRemote::GetSettings(BMessage* settings) const {
    settings->Set("addon", kAddOn);
    settings->Set("remote", fRemote);
    settings->Set("mediasize", fMediaSize);
    settings->Set("overwrite", int32_t{fOverwrite});
}

void KTRemote::ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                            const char* language) {
    if (!parent) return;
    fGerman = media_settings::IsGerman(language);
    const Words& words = fGerman ? kGermanWords : kEnglishWords;
    BMessage values;
    GetSettings(&values);
    BMessage window;
    window.Add("title", words.title);
    window.Add("values", values);
    window.Add("field", media_settings::Field("remote", "string", words.remote, words.remoteHint));
    window.Add("field", media_settings::MediaSizeField(fGerman, words.mediaSizeHint));
    window.Add("field", media_settings::OverwriteField(fGerman));
    parent->OpenSettings(window, this, target);
}

bool KTRemote::ApplySettings(const BMessage& values, const BMessenger& target,
                             std::string* problem) {
    BMessage before;
    GetSettings(&before);
    BMessage wanted = before;  // a field that the window did not send keeps its value
    if (auto remote = values.Find<std::string>("remote")) wanted.Set("remote", *remote);
    media_settings::Take(values, &wanted);

    const Words& words = fGerman ? kGermanWords : kEnglishWords;
    const auto remote = wanted.Get<std::string>("remote", "");
    const char* found = ProblemWith(remote, words);
    if (!found) {
        found = media_settings::ProblemWithSize(wanted.Get<int64_t>("mediasize", 0), fGerman);
    }
    if (!found) found = ProblemKnownToRclone(remote, fLimits, words);
    if (found) {
        if (problem) *problem = found;
        return false;
    }
    SetSettings(wanted);
    if (!(wanted == before)) target.SendMessage("news"_code);
    return true;
}

extern "C" KTVolume* instantiate_ktvolume() {
    try {
        return new KTRemote;
    } catch (...) {
        return nullptr;
    }
}
