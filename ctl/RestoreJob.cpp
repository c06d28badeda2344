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
        const std::string place =
            "/" + backup.name + entry.path + (entry.HoldsOthers() ? "/*" : "");
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

BMessage VerifyJob(const ListedBackup& backup, const std::string& title) {
    BMessage selection;
    selection.Add(core::kSelectionField, "INCLUDE /" + backup.name + "/*");
    return Job(core::JobType::Verify, selection, title);
}

}  // namespace ctl
