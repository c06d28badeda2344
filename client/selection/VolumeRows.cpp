#include "client/selection/VolumeRows.h"

#include <algorithm>

#include "client/settings/Preferences.h"

namespace {

VolumeRows::Volume At(const BMessage& message, int32_t place) {
    VolumeRows::Volume volume;
    volume.path = message.Get("path", std::string(), place);
    volume.device = static_cast<uint64_t>(message.Get<int64_t>("device", 0, place));
    volume.capacity = std::max<int64_t>(message.Get<int64_t>("capacity", 0, place), 0);
    volume.used = std::clamp<int64_t>(volume.capacity - message.Get<int64_t>("free", 0, place), 0,
                                      volume.capacity);
    return volume;
}

}  // namespace

QColor VolumeRows::Color(const Preferences* preferences) {
    rgb_color color{49, 61, 225, 255};
    if (preferences) color = preferences->GetColor("COLOR_VOLUME", color);
    return QColor(color.red, color.green, color.blue, color.alpha);
}

void VolumeRows::Look(SourceReader& reader) {
    if (fLook != 0) reader.Cancel(fLook);
    fLook = reader.ListVolumes();
}

void VolumeRows::MountsChanged(const BMessage& event) {
    const auto device = event.Find<int64_t>("new device");
    if (device) fMounted.insert(static_cast<uint64_t>(*device));
}

std::optional<VolumeRows::News> VolumeRows::Listed(const BMessage& message) {
    if (message.Get<int64_t>("read", 0) != fLook) return std::nullopt;
    fLook = 0;
    fKnown = true;
    News news;
    std::set<KTRow> found;
    const int32_t count = message.Count("name");
    for (int32_t i = 0; i < count; ++i) {
        const Volume volume = At(message, i);
        // Another disk at the same place is another volume.
        const auto known = std::find_if(fVolumes.begin(), fVolumes.end(), [&](const auto& row) {
            return row.second.path == volume.path && row.second.device == volume.device;
        });
        if (known != fVolumes.end()) {
            found.insert(known->first);
            news.stay.emplace_back(known->first, i);
        } else if (message.Get("persistent", false, i) || fMounted.contains(volume.device)) {
            news.come.push_back(i);
        }
    }
    for (const auto& [row, volume] : fVolumes)
        if (!found.contains(row)) news.gone.push_back(row);
    return news;
}

void VolumeRows::Set(KTRow row, const BMessage& message, int32_t place) {
    fVolumes[row] = At(message, place);
}

const VolumeRows::Volume* VolumeRows::Find(KTRow row) const {
    const auto found = fVolumes.find(row);
    return found == fVolumes.end() ? nullptr : &found->second;
}
