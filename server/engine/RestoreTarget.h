// A directory below which things are restored. Nothing done through it leaves that directory: no
// "..", no symbolic link is ever followed, whoever made it.
//
// Any thread.
#pragma once

#include <string>
#include <string_view>

#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

namespace server {

class RestoreTarget {
public:
    // The user's own way to it may lead over links. `create`: it and what is missing above it is
    // made.
    static kit::Result<RestoreTarget> Open(const std::string& path, bool create);

    // A directory below it by its relative path, "" for itself. A descriptor that directories can
    // be listed and entries made with. Denied (ELOOP) where a symbolic link lies on the way.
    kit::Result<kit::UniqueFd> OpenDirectory(std::string_view relative) const;

    const std::string& Path() const { return fPath; }
    std::string PathOf(std::string_view relative) const;

private:
    RestoreTarget(std::string path, kit::UniqueFd directory)
        : fPath(std::move(path)), fDirectory(std::move(directory)) {}

    std::string fPath;
    kit::UniqueFd fDirectory;
};

}  // namespace server
