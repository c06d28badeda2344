// Loads an add-on as the programs do.
#pragma once

#include <dlfcn.h>

#include <memory>
#include <string>

template <class T>
std::unique_ptr<T> LoadAddOn(const std::string& file, const char* symbol) {
    // Stays loaded: objects may outlive the test that made them.
    void* image = ::dlopen((std::string(VELMORA_ADDONS) + "/" + file).c_str(), RTLD_NOW);
    if (!image) return nullptr;
    auto instantiate = reinterpret_cast<T* (*)()>(::dlsym(image, symbol));
    return std::unique_ptr<T>(instantiate ? instantiate() : nullptr);
}
