// Where restored entries go: to the place they came from, or to the directories that the user sent
// them to.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/message/BMessage.h"
#include "kit/storage/BVolume.h"

namespace server {

struct RestorePlace {
    std::string root;      // absolute path of the target, or of a volume's mount point
    std::string relative;  // below it, "" for itself
    bool redirected = false;
    bool operator==(const RestorePlace&) const = default;
};

class RestorePlaces {
public:
    // `selection` holds the "source" and "redirect" records, which are heeded where `divert` is
    // set. `createRoot`: what is sent to a directory gets one of its own name there, else its
    // contents go straight into it.
    RestorePlaces(const BMessage& selection, bool divert, bool createRoot,
                  std::vector<BVolume> volumes);

    // "/Backup/Volume/path". Nothing where there is no such volume here, and for a backup as such.
    std::optional<RestorePlace> Of(std::string_view path) const;
    bool HasRedirections() const { return !fRedirections.empty(); }
    int Refused() const { return fRefused; }  // records that cannot be understood

private:
    struct Redirection {
        std::string source;  // without "/*"
        bool subtree = false;
        std::string target;  // "" takes earlier ones back
    };
    std::optional<RestorePlace> Original(std::string_view path) const;

    std::vector<Redirection> fRedirections;
    const bool fCreateRoot;
    const std::vector<BVolume> fVolumes;
    int fRefused = 0;
};

}  // namespace server
