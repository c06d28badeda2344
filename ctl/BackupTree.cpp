#include "ctl/BackupTree.h"

#include <algorithm>
#include <filesystem>

#include "ctl/BackupJob.h"
#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"

namespace ctl {

using enum core::MoreText;

namespace {

constexpr int32_t kBackupType = -1;

// "/a/b" for "a//b/".
std::string Plain(const std::string& path) {
    const size_t first = path.find_first_not_of('/');
    if (first == std::string::npos) return "/";
    std::string plain = std::filesystem::path("/" + path.substr(first)).lexically_normal().string();
    while (plain.size() > 1 && plain.ends_with('/'))
        plain.pop_back();
    return plain;
}

// "." and "../letters" are said from where the user stands, not from the top of a backup.
bool IsFromHere(const std::string& path) {
    const std::string first = path.substr(0, path.find('/'));
    return first == "." || first == "..";
}

}  // namespace

std::vector<std::string> PlacesOf(const std::string& typed, const std::vector<BVolume>& volumes) {
    std::vector<std::string> places;
    if (!IsFromHere(typed)) places.push_back(Plain(typed));
    if (!places.empty() && places.front() == "/") return places;
    if (const auto onDisk = BVolumeRoster::FromDisk(volumes, AbsoluteTarget(typed))) {
        const std::string place = Plain(*onDisk);
        if (places.empty() || place != places.front()) places.push_back(place);
    }
    return places;
}

std::optional<std::vector<TreeEntry>> BackupTree::Children(const std::string& path) {
    BMessage question(core::code::kListCatalogue);
    question.Add("path", "/" + fBackup.name + (path == "/" ? "" : path));
    auto list = fServer.Ask(question);
    if (list && list->Get<int32_t>("locked", 0) != 0) {
        if (!Unlock(fServer, fBackup, fPasswords)) return std::nullopt;
        list = fServer.Ask(question);
    }
    if (!list) {
        Fail(kMoreServerSilent);
        return std::nullopt;
    }
    std::vector<TreeEntry> entries;
    const std::string above = path == "/" ? "" : path;
    const int32_t count = list->Count("name");
    entries.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        entries.push_back({above + "/" + list->Get("name", std::string(), i),
                           list->Get<int32_t>("type", 0, i), list->Get<int64_t>("size", 0, i),
                           list->Get("date", BTime(), i).seconds});
    }
    return entries;
}

std::optional<TreeEntry> BackupTree::EntryAt(const std::string& path, bool* failed) {
    if (path == "/") return TreeEntry{path, kBackupType, -1, fBackup.date};
    const size_t slash = path.rfind('/');
    const auto siblings = Children(slash == 0 ? "/" : path.substr(0, slash));
    *failed = !siblings;
    if (!siblings) return std::nullopt;
    const auto entry = std::find_if(siblings->begin(), siblings->end(),
                                    [&](const TreeEntry& sibling) { return sibling.path == path; });
    return entry == siblings->end() ? std::nullopt : std::optional(*entry);
}

std::optional<TreeEntry> BackupTree::Find(const std::string& typed) {
    for (const auto& place : PlacesOf(typed, BVolumeRoster().Volumes())) {
        bool failed = false;
        if (auto entry = EntryAt(place, &failed)) return entry;
        if (failed) return std::nullopt;
    }
    Fail(kMoreCtlNotInBackup, typed, fBackup.name);
    return std::nullopt;
}

}  // namespace ctl
