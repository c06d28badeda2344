// Preferences: all settings of the client, one message, kept in one file ("Backup.prefs"). Read
// when it is made, written only by Save. Main thread. docs/formats.md lists the keys.
//
// Status codes: 0 good; 1 out of memory or a bad name or identifier; 2 not a settings file; 4
// writing failed; 10 no file name; 11 the file cannot be opened.
#pragma once

#include <string>

#include "kit/message/BMessage.h"

class Preferences {
public:
    Preferences(const char* fileName, const char* identifier);
    virtual ~Preferences();

    int32_t InitCheck() const { return fStatus; }
    int32_t Load();
    int32_t Save();   // replaced whole or not at all; see kit::ReplaceFile
    int32_t Reset();  // the defaults; the file is not written
    int32_t SetName(const char* fileName);
    int32_t SetKennung(const char* identifier);  // exactly 8 characters
    int32_t GetKennung(char* buffer) const;      // not supported: 1

    // Replaces the first value of that name and type, adds it otherwise; nothing is stored over a
    // value of another type.
    void Set(const char* name, int8_t value);
    void Set(const char* name, int16_t value);
    void Set(const char* name, int32_t value);
    void Set(const char* name, int64_t value);
    void Set(const char* name, float value);
    void Set(const char* name, const char* value);
    void Set(const char* name, const BRect& value);
    void Set(const char* name, const BMessage& value);
    void Set(const char* name, rgb_color value);

    // The first value of that type, or the default.
    int8_t GetInt8(const char* name, int8_t fallback) const;
    int16_t GetInt16(const char* name, int16_t fallback) const;
    int32_t GetInt32(const char* name, int32_t fallback) const;
    int64_t GetInt64(const char* name, int64_t fallback) const;
    float GetFloat(const char* name, float fallback) const;
    std::string GetString(const char* name, const char* fallback) const;
    BRect GetRect(const char* name, BRect fallback = {}) const;
    rgb_color GetColor(const char* name, rgb_color fallback) const;
    // A new copy, the caller's; `fallback` itself when there is none.
    BMessage* GetMessage(const char* name, BMessage* fallback) const;
    BMessage GetMessageData(const char* name) const;  // empty when there is none

private:
    int32_t LoadData();
    BMessage fSettings;
    std::string fFileName;
    std::string fIdentifier;
    int32_t fStatus = 0;
};
