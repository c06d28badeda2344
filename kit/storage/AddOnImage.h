// A loaded add-on: a shared object that stays in memory as long as this lives.
#pragma once

#include <string>
#include <vector>

#include "kit/support/Result.h"

namespace kit {

class AddOnImage {
public:
    // Refuses files, and folders, that anybody but the user and root can write. Nothing of the
    // add-on's runs but its static constructors.
    static Result<AddOnImage> Load(const std::string& path);
    // The files of an add-on folder that may be worth loading, by name. Missing folder: empty.
    static std::vector<std::string> Candidates(const std::string& folder);

    AddOnImage(AddOnImage&& other) noexcept;
    AddOnImage& operator=(AddOnImage&& other) noexcept;
    ~AddOnImage();

    void* Symbol(const char* name) const;  // null when it is not there
    const std::string& Path() const { return fPath; }

private:
    AddOnImage(void* handle, std::string path) : fHandle(handle), fPath(std::move(path)) {}
    void* fHandle = nullptr;
    std::string fPath;
};

}  // namespace kit
