// Node attributes: typed by their users, kept as extended attributes of the "user." name space.
#pragma once

#include <optional>
#include <string>

#include "kit/support/Result.h"

namespace kit {

// The value of attribute `name` (without "user."), at most `limit` bytes of it. Nothing when it is
// not there or cannot be read. Follows links.
std::optional<std::string> ReadAttribute(const std::string& path, const std::string& name,
                                         size_t limit = size_t{64} * 1024);
Status WriteAttribute(const std::string& path, const std::string& name, std::string_view value);

// Sum over all attributes of the node of value size plus length of the name; 0 when there are none.
int64_t AttributesSize(const std::string& path, bool followLink);

// Whether files in the folder can have attributes, and whether its device can be written. Both are
// found out by trying, with a file that is gone again afterwards.
bool SupportsAttributes(const std::string& folder);
bool IsReadOnly(const std::string& folder);

// The MIME type of a file: its attribute "mime_type"; nothing when it has none.
std::optional<std::string> MimeType(const std::string& path);

}  // namespace kit
