#include "server/engine/RestorePlaces.h"

#include <algorithm>

#include "core/selection/KTSelection.h"

namespace server {

namespace {

constexpr std::string_view kRedirect = "REDIREC ";
constexpr std::string_view kClear = "CLEAR   ";

bool IsAbove(std::string_view above, std::string_view path) {
    return path.size() > above.size() && path.starts_with(above) && path[above.size()] == '/';
}

// Absolute, without "." and "..", and without a slash at the end.
bool IsPlainPath(std::string_view path) {
    if (path == "/") return true;
    return core::SelectionRule::Parse("INCLUDE " + std::string(path)).has_value();
}

std::string_view LastPart(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

RestorePlaces::RestorePlaces(const BMessage& selection, bool divert, bool createRoot,
                             std::vector<BVolume> volumes)
    : fCreateRoot(createRoot), fVolumes(std::move(volumes)) {
    if (!divert) return;
    for (int32_t i = 0; i < selection.Count("source"); ++i) {
        const std::string source = selection.Get<std::string>("source", "", i);
        std::string target = selection.Get<std::string>("redirect", "", i);
        const bool redirect = source.starts_with(kRedirect);
        while (target.size() > 1 && target.ends_with('/'))
            target.pop_back();
        const auto rule = core::SelectionRule::Parse(
            "INCLUDE " + source.substr(std::min(source.size(), kRedirect.size())));
        if ((!redirect && !source.starts_with(kClear)) || !rule ||
            (redirect && !IsPlainPath(target))) {
            ++fRefused;
            continue;
        }
        fRedirections.push_back({rule->path, rule->subtree, redirect ? target : ""});
    }
}

std::optional<RestorePlace> RestorePlaces::Of(std::string_view path) const {
    for (size_t i = fRedirections.size(); i-- > 0;) {
        const Redirection& one = fRedirections[i];
        if (path != one.source && !(one.subtree && IsAbove(one.source, path))) continue;
        if (one.target.empty()) return Original(path);
        std::string relative(path.substr(one.source.size()));
        if (fCreateRoot || !one.subtree) {
            relative = std::string(LastPart(one.source)) + relative;
        } else if (!relative.empty()) {
            relative.erase(0, 1);
        }
        return RestorePlace{one.target, std::move(relative), true};
    }
    return Original(path);
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

}  // namespace server
