// SHA256SUMS of a backup, as it lies beside the files.
#pragma once

#include <map>
#include <string>

#include "kit/support/Result.h"
#include "server/archive/FileSource.h"

namespace server::archive {

// File names with their sums, 64 hexadecimal digits. Damaged, TooLarge: it is no such list; else
// what reading gave.
kit::Result<std::map<std::string, std::string>> ReadSums(FileSource& file);

}  // namespace server::archive
