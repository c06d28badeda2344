// KTLocale: every text that a person sees, by id, in the current language, with English as fallback.
//
// One per process. SetLanguage replaces the current table; pointers from Text stay valid until then, so
// keep ids, not pointers. Main thread only, but for Text, which any thread may call while no language is
// being set. Language files are described in docs/formats.md.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kit/message/BMessage.h"

class KTLocale {
public:
    static KTLocale* GetInstance();  // made on first use
    ~KTLocale();                     // empties it; GetInstance makes a new one

    void SetAppID(const char* id);  // null is ignored
    const char* AppID() const;      // "" when unset
    const char* Language() const;   // "" when unset

    // Installs the built-in texts. Does nothing without texts, count or language.
    void SetDefaultText(const char* const* texts, int32_t count, const char* language);
    // The same for our own additions, whose ids start at core::kFirstMoreText ("kt:more").
    void SetMoreText(const char* const* texts, int32_t count);

    // Null when neither table has the id.
    const char* Text(int32_t id) const;
    // Copies at most `size` characters; a copy that fills the buffer is not terminated.
    bool GetText(int32_t id, char* buffer, int32_t size) const;

    // 0 installed; 1 a candidate cannot be read as a message; 2 lacks "kt:app_id"; 3 has another id;
    // 4 lacks "kt:language"; 5 the folder or an entry cannot be read; -1 nobody has that name. On any
    // result but 0 the language is English. Reads the folder: at start and when a language is chosen.
    int32_t SetLanguage(const std::string& folder, const char* name);
    // The same over several folders, the first that has the language wins.
    int32_t SetLanguage(const std::vector<std::string>& folders, const char* name);

    // The names that the files of a folder carry, in the folder's order, for a menu.
    static std::vector<std::string> LanguagesIn(const std::string& folder);

private:
    KTLocale() = default;
    static KTLocale* cInstance;

    BMessage fCurrent;
    BMessage fDefault;
    std::string fLanguage;
    std::string fAppID;
};
