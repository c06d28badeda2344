// Icons of rows of files: those of the desktop's theme by the type that a name stands for, our own
// where the theme has none. Main thread.
#pragma once

#include <QIcon>
#include <string_view>

#include "client/selection/SourceReader.h"

namespace SourceIcons {

// `name` is the entry's; only its ending matters, and only for files.
QIcon For(SourceKind kind, std::string_view name);

}  // namespace SourceIcons
