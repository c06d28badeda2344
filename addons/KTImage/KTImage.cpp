// The settings of KTImage and its window.
#include "addons/KTImage/KTImage.h"

#include <sys/stat.h>

#include "addons/common/KTMediaSettings.h"

namespace {

struct Words {
    const char *title, *path, *pathHint;
    const char *noPath, *notAbsolute, *notThere, *notDirectory;
};

constexpr Words kEnglishWords = {
    .title = "Image Settings",
    .path = "Directory",
    .pathHint = "Every backup becomes a folder in it.",
    .noPath = "Please choose a directory!",
    .notAbsolute = "Please choose a directory by its full path, beginning with \"/\"!",
    .notThere = "This directory does not exist!",
    .notDirectory = "This is not a directory!",
};

constexpr Words kGermanWords = {
    .title = "Image-Einstellungen",
    .path = "Ordner",
    .pathHint = "Jede Sicherung wird ein Ordner darin.",
    .noPath = "Bitte wählen Sie einen Ordner!",
    .notAbsolute = "Bitte geben Sie den Ordner mit vollem Pfad an, beginnend mit „/“!",
    .notThere = "Diesen Ordner gibt es nicht!",
    .notDirectory = "Das ist kein Ordner!",
};

const Words& WordsFor(bool german) {
    return german ? kGermanWords : kEnglishWords;
}

const char* ProblemWith(const std::string& path, const Words& words) {
    if (path.empty()) return words.noPath;
    if (path[0] != '/') return words.notAbsolute;
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return words.notThere;
    if (!S_ISDIR(info.st_mode)) return words.notDirectory;
    return nullptr;
}

}  // namespace

int32_t KTImage::Archive(BMessage* message, bool) const {
    GetSettings(message);
    return 0;
}

void KTImage::SetSettings(const BMessage& settings) {
    fPath = settings.Get<std::string>("path", "");
    fMediaSize = settings.Get<int64_t>("mediasize", 0);
    fOverwrite = settings.Get<int32_t>("overwrite", 0) != 0;
    fRemovable = settings.Get<int32_t>("removable", 0) != 0;
}

void KTImage::GetSettings(BMessage* settings) const {
    settings->Set("addon", kAddOn);
    settings->Set("path", fPath);
    settings->Set("mediasize", fMediaSize);
    settings->Set("overwrite", int32_t{fOverwrite});
    if (fRemovable) settings->Set("removable", int32_t{1});
}

void KTImage::ShowSettings(KTSettingsHost* parent, const BMessenger& target, const char* language) {
    if (!parent) return;
    fGerman = media_settings::IsGerman(language);
    const Words& words = WordsFor(fGerman);
    BMessage values;
    GetSettings(&values);
    BMessage window;
    window.Add("title", words.title);
    window.Add("values", values);
    window.Add("field", media_settings::Field("path", "path", words.path, words.pathHint));
    window.Add("field", media_settings::MediaSizeField(fGerman, ""));
    window.Add("field", media_settings::OverwriteField(fGerman));
    parent->OpenSettings(window, this, target);
}

bool KTImage::ApplySettings(const BMessage& values, const BMessenger& target,
                            std::string* problem) {
    BMessage before;
    GetSettings(&before);
    BMessage wanted = before;  // a field that the window did not send keeps its value
    if (auto path = values.Find<std::string>("path")) wanted.Set("path", *path);
    media_settings::Take(values, &wanted);

    const char* found = ProblemWith(wanted.Get<std::string>("path", ""), WordsFor(fGerman));
    if (!found) {
        found = media_settings::ProblemWithSize(wanted.Get<int64_t>("mediasize", 0), fGerman);
    }
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
        return new KTImage;
    } catch (...) {
        return nullptr;
    }
}
