// A folder of a test's own that is gone with it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "velmora-XXXXXX").string();
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
    std::string operator/(std::string_view name) const { return fPath + '/' + std::string(name); }
    std::string Write(std::string_view name, std::string_view content) const {
        std::string path = *this / name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

private:
    std::string fPath;
};
