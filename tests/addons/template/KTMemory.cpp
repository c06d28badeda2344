// A destination that is as small as one can be: it keeps backups in the memory of the program, by
// the name of a shelf. Copy it to begin a new one; docs/add-ons.md walks through it.
#include <algorithm>
#include <map>
#include <mutex>

#include "addons/KTVolume.h"

using kit::Error;
using kit::ErrorKind;
using kit::Result;
using kit::Status;

namespace {

constexpr char kAddOn[] = "KTMemory";  // the name of the file, and of the settings that are ours
constexpr char kPartial[] = ".partial";

using Folder = std::map<std::string, Bytes>;
struct Shelf {
    std::map<std::string, Folder> backups;
    Folder files;
};

// Both programs, and several threads of the server, have objects of their own for one place. What a
// real destination leaves to the file system is left to a mutex here.
std::mutex gMutex;
std::map<std::string, Shelf> gShelves;

Error Missing(const std::string& what) {
    return Error::Make(ErrorKind::NotFound, what);
}

class MemoryWriter : public KTVolumeWriter {
public:
    MemoryWriter(std::string shelf, std::string folder, std::string file)
        : fShelf(std::move(shelf)), fFolder(std::move(folder)), fFile(std::move(file)) {}

    Status Write(std::span<const uint8_t> data) override {
        fData.insert(fData.end(), data.begin(), data.end());
        return {};
    }
    Status Truncate(int64_t size) override {
        fData.resize(static_cast<size_t>(size));
        return {};
    }
    Status Finish() override {
        const std::lock_guard lock(gMutex);
        auto& backups = gShelves[fShelf].backups;
        const auto found = backups.find(fFolder);
        if (found == backups.end()) return Missing(fFolder);
        found->second[fFile] = std::move(fData);
        return {};
    }

private:
    std::string fShelf, fFolder, fFile;
    Bytes fData;
};

class KTMemory : public KTVolume {
public:
    // --- for the client -------------------------------------------------------------------------
    int32_t Archive(BMessage* message, bool) const override {
        GetSettings(message);
        return 0;
    }
    bool IsOverwrite() const override { return fOverwrite; }
    void SetOverwrite(bool overwrite) override { fOverwrite = overwrite; }
    const char* MediaName() const override { return fShelf.c_str(); }
    const char* MenuName() const override { return "Memory"; }

    void SetSettings(const BMessage& settings) override {
        fShelf = settings.Get<std::string>("shelf", "");
        fOverwrite = settings.Get<int32_t>("overwrite", 0) != 0;
    }
    void GetSettings(BMessage* settings) const override {
        settings->Set("addon", kAddOn);
        settings->Set("shelf", fShelf);
        settings->Set("overwrite", int32_t{fOverwrite});
    }

    void ShowSettings(KTSettingsHost* parent, const BMessenger& target, const char*) override {
        BMessage values, shelf, overwrite, window;
        GetSettings(&values);
        shelf.Add("key", "shelf");
        shelf.Add("kind", "string");
        shelf.Add("label", "Shelf");
        overwrite.Add("key", "overwrite");
        overwrite.Add("kind", "check");
        overwrite.Add("label", "Overwrite existing backups");
        window.Add("title", "Memory Settings");
        window.Add("values", values);
        window.Add("field", shelf);
        window.Add("field", overwrite);
        parent->OpenSettings(window, this, target);
    }
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override {
        if (values.Get<std::string>("shelf", "").empty()) {
            *problem = "Please name a shelf!";
            return false;
        }
        BMessage before, after;
        GetSettings(&before);
        SetSettings(values);
        GetSettings(&after);
        if (!(before == after)) target.SendMessage("news"_code);
        return true;
    }

    // --- for the engine -------------------------------------------------------------------------
    Status CheckAccess() override {
        return fShelf.empty() ? Status(Error::Make(ErrorKind::Invalid, "", "no shelf is set"))
                              : Status();
    }
    Result<KTVolumeSpace> Space() override {
        return KTVolumeSpace{.capacity = -1, .freeBytes = -1};
    }
    int64_t MediaSize() const override { return 0; }
    std::string LocalDirectory() const override { return ""; }

    Status BeginBackup(const std::string& name) override {
        const std::lock_guard lock(gMutex);
        auto& backups = Ours().backups;
        if (backups.contains(name) || !backups.try_emplace(name + kPartial).second) {
            return Error::Make(ErrorKind::Exists, name);
        }
        return {};
    }
    Result<std::unique_ptr<KTVolumeWriter>> CreateFile(const std::string& name,
                                                       const std::string& file) override {
        const std::lock_guard lock(gMutex);
        if (!Ours().backups.contains(name + kPartial)) return Missing(name);
        return std::unique_ptr<KTVolumeWriter>(
            std::make_unique<MemoryWriter>(fShelf, name + kPartial, file));
    }
    Status Publish(const std::string& name) override {
        const std::lock_guard lock(gMutex);
        auto partial = Ours().backups.extract(name + kPartial);
        if (partial.empty()) return Missing(name);
        partial.key() = name;
        Ours().backups.insert(std::move(partial));
        return {};
    }
    Status RemoveBackup(const std::string& folder) override {
        const std::lock_guard lock(gMutex);
        return Ours().backups.erase(folder) == 1 ? Status() : Status(Missing(folder));
    }

    Result<std::vector<std::string>> ListBackups() override {
        const std::lock_guard lock(gMutex);
        std::vector<std::string> names;
        for (const auto& [name, files] : Ours().backups)
            names.push_back(name);
        return names;
    }
    Result<std::vector<KTVolumeFile>> ListFiles(const std::string& folder) override {
        const std::lock_guard lock(gMutex);
        const auto found = Ours().backups.find(folder);
        if (found == Ours().backups.end()) return Missing(folder);
        std::vector<KTVolumeFile> files;
        for (const auto& [name, data] : found->second)
            files.push_back({name, static_cast<int64_t>(data.size())});
        return files;
    }
    Result<size_t> ReadAt(const std::string& folder, const std::string& file, int64_t offset,
                          std::span<uint8_t> into) override {
        const std::lock_guard lock(gMutex);
        const auto found = Ours().backups.find(folder);
        if (found == Ours().backups.end()) return Missing(folder);
        const auto data = found->second.find(file);
        if (data == found->second.end()) return Missing(file);
        const size_t start = std::min(static_cast<size_t>(offset), data->second.size());
        const size_t size = std::min(into.size(), data->second.size() - start);
        std::copy_n(data->second.begin() + static_cast<ptrdiff_t>(start), size, into.begin());
        return size;
    }
    Status WriteRootFile(const std::string& file, std::span<const uint8_t> data) override {
        const std::lock_guard lock(gMutex);
        Ours().files[file] = Bytes(data.begin(), data.end());
        return {};
    }

private:
    Shelf& Ours() const { return gShelves[fShelf]; }

    std::string fShelf;
    bool fOverwrite = false;
};

}  // namespace

extern "C" KTVolume* instantiate_ktvolume() {
    try {
        return new KTMemory;
    } catch (...) {
        return nullptr;  // nothing may be thrown over the border
    }
}
