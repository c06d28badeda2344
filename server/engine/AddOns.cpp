#include "server/engine/AddOns.h"

namespace server {

namespace {

template <class T, class Instantiate>
kit::Result<LoadedAddOn<T>> Load(const std::string& folder, const std::string& name,
                                 const char* symbol) {
    // The name comes from a job: it must not lead out of the folder.
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
        return kit::Error::Make(kit::ErrorKind::Invalid, name, "no add-on's name");
    }
    auto image = kit::AddOnImage::Load(folder + "/" + name);
    if (!image) return image.error();
    const auto instantiate = reinterpret_cast<Instantiate>(image->Symbol(symbol));
    T* object = instantiate ? instantiate() : nullptr;
    if (!object) return kit::Error::Make(kit::ErrorKind::Damaged, name, symbol);
    return LoadedAddOn<T>(std::move(*image), object);
}

}  // namespace

kit::Result<LoadedAddOn<KTVolume>> LoadDestination(const std::string& folder,
                                                   const std::string& name) {
    return Load<KTVolume, instantiate_ktvolume_func>(folder + "/destination", name,
                                                     "instantiate_ktvolume");
}

kit::Result<LoadedAddOn<KTCruncher>> LoadCompressor(const std::string& folder,
                                                    const std::string& name) {
    return Load<KTCruncher, instantiate_ktcruncher_func>(folder + "/compressors", name,
                                                         "instantiate_ktcruncher");
}

}  // namespace server
