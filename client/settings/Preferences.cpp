#include "client/settings/Preferences.h"

#include <string_view>

#include "core/files/HeaderFile.h"

namespace {

constexpr int32_t kGood = 0;
constexpr int32_t kBadNameOrIdentifier = 1;
constexpr int32_t kNotSettings = 2;
constexpr int32_t kWriteFailed = 4;
constexpr int32_t kNoName = 10;
constexpr int32_t kCannotOpen = 11;

constexpr size_t kIdentifierLength = 8;
constexpr char kLanguage[] = "KT_LANGUAGE";

}  // namespace

Preferences::Preferences(const char* fileName, const char* identifier) {
    if (SetName(fileName) != kGood || SetKennung(identifier) != kGood) {
        fStatus = kBadNameOrIdentifier;
        return;
    }
    if (LoadData() == kCannotOpen) Reset();
}

Preferences::~Preferences() = default;

int32_t Preferences::Load() {
    if (fFileName.empty()) return fStatus = kNoName;
    return LoadData();
}

int32_t Preferences::Save() {
    if (fFileName.empty()) return fStatus = kNoName;
    switch (core::SaveHeaderFile(fFileName, fIdentifier, fSettings)) {
        case core::HeaderSave::Good:
            return fStatus = kGood;
        case core::HeaderSave::CannotCreate:
            return fStatus = kCannotOpen;
        case core::HeaderSave::HeaderNotWritten:
        case core::HeaderSave::BodyNotWritten:
            break;
    }
    return fStatus = kWriteFailed;
}

int32_t Preferences::Reset() {
    fSettings.Clear();
    Set(kLanguage, "English");
    Set("KT_AUTOPREFS", int8_t{1});
    Set("KT_MAINWINPOS", BRect());
    return fStatus = kGood;
}

int32_t Preferences::SetName(const char* fileName) {
    if (!fileName) return kBadNameOrIdentifier;
    fFileName = fileName;
    return kGood;
}

int32_t Preferences::SetKennung(const char* identifier) {
    if (!identifier || std::string_view(identifier).size() != kIdentifierLength)
        return kBadNameOrIdentifier;
    fIdentifier = identifier;
    return kGood;
}

int32_t Preferences::GetKennung(char*) const {
    return kBadNameOrIdentifier;
}

int32_t Preferences::LoadData() {
    BMessage loaded;
    switch (core::LoadHeaderFile(fFileName, fIdentifier, &loaded)) {
        case core::HeaderLoad::CannotOpen:
            return fStatus = kCannotOpen;
        case core::HeaderLoad::Good:
            break;
        default:
            fSettings.Clear();
            return fStatus = kNotSettings;
    }
    fSettings = std::move(loaded);
    // Early files kept a number of the language here.
    if (fSettings.TypeOf(kLanguage) == B_INT8_TYPE) fSettings.Remove(kLanguage);
    return fStatus = kGood;
}

void Preferences::Set(const char* name, int8_t value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, int16_t value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, int32_t value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, int64_t value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, float value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, const char* value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, const BRect& value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, const BMessage& value) {
    fSettings.Set(name, value);
}

void Preferences::Set(const char* name, rgb_color value) {
    fSettings.Set(name, value);
}

int8_t Preferences::GetInt8(const char* name, int8_t fallback) const {
    return fSettings.Get(name, fallback);
}

int16_t Preferences::GetInt16(const char* name, int16_t fallback) const {
    return fSettings.Get(name, fallback);
}

int32_t Preferences::GetInt32(const char* name, int32_t fallback) const {
    return fSettings.Get(name, fallback);
}

int64_t Preferences::GetInt64(const char* name, int64_t fallback) const {
    return fSettings.Get(name, fallback);
}

float Preferences::GetFloat(const char* name, float fallback) const {
    return fSettings.Get(name, fallback);
}

std::string Preferences::GetString(const char* name, const char* fallback) const {
    return fSettings.Get(name, std::string(fallback ? fallback : ""));
}

BRect Preferences::GetRect(const char* name, BRect fallback) const {
    return fSettings.Get(name, fallback);
}

rgb_color Preferences::GetColor(const char* name, rgb_color fallback) const {
    return fSettings.Get(name, fallback);
}

BMessage* Preferences::GetMessage(const char* name, BMessage* fallback) const {
    auto found = fSettings.Find<BMessage>(name);
    return found ? new BMessage(std::move(*found)) : fallback;
}

BMessage Preferences::GetMessageData(const char* name) const {
    return fSettings.Get(name, BMessage());
}
