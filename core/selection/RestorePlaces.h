// Where restored entries go: to the place they came from, or to the directories that the user sent
// them to.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/selection/Redirections.h"
#include "kit/storage/BVolume.h"

namespace core {

struct RestorePlace {
    std::string root;      // absolute path of the target, or of a volume's mount point
    std::string relative;  // below it, "" for itself
    bool redirected = false;
    bool operator==(const RestorePlace&) const = default;
    std::string Path() const;  // the whole of it
};

class RestorePlaces {
public:
    // The redirections that `selection` records are heeded where `divert` is set. `createRoot`:
    // what is sent to a directory gets one of its own name there, else its contents go straight
    // into it.
    RestorePlaces(const BMessage& selection, bool divert, bool createRoot,
                  std::vector<BVolume> volumes);

    // "/Backup/Volume/path". Nothing where there is no such volume here, and for a backup as such.
    std::optional<RestorePlace> Of(std::string_view path) const;
    bool HasRedirections() const { return !fRedirections.IsEmpty(); }
    int Refused() const { return fRedirections.Refused(); }

private:
    std::optional<RestorePlace> Original(std::string_view path) const;

    const Redirections fRedirections;
    const bool fCreateRoot;
    const std::vector<BVolume> fVolumes;
};

}  // namespace core
