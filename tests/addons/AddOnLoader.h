// Loads an add-on as the programs do, and is what its settings are shown to.
#pragma once

#include <dlfcn.h>

#include <memory>
#include <string>

#include "addons/KTSettingsHost.h"

template <class T>
std::unique_ptr<T> LoadAddOn(const std::string& file, const char* symbol) {
    // Stays loaded: objects may outlive the test that made them.
    void* image = ::dlopen((std::string(VELMORA_ADDONS) + "/" + file).c_str(), RTLD_NOW);
    if (!image) return nullptr;
    auto instantiate = reinterpret_cast<T* (*)()>(::dlsym(image, symbol));
    return std::unique_ptr<T>(instantiate ? instantiate() : nullptr);
}

// Keeps the window that an add-on describes.
class WindowHost : public KTSettingsHost {
public:
    void OpenSettings(const BMessage& description, KTSettingsOwner* settings,
                      const BMessenger&) override {
        window = description;
        owner = settings;
    }
    BMessage window;
    KTSettingsOwner* owner = nullptr;
};
