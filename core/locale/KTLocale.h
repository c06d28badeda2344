// KTLocale: every text that a person sees, by id, in the current language, with English as
// fallback.
//
// One per process. SetLanguage replaces the current table; pointers from Text stay valid until
// then, so keep ids, not pointers. Main thread only, but for Text, which any thread may call while
// no language is being set. Language files are described in docs/formats.md.
//
// Texts are formats and may come from a stranger's language file: never hand one to printf, render
// it with core::FormatText or KTReportLine::Render.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

    // A file's name is its attribute "kt:language", else its field of that name.
    // 0 installed; 1 a candidate cannot be read as a message; 2 lacks "kt:app_id"; 3 has another
    // id; 4 lacks "kt:language"; 5 the folder or an entry cannot be read; -1 nobody has that name.
    // When several candidates fail, the last one's. On any result but 0 the language is English.
    // Reads the folder: at start and when a language is chosen.
    int32_t SetLanguage(const std::string& folder, const char* name);
    // The same over several folders, the first that has the language wins. A folder that is not
    // there matters only when none is.
    int32_t SetLanguage(const std::vector<std::string>& folders, const char* name);

    // The names that the files of a folder carry, in the folder's order, for a menu.
    static std::vector<std::string> LanguagesIn(const std::string& folder);

private:
    struct Table {
        std::vector<std::string> texts;  // by id
        std::vector<std::string> more;   // by id less kFirstMoreText
        const char* Find(int32_t id) const;
    };

    KTLocale() = default;
    int32_t Search(const std::string& folder, std::string_view name);
    void UseDefault();
    static KTLocale* cInstance;

    Table fCurrent;  // empty where the default table speaks
    Table fDefault;
    std::string fLanguage;
    std::string fAppID;
};
