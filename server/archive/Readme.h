// README.txt of a destination: how to restore by hand with stock tools. Every command in it is run
// by a test.
#pragma once

#include <string_view>

namespace server::archive {

std::string_view ReadmeText();

}  // namespace server::archive
