// A folder of a test's own, gone when the test ends.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "velmora-test-XXXXXX";
        if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        fPath = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(fPath, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& Path() const { return fPath; }
    std::string operator/(const std::string& name) const { return fPath + "/" + name; }

private:
    std::string fPath;
};
