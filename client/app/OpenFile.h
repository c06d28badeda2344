// Which tool opens a file: by its type where it has one, else by its first bytes.
#pragma once

#include <cstdint>
#include <string>

namespace client {

// The code of the tool ('bavw', 'rsvw', 'cpvw'), 0 for a file that no tool opens or that cannot be
// read. Reads the file's head: not for the window thread.
uint32_t ToolForFile(const std::string& path);

}  // namespace client
