#include "client/addons/AddOnCatalogue.h"

#include <algorithm>

namespace {

template <class T>
struct Kind;

template <>
struct Kind<KTVolume> {
    static constexpr char folder[] = "/Backup_Server/add-ons/destination";
    static constexpr char symbol[] = "instantiate_ktvolume";
    static constexpr const char* usual = kUsualDestination;
    using Instantiate = instantiate_ktvolume_func;
};

template <>
struct Kind<KTCruncher> {
    static constexpr char folder[] = "/Backup_Server/add-ons/compressors";
    static constexpr char symbol[] = "instantiate_ktcruncher";
    static constexpr const char* usual = kUsualPacker;
    using Instantiate = instantiate_ktcruncher_func;
};

bool IsLeafName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

}  // namespace

template <class T>
AddOnCatalogue<T>::AddOnCatalogue(const std::string& programFolder)
    : fFolder(programFolder + Kind<T>::folder) {}

template <class T>
std::vector<AddOnName> AddOnCatalogue<T>::List() const {
    std::vector<AddOnName> names;
    for (const std::string& candidate : kit::AddOnImage::Candidates(fFolder)) {
        const std::string leaf = candidate.substr(candidate.rfind('/') + 1);
        const LoadedAddOn<T> addOn = Load(leaf);
        const char* menuName = addOn ? addOn->MenuName() : nullptr;
        if (menuName && *menuName) names.push_back({menuName, leaf});
    }
    std::stable_partition(names.begin(), names.end(),
                          [](const AddOnName& name) { return name.fileName == Kind<T>::usual; });
    return names;
}

template <class T>
LoadedAddOn<T> AddOnCatalogue<T>::Load(const std::string& fileName,
                                       const LoadedAddOn<T>* kept) const {
    if (!IsLeafName(fileName)) return {};
    const std::string path = fFolder + "/" + fileName;
    LoadedAddOn<T> addOn;
    if (kept && kept->image && kept->image->Path() == path) {
        addOn.image = kept->image;
    } else {
        auto image = kit::AddOnImage::Load(path);
        if (!image) return {};
        addOn.image = std::make_shared<kit::AddOnImage>(std::move(*image));
    }
    auto instantiate =
        reinterpret_cast<typename Kind<T>::Instantiate>(addOn.image->Symbol(Kind<T>::symbol));
    if (instantiate) addOn.object.reset(instantiate());
    if (!addOn.object) return {};
    return addOn;
}

template class AddOnCatalogue<KTVolume>;
template class AddOnCatalogue<KTCruncher>;
