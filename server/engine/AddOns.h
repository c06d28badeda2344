// The add-ons of a job, loaded from the program's folder. An object and the image with its code go
// together.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "addons/KTCruncher.h"
#include "addons/KTVolume.h"
#include "kit/storage/AddOnImage.h"
#include "kit/support/Result.h"

namespace server {

template <class T>
class LoadedAddOn {
public:
    LoadedAddOn(kit::AddOnImage image, T* object) : fImage(std::move(image)), fObject(object) {}
    T& operator*() const { return *fObject; }
    T* operator->() const { return fObject.get(); }

private:
    kit::AddOnImage fImage;  // goes after the object
    std::unique_ptr<T> fObject;
};

// `folder` is that of all add-ons. Invalid: the name is none; Damaged: there is no such symbol in
// it, or it gave no object; any other error: it could not be loaded.
kit::Result<LoadedAddOn<KTVolume>> LoadDestination(const std::string& folder,
                                                   const std::string& name);
kit::Result<LoadedAddOn<KTCruncher>> LoadCompressor(const std::string& folder,
                                                    const std::string& name);

}  // namespace server
