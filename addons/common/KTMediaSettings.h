// What destinations share that have a size of media and may delete older backups: "mediasize"
// (int64, bytes that one file of a backup may have, 0: no limit, else at least kMinMediaSize) and
// "overwrite" (int32), with their fields in the settings window. Words are German where `german`
// says so, else English.
#pragma once

#include "kit/message/BMessage.h"

namespace media_settings {

inline constexpr int64_t kMinMediaSize = int64_t{16} << 20;

// A field of the window's description.
BMessage Field(const char* key, const char* kind, const char* label, const char* hint);
// `hint` is what follows the general words, "" for nothing.
BMessage MediaSizeField(bool german, const char* hint);
BMessage OverwriteField(bool german);
bool IsGerman(const char* language);
// Words for a size that cannot be, null for one that can.
const char* ProblemWithSize(int64_t mediaSize, bool german);
// What the window sent of the two fields; one that it did not send stays as it is in `settings`.
void Take(const BMessage& values, BMessage* settings);

}  // namespace media_settings
