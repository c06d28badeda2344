#include "ctl/Password.h"

#include <fcntl.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"
#include "kit/support/UniqueFd.h"

namespace ctl {

using enum core::MoreText;

namespace {

constexpr int kTries = 3;

bool ReadByte(int fd, char* byte) {
    ssize_t got = 0;
    do {
        got = ::read(fd, byte, 1);
    } while (got < 0 && errno == EINTR);
    return got == 1;
}

// Nothing at the end of the file, and for what is too long to be a password.
std::optional<Password> ReadLine(int fd) {
    std::string line;
    line.reserve(PasswordSource::kLongest);  // so that no copy of it stays behind
    char byte = 0;
    bool any = false;
    while (ReadByte(fd, &byte)) {
        any = true;
        if (byte == '\n') break;
        if (line.size() == PasswordSource::kLongest) return std::nullopt;
        line.push_back(byte);
    }
    Password password(std::move(line));
    return any ? std::optional(std::move(password)) : std::nullopt;
}

// A terminal that neither shows nor interprets what is typed. Ctrl-C is a character, too: nothing
// ends the program before the terminal is as it was.
class SilentTerminal {
public:
    explicit SilentTerminal(int fd) : fFd(fd) {
        fChanged = ::tcgetattr(fd, &fFormer) == 0;
        if (!fChanged) return;
        termios silent = fFormer;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG | IEXTEN);
        silent.c_cc[VMIN] = 1;
        silent.c_cc[VTIME] = 0;
        ::tcsetattr(fd, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        if (fChanged) ::tcsetattr(fFd, TCSAFLUSH, &fFormer);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    const int fFd;
    termios fFormer{};
    bool fChanged = false;
};

std::optional<Password> ReadTyped(int fd) {
    constexpr char kCtrlC = 3, kCtrlD = 4, kCtrlU = 21;
    std::string line;
    line.reserve(PasswordSource::kLongest);
    char byte = 0;
    bool done = false;
    while (!done && ReadByte(fd, &byte) && byte != kCtrlC && byte != kCtrlD) {
        done = byte == '\n' || byte == '\r';
        if (byte == '\b' || byte == '\x7f') {
            // A whole character: its last byte, and what of it lies before.
            while (!line.empty() && (line.back() & 0xC0) == 0x80)
                line.pop_back();
            if (!line.empty()) line.pop_back();
        } else if (byte == kCtrlU) {
            line.clear();
        } else if (!done && line.size() < PasswordSource::kLongest) {
            line.push_back(byte);
        }
    }
    Password password(std::move(line));
    return done ? std::optional(std::move(password)) : std::nullopt;
}

}  // namespace

Password& Password::operator=(Password&& other) noexcept {
    if (this == &other) return *this;
    Wipe();
    fText = other.fText;  // a short one has no memory to hand over
    other.Wipe();
    return *this;
}

void Password::Wipe() {
    ::explicit_bzero(fText.data(), fText.size());
    fText.clear();
}

std::optional<Password> PasswordSource::Ask(const std::string& prompt) const {
    if (fDescriptor) {
        auto line = ReadLine(*fDescriptor);
        if (!line) Fail(kMoreCtlNoPasswordThere, *fDescriptor);
        return line;
    }
    const kit::UniqueFd terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal.IsOpen()) {
        Fail(kMoreCtlNoTerminal);
        return std::nullopt;
    }
    std::fflush(stdout);
    const SilentTerminal silent(terminal.Get());
    ::dprintf(terminal.Get(), "%s ", Printable(prompt).c_str());
    auto typed = ReadTyped(terminal.Get());
    ::dprintf(terminal.Get(), "\r\n");
    return typed;
}

std::optional<Password> PasswordSource::AskNew() const {
    for (;;) {
        auto first = Ask(core::TextOf(kMoreCtlNewPassword));
        if (!first) return std::nullopt;
        if (first->Text().empty()) {
            Fail(kMoreCtlEmptyPassword);
            return std::nullopt;
        }
        if (!IsTerminal()) return first;
        auto second = Ask(core::TextOf(kMoreCtlRepeatPassword));
        if (!second) return std::nullopt;
        if (second->Text() == first->Text()) return first;
        Note(kMoreCtlPasswordsDiffer);
    }
}

bool Unlock(ServerConnection& server, const ListedBackup& backup, const PasswordSource& source) {
    BMessage question(core::code::kPassword);
    question.Add("name", backup.name);
    const auto answer = server.Ask(question);
    if (!answer) {
        Fail(kMoreServerSilent);
        return false;
    }
    if (answer->Get<int32_t>("protected", 0) == 0) return true;
    const std::string prompt =
        core::FormatTextOf(kMoreUnlockPrompt, backup.title.empty() ? backup.name : backup.title);
    for (int tries = source.IsTerminal() ? kTries : 1; tries > 0; --tries) {
        const auto password = source.Ask(prompt);
        if (!password) return false;
        BMessage check = question;
        check.Add("pw", password->Text());
        const auto result = server.Ask(std::move(check));
        if (!result) {
            Fail(kMoreServerSilent);
            return false;
        }
        if (result->Get<int32_t>("result", 0) == 1) return true;
        Note(kMoreCtlWrongPassword);
    }
    return false;
}

}  // namespace ctl
