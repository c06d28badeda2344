// KTPasswordList: the protected backups among those that a job reads, and the passwords typed for
// them. Without window and server: it says what to ask the server, and reads the answers.
//
// Passwords are bytes of UTF-8, kept here and nowhere else; they are overwritten when they go. A
// single blank stands for one that has not been typed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kit/message/BMessage.h"

class KTPasswordList {
public:
    struct Backup {
        std::string name, title, date;
    };

    int32_t Count() const { return static_cast<int32_t>(fEntries.size()); }
    bool IsEmpty() const { return fEntries.empty(); }
    const Backup& At(int32_t index) const { return fEntries[static_cast<size_t>(index)].backup; }
    int32_t IndexOf(std::string_view name) const;  // -1 when it is not in the list
    bool HasPassword(int32_t index) const;
    void SetPassword(int32_t index, std::string_view password);  // "": none again
    void Clear() { fEntries.clear(); }

    // 'ktpc' about which of `backups` ("name", "title", "date" at equal indexes) are protected.
    static BMessage ProtectionQuestion(const BMessage& backups);
    // Keeps those of `backups` that the answer calls protected, with the passwords typed before.
    void Take(const BMessage& backups, const BMessage& answer);

    // 'ktpc' about whether the passwords are right.
    BMessage CheckQuestion() const;
    // The index of the first backup whose password the answer calls wrong, -1 when there is none.
    int32_t FirstWrong(const BMessage& answer) const;

private:
    // Its bytes are made once and never grow, so that moving it leaves no copy behind.
    class Password {
    public:
        explicit Password(std::string_view text);
        ~Password();
        Password(Password&&) noexcept = default;
        Password& operator=(Password&& other) noexcept;
        std::string_view Text() const { return {fBytes.data(), fBytes.size()}; }

    private:
        void Wipe();
        std::vector<char> fBytes;
    };
    struct Entry {
        Backup backup;
        Password password;
    };

    std::vector<Entry> fEntries;
};
