// The first name under which each file with several names was saved. Forgets a file when all its
// names were seen, so it holds only what is still waited for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace server {

class HardLinks {
public:
    struct First {
        std::string path;   // "Volume/dir/name"
        int32_t entry = 0;  // in the catalogue
    };

    // Whether the file was saved before under another name, and if so, whether that one lies where
    // the backup before has it.
    std::optional<bool> IsFirstInBase(uint64_t device, uint64_t node) const {
        const auto found = fFiles.find({device, node});
        if (found == fFiles.end()) return std::nullopt;
        return found->second.inBase;
    }
    // That name; asked once for each further one.
    bool Find(uint64_t device, uint64_t node, First* first) {
        auto found = fFiles.find({device, node});
        if (found == fFiles.end()) return false;
        first->path = fDirectories[found->second.directory] + found->second.name;
        first->entry = found->second.entry;
        if (--found->second.left == 0) fFiles.erase(found);
        return true;
    }

    // A file with `names` names was saved under the first of them.
    void Add(uint64_t device, uint64_t node, uint32_t names, std::string_view path, int32_t entry,
             bool inBase = false) {
        const size_t nameAt = path.rfind('/') + 1;
        const std::string_view directory = path.substr(0, nameAt);
        // Files of one directory come together: its path is kept once.
        if (fDirectories.empty() || fDirectories.back() != directory) {
            fDirectories.emplace_back(directory);
        }
        fFiles[{device, node}] = {static_cast<uint32_t>(fDirectories.size() - 1), entry, names - 1,
                                  std::string(path.substr(nameAt)), inBase};
    }

private:
    struct Key {
        uint64_t device, node;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        size_t operator()(const Key& key) const {
            return static_cast<size_t>((key.node ^ (key.device << 48)) * 0x9e3779b97f4a7c15u);
        }
    };
    struct Seen {
        uint32_t directory = 0;
        int32_t entry = 0;
        uint32_t left = 0;  // names still to come
        std::string name;
        bool inBase = false;
    };
    std::vector<std::string> fDirectories;  // with a slash at the end
    std::unordered_map<Key, Seen, Hash> fFiles;
};

}  // namespace server
