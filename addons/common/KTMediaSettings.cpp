#include "addons/common/KTMediaSettings.h"

#include <cstring>

namespace media_settings {

namespace {

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

}  // namespace

bool IsGerman(const char* language) {
    return language && std::strcmp(language, "Deutsch") == 0;
}

BMessage Field(const char* key, const char* kind, const char* label, const char* hint) {
    BMessage field;
    field.Add("key", key);
    field.Add("kind", kind);
    field.Add("label", label);
    field.Add("hint", hint);
    return field;
}

BMessage MediaSizeField(bool german, const char* hint) {
    std::string words = german ? "Sicherungen werden in Dateien von höchstens dieser Größe geteilt."
                               : "Backups are split into files of at most this size.";
    if (*hint) words += std::string(" ") + hint;
    BMessage field = Field("mediasize", "size",
                           german ? "Größe eines Datenträgers" : "Size of a medium", words.c_str());
    field.Add("min", int64_t{0});
    field.Add("max", INT64_MAX);
    field.Add("choice", german ? "Unbegrenzt" : "No limit");
    field.Add("choice_value", int64_t{0});
    for (const Proposal& disc : kDiscs) {
        field.Add("choice", disc.label);
        field.Add("choice_value", disc.bytes);
    }
    return field;
}

BMessage OverwriteField(bool german) {
    return Field("overwrite", "check",
                 german ? "Vorhandene Sicherungen überschreiben" : "Overwrite existing backups",
                 german ? "Ist eine neue Sicherung vollständig, werden alle älteren in diesem "
                          "Ordner gelöscht; schon vorher, wenn sonst kein Platz ist."
                        : "When a new backup is complete, all older ones in the directory are "
                          "deleted; before that if there is no room otherwise.");
}

const char* ProblemWithSize(int64_t mediaSize, bool german) {
    if (mediaSize == 0 || mediaSize >= kMinMediaSize) return nullptr;
    return german ? "Ein Datenträger muss mindestens 16 MB groß sein, oder 0 für unbegrenzt!"
                  : "The size of a medium must be at least 16 MB, or 0 for no limit!";
}

void Take(const BMessage& values, BMessage* settings) {
    if (auto size = values.Find<int64_t>("mediasize")) settings->Set("mediasize", *size);
    if (auto overwrite = values.Find<int32_t>("overwrite")) {
        settings->Set("overwrite", int32_t{*overwrite != 0});
    }
}

}  // namespace media_settings
