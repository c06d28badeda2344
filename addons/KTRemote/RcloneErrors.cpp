#include "addons/KTRemote/RcloneErrors.h"

#include <algorithm>
#include <cctype>

using kit::Error;
using kit::ErrorKind;

namespace {

constexpr int kDirectoryNotFound = 3, kFileNotFound = 4;
constexpr size_t kMostWords = 200;

struct Known {
    const char* said;  // in small letters
    ErrorKind kind;
    const char* words;
};

constexpr char kNoConfig[] = "rclone knows no remote of this name (see: rclone config)";
constexpr char kLocked[] = "the configuration of rclone is protected by a password";
constexpr char kCredentials[] = "the remote refuses the user name, the password or the key";
constexpr char kDenied[] = "the remote does not allow this";
constexpr char kFull[] = "there is no room left on the remote";
constexpr char kReadOnly[] = "the remote cannot be written";
constexpr char kUnreachable[] = "the remote cannot be reached";
constexpr char kHung[] = "the remote does not answer";
constexpr char kLost[] = "the connection to the remote was lost";

// The first that fits decides, so the more special ones come first.
constexpr Known kKnown[] = {
    {"didn't find section in config file", ErrorKind::NotFound, kNoConfig},
    {"unable to decrypt configuration", ErrorKind::Denied, kLocked},
    {"using --ask-password=false", ErrorKind::Denied, kLocked},
    {"doesn't support about", ErrorKind::Unsupported, "the remote does not tell its space"},
    {"no space left", ErrorKind::Full, kFull},
    {"insufficient storage", ErrorKind::Full, kFull},
    {"quota", ErrorKind::Full, kFull},
    {"storage full", ErrorKind::Full, kFull},
    {"insufficient_space", ErrorKind::Full, kFull},
    {"read-only", ErrorKind::ReadOnly, kReadOnly},
    {"read only", ErrorKind::ReadOnly, kReadOnly},
    {"401", ErrorKind::Denied, kCredentials},
    {"unauthorized", ErrorKind::Denied, kCredentials},
    {"unable to authenticate", ErrorKind::Denied, kCredentials},
    {"authentication failed", ErrorKind::Denied, kCredentials},
    {"invalidaccesskeyid", ErrorKind::Denied, kCredentials},
    {"signaturedoesnotmatch", ErrorKind::Denied, kCredentials},
    {"invalid_grant", ErrorKind::Denied, kCredentials},
    {"expired_access_token", ErrorKind::Denied, kCredentials},
    {"expiredtoken", ErrorKind::Denied, kCredentials},
    {"invalid_access_token", ErrorKind::Denied, kCredentials},
    {"couldn't fetch token", ErrorKind::Denied, kCredentials},
    {"empty token found", ErrorKind::Denied, kCredentials},
    {"knownhosts", ErrorKind::Denied, "the remote's key is not the one that is known"},
    {"login incorrect", ErrorKind::Denied, kCredentials},
    {"530 ", ErrorKind::Denied, kCredentials},
    {"403", ErrorKind::Denied, kDenied},
    {"405", ErrorKind::Denied, kDenied},
    {"forbidden", ErrorKind::Denied, kDenied},
    {"accessdenied", ErrorKind::Denied, kDenied},
    {"access denied", ErrorKind::Denied, kDenied},
    {"permission denied", ErrorKind::Denied, kDenied},
    {"connection refused", ErrorKind::Io, kUnreachable},
    {"no such host", ErrorKind::Io, kUnreachable},
    {"server misbehaving", ErrorKind::Io, kUnreachable},
    {"no route to host", ErrorKind::Io, kUnreachable},
    {"network is unreachable", ErrorKind::Io, kUnreachable},
    {"timeout", ErrorKind::Io, kHung},
    {"deadline exceeded", ErrorKind::Io, kHung},
    {"connection reset", ErrorKind::Io, kLost},
    {"broken pipe", ErrorKind::Io, kLost},
    {"connection lost", ErrorKind::Io, kLost},
    {"unexpected eof", ErrorKind::Io, kLost},
    {"use of closed network connection", ErrorKind::Io, kLost},
    {"not found", ErrorKind::NotFound, "is not there"},
    {"nosuchbucket", ErrorKind::NotFound, "is not there"},
    {"does not exist", ErrorKind::NotFound, "is not there"},
};

std::string Small(std::string_view text) {
    std::string small(text);
    std::transform(small.begin(), small.end(), small.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return small;
}

std::string_view LastLine(std::string_view said) {
    while (!said.empty() && (said.back() == '\n' || said.back() == '\r'))
        said.remove_suffix(1);
    const size_t begin = said.rfind('\n');
    return begin == std::string_view::npos ? said : said.substr(begin + 1);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether the words stand in it; a number not as a part of another one, nor as a port.
bool Says(std::string_view text, std::string_view words) {
    const bool isNumber = IsDigit(words.front());
    for (size_t at = 0; (at = text.find(words, at)) != std::string_view::npos; ++at) {
        if (!isNumber) return true;
        const size_t end = at + words.size();
        const bool goesOn = end < text.size() && IsDigit(words.back()) && IsDigit(text[end]);
        const bool began = at > 0 && (IsDigit(text[at - 1]) || text[at - 1] == '.');
        const bool isPort = at > 1 && text[at - 1] == ':' &&
                            std::isalnum(static_cast<unsigned char>(text[at - 2])) != 0;
        if (!goesOn && !began && !isPort) return true;
    }
    return false;
}

}  // namespace

std::string WithoutSecrets(std::string_view line) {
    // "2026/11/23 14:58:55 "
    constexpr size_t kStamp = 20;
    if (line.size() > kStamp && line[4] == '/' && line[7] == '/' && line[13] == ':')
        line.remove_prefix(kStamp);
    const std::string small = Small(line);
    for (const char* word : {"pass", "token", "secret", "authorization", "cookie",
                             "key=", "key:", "signature", "credential"}) {
        if (small.find(word) != std::string::npos) return "rclone failed";
    }
    // Of an address its scheme and host; names, passwords and queries stand elsewhere in it.
    std::string words;
    while (!line.empty() && words.size() < kMostWords) {
        const size_t scheme = line.find("://");
        const size_t end = scheme == std::string_view::npos
                               ? line.size()
                               : std::min(line.find_first_of("\"' )>", scheme), line.size());
        if (scheme == std::string_view::npos) {
            words += line;
            break;
        }
        words += line.substr(0, scheme + 3);
        std::string_view host = line.substr(scheme + 3, end - scheme - 3);
        host = host.substr(0, host.find_first_of("/?#"));
        words += host.substr(host.rfind('@') + 1);
        line.remove_prefix(end);
    }
    if (words.size() > kMostWords) words.resize(kMostWords);
    // Texts of reports are UTF-8 without controls; what is not is left out.
    std::erase_if(words, [](char c) { return c < ' ' || c > '~'; });
    return words;
}

Error RcloneError(int code, std::string_view said, const std::string& path) {
    const std::string_view last = LastLine(said);
    // What the error is about may hold any words; they say nothing about the error.
    std::string small = Small(last);
    const std::string about = Small(path.substr(path.find(':') + 1));
    for (size_t at = 0; about.size() > 2 && (at = small.find(about, at)) != std::string::npos;)
        small.erase(at, about.size());
    if (code == kDirectoryNotFound || code == kFileNotFound) {
        return Error::Make(ErrorKind::NotFound, path, "is not there");
    }
    for (const Known& known : kKnown) {
        if (Says(small, known.said)) {
            return Error::Make(known.kind, path, known.words);
        }
    }
    std::string words = WithoutSecrets(last);
    if (words.empty()) words = "rclone failed";
    return Error::Make(ErrorKind::Io, path, words);
}
