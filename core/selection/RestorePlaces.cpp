#include "core/selection/RestorePlaces.h"

namespace core {

namespace {

std::string_view LastPart(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

std::string RestorePlace::Path() const {
    if (relative.empty()) return root;
    return root == "/" ? "/" + relative : root + "/" + relative;
}

RestorePlaces::RestorePlaces(const BMessage& selection, bool divert, bool createRoot,
                             std::vector<BVolume> volumes)
    : fRedirections(divert ? Redirections(selection) : Redirections()),
      fCreateRoot(createRoot),
      fVolumes(std::move(volumes)) {}

std::optional<RestorePlace> RestorePlaces::Of(std::string_view path) const {
    const Redirection* one = fRedirections.Of(path);
    if (!one) return Original(path);
    std::string relative(path.substr(one->source.size()));
    if (fCreateRoot || !one->subtree) {
        relative = std::string(LastPart(one->source)) + relative;
    } else if (!relative.empty()) {
        relative.erase(0, 1);
    }
    return RestorePlace{one->target, std::move(relative), true};
}

std::optional<RestorePlace> RestorePlaces::Original(std::string_view path) const {
    const size_t name = path.find('/', 1);
    if (name == std::string_view::npos) return std::nullopt;
    const size_t end = path.find('/', name + 1);
    const BVolume* volume = BVolumeRoster::ByName(fVolumes, path.substr(name + 1, end - name - 1));
    if (!volume) return std::nullopt;
    return RestorePlace{volume->mountPoint,
                        std::string(end == std::string_view::npos ? "" : path.substr(end + 1)),
                        false};
}

}  // namespace core
