#include "addons/KTRemote/RemoteFiles.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using kit::Error;
using kit::ErrorKind;
using nlohmann::json;

namespace remote_files {

namespace {

// A listing is asked for only what it needs: times cost some remotes a question for each file.
const std::vector<std::string> kList = {"lsjson", "--no-modtime", "--no-mimetype"};

kit::Result<json> AskJson(const RcloneLimits& limits, const std::vector<std::string>& command,
                          const std::string& path, const Rclone::Stop& stop) {
    const auto answer = Rclone::Ask(limits, command, {path}, limits.call, stop);
    if (!answer) return answer.error();
    json parsed = json::parse(*answer, nullptr, false);
    if (parsed.is_discarded()) {
        return Error::Make(ErrorKind::Damaged, path, "the answer of rclone cannot be understood");
    }
    return parsed;
}

int64_t NumberOf(const json& object, const char* key) {
    if (!object.is_object()) return -1;
    const auto found = object.find(key);
    return found != object.end() && found->is_number_integer() ? found->get<int64_t>() : -1;
}

}  // namespace

kit::Result<std::vector<Entry>> List(const RcloneLimits& limits, const std::string& path,
                                     const Rclone::Stop& stop) {
    const auto list = AskJson(limits, kList, path, stop);
    if (!list) return list.error();
    std::vector<Entry> entries;
    if (!list->is_array()) return entries;
    for (const json& item : *list) {
        const auto name = item.is_object() ? item.find("Name") : item.end();
        if (!item.is_object() || name == item.end() || !name->is_string()) continue;
        Entry entry;
        entry.name = name->get<std::string>();
        if (entry.name.empty() || entry.name == "." || entry.name == ".." ||
            entry.name.find('/') != std::string::npos) {
            continue;
        }
        entry.size = NumberOf(item, "Size");
        const auto folder = item.find("IsDir");
        entry.isFolder = folder != item.end() && folder->is_boolean() && folder->get<bool>();
        entries.push_back(std::move(entry));
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
}

kit::Result<int64_t> SizeOf(const RcloneLimits& limits, const std::string& path,
                            const Rclone::Stop& stop) {
    auto command = kList;
    command.emplace_back("--stat");
    const auto file = AskJson(limits, command, path, stop);
    if (!file) return file.error();
    if (!file->is_object()) return Error::Make(ErrorKind::NotFound, path, "is not there");
    return NumberOf(*file, "Size");
}

kit::Result<KTVolumeSpace> Space(const RcloneLimits& limits, const std::string& path,
                                 const Rclone::Stop& stop) {
    KTVolumeSpace space{-1, -1, false, false};
    const auto about = AskJson(limits, {"about", "--json"}, path, stop);
    if (!about && about.error().kind == ErrorKind::Unsupported) return space;
    if (!about) return about.error();
    space.capacity = NumberOf(*about, "total");
    space.freeBytes = NumberOf(*about, "free");
    return space;
}

kit::Result<bool> CanMoveFolders(const RcloneLimits& limits, const std::string& path,
                                 const Rclone::Stop& stop) {
    const auto answer = AskJson(limits, {"backend", "features"}, path, stop);
    if (!answer) return answer.error();
    const json features = answer->is_object() ? answer->value("Features", json()) : json();
    return features.is_object() && features.contains("DirMove") &&
           features["DirMove"].is_boolean() && features["DirMove"].get<bool>();
}

}  // namespace remote_files
