// Passwords: from the terminal, unseen, or from a file descriptor; never from the command line,
// where every process can read them.
#pragma once

#include <optional>
#include <string>

#include "ctl/Backups.h"

namespace ctl {

// Wiped when it ends.
class Password {
public:
    explicit Password(std::string text) : fText(std::move(text)) {}
    Password(Password&& other) noexcept { *this = std::move(other); }
    Password& operator=(Password&& other) noexcept;
    ~Password() { Wipe(); }
    const std::string& Text() const { return fText; }

private:
    void Wipe();
    std::string fText;
};

// Where passwords come from: a descriptor that the user named, or the terminal.
class PasswordSource {
public:
    static constexpr size_t kLongest = 4096;  // bytes

    explicit PasswordSource(std::optional<int> descriptor) : fDescriptor(descriptor) {}
    bool IsTerminal() const { return !fDescriptor; }
    // Nothing: there is none, or the user gave up; that was told. A descriptor gives its first
    // line.
    std::optional<Password> Ask(const std::string& prompt) const;
    // For a new one: a terminal asks twice until both are the same.
    std::optional<Password> AskNew() const;

private:
    std::optional<int> fDescriptor;
};

// Lets the server open the backup for this program, where it is protected; a wrong password is
// asked for again on a terminal. False: it stays closed, which was told.
bool Unlock(ServerConnection& server, const ListedBackup& backup, const PasswordSource& source);

}  // namespace ctl
