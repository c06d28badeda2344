#include "ctl/RestoreJob.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "core/selection/KTSelection.h"

namespace ctl {

namespace {

BMessage Job(core::JobType type, const BMessage& selection, const std::string& title) {
    BMessage info;
    info.Add("title", title);
    info.Add("submitonhold", int32_t{0});
    BMessage job(core::code::kSubmitJob);
    job.Add("job_type", static_cast<int32_t>(type));
    job.Add("selection", selection);
    job.Add("start_info", info);
    return job;
}

// What covers an entry, with all that is in it.
std::string PlaceOf(const ListedBackup& backup, const TreeEntry& entry) {
    return "/" + backup.name + entry.path + (entry.HoldsOthers() ? "/*" : "");
}

struct CompareItem {
    const char *word, *key;
};
constexpr CompareItem kCompareItems[] = {
    {"data", "filedata"},  {"attributes", "attribute"},    {"size", "size"},
    {"modified", "mdate"}, {"created", "cdate"},           {"link", "symlinkdata"},
    {"user", "uid"},       {"permissions", "permissions"}, {"group", "gid"},
};

const CompareItem* FindCompareItem(const std::string& word) {
    const auto* found = std::find_if(std::begin(kCompareItems), std::end(kCompareItems),
                                     [&](const CompareItem& item) { return item.word == word; });
    return found == std::end(kCompareItems) ? nullptr : found;
}

}  // namespace

std::optional<int32_t> ParseOverwrite(const std::string& text) {
    constexpr std::array words{"no", "older", "rename", "yes"};
    const auto at = std::find(words.begin(), words.end(), text);
    if (at == words.end()) return std::nullopt;
    return static_cast<int32_t>(std::distance(words.begin(), at));
}

BMessage RestoreJob(const ListedBackup& backup, const std::vector<TreeEntry>& entries,
                    const std::optional<std::string>& target, int32_t overwrite,
                    const std::string& title) {
    BMessage selection;
    for (const auto& entry : entries) {
        const std::string place = PlaceOf(backup, entry);
        selection.Add(core::kSelectionField, "INCLUDE " + place);
        if (!target) continue;
        selection.Add("source", "REDIREC " + place);
        selection.Add("redirect", *target);
    }
    BMessage settings;
    settings.Add("divert", int32_t{target.has_value()});
    settings.Add("createroot", int32_t{1});
    settings.Add("createemptydirs", int32_t{1});
    settings.Add("overwrite", overwrite);
    BMessage job = Job(core::JobType::Restore, selection, title);
    job.Add("restore", settings);
    return job;
}

bool IsCompareItem(const std::string& word) {
    return FindCompareItem(word) != nullptr;
}

BMessage CompareJob(const ListedBackup& backup, const std::vector<TreeEntry>& entries,
                    const std::vector<std::string>& items, const std::string& title) {
    BMessage selection;
    for (const auto& entry : entries)
        selection.Add(core::kSelectionField, "INCLUDE " + PlaceOf(backup, entry));
    BMessage settings;
    settings.Add("compareall", int32_t{items.empty()});
    for (const auto& word : items) {
        if (const auto* item = FindCompareItem(word)) settings.Set(item->key, int32_t{1});
    }
    BMessage job = Job(core::JobType::Compare, selection, title);
    job.Add("compare", settings);
    return job;
}

BMessage VerifyJob(const ListedBackup& backup, const std::string& title) {
    BMessage selection;
    selection.Add(core::kSelectionField, "INCLUDE /" + backup.name + "/*");
    return Job(core::JobType::Verify, selection, title);
}

}  // namespace ctl
