// The names of one catalogue in one piece, so that a million of them are searched in a few
// milliseconds. Made from the catalogue and lying beside it; it can be made anew at any time.
// docs/formats.md has the bytes.
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "kit/support/Result.h"
#include "kit/support/UniqueFd.h"

namespace server {

class NameIndex {
public:
    // Writes the index of the catalogue file, whole or not at all. Reads every row once: half a
    // second for a million.
    static kit::Status Build(const std::string& catalogue, const std::string& path);
    // NotFound, Damaged: build it.
    static kit::Result<NameIndex> Open(const std::string& path);

    // How names are compared: A to Z as a to z, all else as bytes.
    static std::string Folded(std::string_view name);

    // The entries in whose names the folded text is, by id; `visit` returns false to stop. An empty
    // text is in none, nor is one with a NUL.
    kit::Status Find(std::string_view folded, const std::function<bool(int32_t id)>& visit) const;
    // The directory that holds the entry; the root for a volume. Always less than `id`.
    std::optional<int32_t> ParentOf(int32_t id) const;

private:
    NameIndex() = default;
    kit::Error Damaged() const;

    std::string fPath;
    kit::UniqueFd fFile;
    int64_t fNames = 0;  // bytes
    uint32_t fEntries = 0, fDirectories = 0;
};

}  // namespace server
