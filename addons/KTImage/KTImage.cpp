// The settings of KTImage and its window.
#include "addons/KTImage/KTImage.h"

#include <sys/stat.h>

#include <cstring>

namespace {

constexpr char kGerman[] = "Deutsch";

struct Words {
    const char *title, *path, *pathHint, *mediaSize, *mediaSizeHint, *noLimit, *overwrite,
        *overwriteHint;
    const char *noPath, *notAbsolute, *notThere, *notDirectory, *tooSmall;
};

constexpr Words kEnglishWords = {
    .title = "Image Settings",
    .path = "Directory",
    .pathHint = "Every backup becomes a folder in it.",
    .mediaSize = "Size of a medium",
    .mediaSizeHint = "Backups are split into files of at most this size.",
    .noLimit = "No limit",
    .overwrite = "Overwrite existing backups",
    .overwriteHint = "When a new backup is complete, all older ones in the directory are deleted.",
    .noPath = "Please choose a directory!",
    .notAbsolute = "Please choose a directory by its full path, beginning with \"/\"!",
    .notThere = "This directory does not exist!",
    .notDirectory = "This is not a directory!",
    .tooSmall = "The size of a medium must be at least 16 MB, or 0 for no limit!",
};

constexpr Words kGermanWords = {
    .title = "Image-Einstellungen",
    .path = "Ordner",
    .pathHint = "Jede Sicherung wird ein Ordner darin.",
    .mediaSize = "Größe eines Datenträgers",
    .mediaSizeHint = "Sicherungen werden in Dateien von höchstens dieser Größe geteilt.",
    .noLimit = "Unbegrenzt",
    .overwrite = "Vorhandene Sicherungen überschreiben",
    .overwriteHint =
        "Ist eine neue Sicherung vollständig, werden alle älteren in diesem Ordner gelöscht.",
    .noPath = "Bitte wählen Sie einen Ordner!",
    .notAbsolute = "Bitte geben Sie den Ordner mit vollem Pfad an, beginnend mit „/“!",
    .notThere = "Diesen Ordner gibt es nicht!",
    .notDirectory = "Das ist kein Ordner!",
    .tooSmall = "Ein Datenträger muss mindestens 16 MB groß sein, oder 0 für unbegrenzt!",
};

const Words& WordsFor(bool german) {
    return german ? kGermanWords : kEnglishWords;
}

// What usually fits on a disc, as the media are sold.
struct Proposal {
    const char* label;
    int64_t bytes;
};
constexpr Proposal kDiscs[] = {
    {"CD (700 MB)", 737'280'000},       {"DVD (4.7 GB)", 4'700'372'992},
    {"DVD DL (8.5 GB)", 8'543'666'176}, {"BD (25 GB)", 25'025'314'816},
    {"BD DL (50 GB)", 50'050'629'632},
};

BMessage Field(const char* key, const char* kind, const char* label, const char* hint) {
    BMessage field;
    field.Add("key", key);
    field.Add("kind", kind);
    field.Add("label", label);
    field.Add("hint", hint);
    return field;
}

const char* ProblemWith(const std::string& path, int64_t mediaSize, const Words& words) {
    if (path.empty()) return words.noPath;
    if (path[0] != '/') return words.notAbsolute;
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return words.notThere;
    if (!S_ISDIR(info.st_mode)) return words.notDirectory;
    if (mediaSize != 0 && mediaSize < KTImage::kMinMediaSize) return words.tooSmall;
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
}

void KTImage::GetSettings(BMessage* settings) const {
    settings->Set("addon", kAddOn);
    settings->Set("path", fPath);
    settings->Set("mediasize", fMediaSize);
    settings->Set("overwrite", int32_t{fOverwrite});
}

void KTImage::ShowSettings(KTSettingsHost* parent, const BMessenger& target, const char* language) {
    if (!parent) return;
    fGerman = language && std::strcmp(language, kGerman) == 0;
    const Words& words = WordsFor(fGerman);

    BMessage values;
    GetSettings(&values);

    BMessage mediaSize = Field("mediasize", "size", words.mediaSize, words.mediaSizeHint);
    mediaSize.Add("min", int64_t{0});
    mediaSize.Add("max", INT64_MAX);
    mediaSize.Add("choice", words.noLimit);
    mediaSize.Add("choice_value", int64_t{0});
    for (const Proposal& disc : kDiscs) {
        mediaSize.Add("choice", disc.label);
        mediaSize.Add("choice_value", disc.bytes);
    }

    BMessage window;
    window.Add("title", words.title);
    window.Add("values", values);
    window.Add("field", Field("path", "path", words.path, words.pathHint));
    window.Add("field", mediaSize);
    window.Add("field", Field("overwrite", "check", words.overwrite, words.overwriteHint));
    parent->OpenSettings(window, this, target);
}

bool KTImage::ApplySettings(const BMessage& values, const BMessenger& target,
                            std::string* problem) {
    BMessage before;
    GetSettings(&before);
    BMessage wanted = before;  // a field that the window did not send keeps its value
    auto path = values.Find<std::string>("path");
    if (path) wanted.Set("path", *path);
    if (auto size = values.Find<int64_t>("mediasize")) wanted.Set("mediasize", *size);
    if (auto overwrite = values.Find<int32_t>("overwrite")) {
        wanted.Set("overwrite", int32_t{*overwrite != 0});
    }

    const char* found = ProblemWith(wanted.Get<std::string>("path", ""),
                                    wanted.Get<int64_t>("mediasize", 0), WordsFor(fGerman));
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
