// The add-ons beside the program: which there are, and the chosen one loaded. Two kinds:
// destinations (KTVolume) and compressors (KTCruncher). One thread at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addons/KTCruncher.h"
#include "addons/KTVolume.h"
#include "kit/storage/AddOnImage.h"

// File names of those that are taken when none is named.
inline constexpr char kUsualDestination[] = "KTImage";
inline constexpr char kUsualPacker[] = "KTNone";

struct AddOnName {
    std::string menuName;  // what the add-on calls itself; bytes
    std::string fileName;  // leaf name of its file: what jobs know it by
};

// An object with the image its code lies in: the image stays as long as the object.
template <class T>
struct LoadedAddOn {
    std::shared_ptr<kit::AddOnImage> image;
    std::unique_ptr<T> object;  // behind the image, so that it goes first

    LoadedAddOn() = default;
    LoadedAddOn(LoadedAddOn&&) noexcept = default;
    LoadedAddOn& operator=(LoadedAddOn&& other) noexcept {
        // The former object's code lies in the former image.
        object = std::move(other.object);
        image = std::move(other.image);
        return *this;
    }

    explicit operator bool() const { return object != nullptr; }
    T* operator->() const { return object.get(); }
    T* Get() const { return object.get(); }
};

template <class T>
class AddOnCatalogue {
public:
    explicit AddOnCatalogue(const std::string& programFolder);

    // Every add-on that can be loaded and gives an object, the usual one first, the others by file
    // name. Each is loaded, asked for its name and unloaded again; what cannot be loaded is left
    // out.
    std::vector<AddOnName> List() const;

    // A new object of the add-on; empty when there is none. `fileName` comes from job files:
    // anything but a plain leaf name is refused. `kept` lends its image when that is the same
    // add-on's.
    LoadedAddOn<T> Load(const std::string& fileName, const LoadedAddOn<T>* kept = nullptr) const;

    const std::string& Folder() const { return fFolder; }

private:
    std::string fFolder;
};

extern template class AddOnCatalogue<KTVolume>;
extern template class AddOnCatalogue<KTCruncher>;
