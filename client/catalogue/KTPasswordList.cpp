#include "client/catalogue/KTPasswordList.h"

#include <string.h>

#include <optional>

#include "core/protocol/Codes.h"

namespace {

constexpr std::string_view kNone = " ";

std::optional<int32_t> PlaceOf(const BMessage& message, std::string_view name) {
    for (int32_t i = 0; i < message.Count("name"); ++i)
        if (message.FindString("name", i) == name) return i;
    return std::nullopt;
}

}  // namespace

// --- a password ---------------------------------------------------------------------------------

KTPasswordList::Password::Password(std::string_view text) : fBytes(text.begin(), text.end()) {}

KTPasswordList::Password::~Password() {
    Wipe();
}

KTPasswordList::Password& KTPasswordList::Password::operator=(Password&& other) noexcept {
    Wipe();
    fBytes = std::move(other.fBytes);
    return *this;
}

void KTPasswordList::Password::Wipe() {
    if (!fBytes.empty()) ::explicit_bzero(fBytes.data(), fBytes.size());
}

// --- the list -----------------------------------------------------------------------------------

int32_t KTPasswordList::IndexOf(std::string_view name) const {
    for (int32_t i = 0; i < Count(); ++i)
        if (At(i).name == name) return i;
    return -1;
}

bool KTPasswordList::HasPassword(int32_t index) const {
    return fEntries[static_cast<size_t>(index)].password.Text() != kNone;
}

void KTPasswordList::SetPassword(int32_t index, std::string_view password) {
    fEntries[static_cast<size_t>(index)].password = Password(password.empty() ? kNone : password);
}

BMessage KTPasswordList::ProtectionQuestion(const BMessage& backups) {
    BMessage question(core::code::kPassword);
    for (int32_t i = 0; i < backups.Count("name"); ++i)
        question.Add("name", backups.Get("name", std::string(), i));
    return question;
}

void KTPasswordList::Take(const BMessage& backups, const BMessage& answer) {
    std::vector<Entry> entries;
    for (int32_t i = 0; i < backups.Count("name"); ++i) {
        Backup backup{backups.Get("name", std::string(), i), backups.Get("title", std::string(), i),
                      backups.Get("date", std::string(), i)};
        const auto place = PlaceOf(answer, backup.name);
        if (!place || answer.Get<int32_t>("protected", 0, *place) == 0) continue;
        const int32_t before = IndexOf(backup.name);
        Password password(before < 0 ? kNone
                                     : fEntries[static_cast<size_t>(before)].password.Text());
        entries.push_back({std::move(backup), std::move(password)});
    }
    fEntries = std::move(entries);
}

BMessage KTPasswordList::CheckQuestion() const {
    BMessage question(core::code::kPassword);
    for (const Entry& entry : fEntries) {
        question.Add("name", entry.backup.name);
        question.Add("pw", entry.password.Text());
    }
    return question;
}

int32_t KTPasswordList::FirstWrong(const BMessage& answer) const {
    // The server says about all of them together, in the first "result", whether they are right.
    const bool right = answer.Get<int32_t>("result", 0, 0) == 1;
    for (int32_t i = 0; i < Count(); ++i)
        if (!right && PlaceOf(answer, At(i).name)) return i;
    return -1;
}
