#include "core/locale/KTLocale.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>

#include "core/locale/TextTable.h"
#include "kit/message/BMessage.h"
#include "kit/storage/FileIo.h"
#include "kit/storage/NodeAttributes.h"

namespace {

constexpr char kTextField[] = "kt:text";
constexpr char kMoreField[] = "kt:more";
constexpr char kAppIdField[] = "kt:app_id";
constexpr char kLanguageField[] = "kt:language";  // also the attribute's name
constexpr size_t kMaxName = 64;
constexpr size_t kMaxFile = size_t{4} << 20;
constexpr char kBuiltInLanguage[] = "English";

enum : int32_t {
    kInstalled = 0,
    kNoMessage = 1,
    kNoAppId = 2,
    kForeignAppId = 3,
    kNoLanguage = 4,
    kFolderUnreadable = 5,
    kNobody = -1,
};

std::optional<BMessage> ReadLanguageFile(const std::string& path) {
    const auto data = kit::ReadFile(path, kMaxFile);
    return data ? BMessage::Unflatten(*data) : std::nullopt;
}

// The name that a file carries, "" for none. `message` is filled where the file had to be read for
// it.
std::string LanguageOf(const std::string& path, std::optional<BMessage>* message) {
    auto name = kit::ReadAttribute(path, kLanguageField, kMaxName);
    if (name) name->resize(std::strlen(name->c_str()));
    if (name && !name->empty()) return *name;
    *message = ReadLanguageFile(path);
    return *message ? (*message)->Get<std::string>(kLanguageField, "") : std::string();
}

struct CloseFolder {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// Calls `visit` for each entry but "." and "..", in the folder's order, links followed, until it
// says false. False: the folder or an entry cannot be read.
bool ForEachEntry(const std::string& folder, const std::function<bool(const std::string&)>& visit) {
    const std::unique_ptr<DIR, CloseFolder> directory(::opendir(folder.c_str()));
    if (!directory) return false;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory.get());
        if (!entry) return errno == 0;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        const std::string path = folder + '/' + entry->d_name;
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) return false;
        if (S_ISREG(status.st_mode) && !visit(path)) return true;
    }
}

std::vector<std::string> TextsOf(const BMessage& message, std::string_view field) {
    std::vector<std::string> texts;
    const int32_t count = message.Count(field, B_STRING_TYPE);
    texts.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i)
        texts.emplace_back(*message.FindString(field, i));
    return texts;
}

std::vector<std::string> TextsOf(const char* const* texts, int32_t count) {
    std::vector<std::string> copies;
    copies.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i)
        copies.emplace_back(texts[i] ? texts[i] : "");
    return copies;
}

std::mutex& InstanceMutex() {
    static std::mutex mutex;
    return mutex;
}

}  // namespace

KTLocale* KTLocale::cInstance = nullptr;

KTLocale* KTLocale::GetInstance() {
    const std::lock_guard lock(InstanceMutex());
    if (!cInstance)
        cInstance = new KTLocale;  // NOLINT: lives as long as the process, or until deleted
    return cInstance;
}

KTLocale::~KTLocale() {
    const std::lock_guard lock(InstanceMutex());
    if (cInstance == this) cInstance = nullptr;
}

void KTLocale::SetAppID(const char* id) {
    if (id) fAppID = id;
}

const char* KTLocale::AppID() const {
    return fAppID.c_str();
}

const char* KTLocale::Language() const {
    return fLanguage.c_str();
}

void KTLocale::SetDefaultText(const char* const* texts, int32_t count, const char* language) {
    if (!texts || count <= 0 || !language) return;
    fDefault.texts = TextsOf(texts, count);
    if (fLanguage.empty()) fLanguage = language;
}

void KTLocale::SetMoreText(const char* const* texts, int32_t count) {
    if (!texts || count <= 0) return;
    fDefault.more = TextsOf(texts, count);
}

const char* KTLocale::Table::Find(int32_t id) const {
    const bool own = id >= core::kFirstMoreText;
    const auto& list = own ? more : texts;
    const int32_t index = own ? id - core::kFirstMoreText : id;
    if (index < 0 || static_cast<size_t>(index) >= list.size()) return nullptr;
    return list[static_cast<size_t>(index)].c_str();
}

const char* KTLocale::Text(int32_t id) const {
    const char* text = fCurrent.Find(id);
    return text ? text : fDefault.Find(id);
}

bool KTLocale::GetText(int32_t id, char* buffer, int32_t size) const {
    const char* text = Text(id);
    if (!text) return false;
    if (size > 0) {
        // Terminated where there is room, as far as the text and its end go.
        const size_t length = std::min(std::strlen(text) + 1, static_cast<size_t>(size));
        std::memcpy(buffer, text, length);
    }
    return true;
}

int32_t KTLocale::SetLanguage(const std::string& folder, const char* name) {
    return SetLanguage(std::vector<std::string>{folder}, name);
}

int32_t KTLocale::SetLanguage(const std::vector<std::string>& folders, const char* name) {
    int32_t result = kFolderUnreadable;
    for (const std::string& folder : folders) {
        const int32_t found = Search(folder, name ? name : "");
        if (found == kInstalled) return kInstalled;
        if (found != kFolderUnreadable && (found != kNobody || result == kFolderUnreadable)) {
            result = found;
        }
    }
    UseDefault();
    return result;
}

int32_t KTLocale::Search(const std::string& folder, std::string_view name) {
    int32_t result = kNobody;
    const bool readable = ForEachEntry(folder, [&](const std::string& path) {
        std::optional<BMessage> message;
        const std::string language = LanguageOf(path, &message);
        if (language.empty() || language != name) return true;
        if (!message) message = ReadLanguageFile(path);
        if (!message) {
            result = kNoMessage;
            return true;
        }
        const auto appId = message->Find<std::string>(kAppIdField);
        if (!appId || *appId != fAppID) {
            result = appId ? kForeignAppId : kNoAppId;
            return true;
        }
        const auto own = message->Find<std::string>(kLanguageField);
        if (!own) {
            result = kNoLanguage;
            return true;
        }
        fLanguage = *own;
        fCurrent = {TextsOf(*message, kTextField), TextsOf(*message, kMoreField)};
        result = kInstalled;
        return false;
    });
    return readable ? result : kFolderUnreadable;
}

void KTLocale::UseDefault() {
    fLanguage = kBuiltInLanguage;
    fCurrent = {};
}

std::vector<std::string> KTLocale::LanguagesIn(const std::string& folder) {
    std::vector<std::string> names;
    ForEachEntry(folder, [&names](const std::string& path) {
        std::optional<BMessage> message;
        std::string name = LanguageOf(path, &message);
        if (!name.empty()) names.push_back(std::move(name));
        return true;
    });
    return names;
}
