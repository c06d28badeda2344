#include "client/addons/KTDestinationJob.h"

#include <algorithm>
#include <array>

#include "client/addons/AddOnCatalogue.h"

namespace {

// Fields of the job itself: an add-on that has such a name gets no copy of its settings under it.
constexpr std::array<std::string_view, 14> kOwnFields = {
    "job_type",        "selection",  "base_id",    "addon",     "volume",
    "bak_addonpacker", "bak_packer", "start_info", "scheduler", "selectionpath",
    "client_id",       "job_id",     "title",      "ID"};

bool IsOwnField(std::string_view name) {
    return std::ranges::find(kOwnFields, name) != kOwnFields.end();
}

}  // namespace

std::string KTDestinationJob::Destination() const {
    return fJob.Get("addon", std::string(kUsualDestination));
}

BMessage KTDestinationJob::TakeVolume() {
    const std::string chosen = Destination();
    const BMessage volume = fJob.Get("volume", BMessage());
    const auto owner = volume.FindString("addon");
    if (owner == chosen) return volume;
    if (!owner || IsOwnField(chosen)) return {};
    auto stored = fJob.Find<BMessage>(chosen);
    if (!stored) return {};
    fJob.Set("volume", *stored);
    return *stored;
}

void KTDestinationJob::StoreVolume(BMessage settings) {
    const std::string chosen = Destination();
    if (!settings.Has("addon")) settings.Add("addon", chosen);
    if (settings.FindString("addon") != chosen) return;
    fJob.Set("volume", settings);
    if (!IsOwnField(chosen)) fJob.Set(chosen, settings);
}
