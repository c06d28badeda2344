// How an add-on shows its settings without a window toolkit: it describes the window as a message,
// the program draws it as one of its dialogs and hands the values back to be checked.
//
// The description:
//   "title" string
//   "values" message    the present values; the answer has the same fields
//   "field" message, repeated, in the order of the window:
//     "key" string      the field of "values" that it edits
//     "kind" string     "path" (directory chooser), "string", "choice", "integer", "size" (bytes),
//     "check" "label" string    ready text, or "text_id" int32 "min" "max" int64     limits for
//     "integer" and "size" "choice" string, "choice_value" int64, repeated   for "choice"; for
//     "size" they are proposals "hint" string     one line below the field (may be absent)
// Values: "path" and "string" are strings, "size" int64, the others int32.
#pragma once

#include "kit/message/BMessage.h"

class KTSettingsOwner {
public:
    // Takes the values of a confirmed settings window over. When they cannot be used, changes
    // nothing and returns false with words for the user in `problem` (in the language ShowSettings
    // was given). When they were taken and differ from before, posts 'news' or 'crnw' to `target`.
    virtual bool ApplySettings(const BMessage& values, const BMessenger& target,
                               std::string* problem) = 0;

protected:
    ~KTSettingsOwner() = default;
};

class KTSettingsHost {
public:
    // Opens the window over the host's. `owner` must outlive it: the host closes it when told that
    // the owner goes (the program's affair). Main thread.
    virtual void OpenSettings(const BMessage& description, KTSettingsOwner* owner,
                              const BMessenger& target) = 0;

protected:
    ~KTSettingsHost() = default;
};
