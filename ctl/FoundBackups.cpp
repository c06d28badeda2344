#include "ctl/FoundBackups.h"

#include <algorithm>
#include <iterator>

#include "core/protocol/Codes.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

namespace {

constexpr char kImage[] = "KTImage";
constexpr std::string_view kPartial = ".partial";

BMessage VolumeOf(const std::string& folder) {
    BMessage volume;
    volume.Add("addon", kImage);
    volume.Add("path", folder);
    return volume;
}

}  // namespace

std::optional<std::vector<FoundBackup>> FindBackups(ServerConnection& server,
                                                    const std::string& folder) {
    BMessage question(core::code::kScanMedium);
    question.Add("id", int32_t{0});
    question.Add("name", kImage);
    question.Add("settings", VolumeOf(folder));
    const auto answer = server.Ask(std::move(question));
    if (!answer) return std::nullopt;
    std::vector<FoundBackup> found;
    const int32_t count = answer->Count("ID");
    found.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        found.push_back(
            {answer->Get("ID", std::string(), i), answer->Get("title", std::string(), i),
             answer->Get("date", BTime(), i).seconds, answer->Get<int32_t>("protected", 0, i) != 0,
             answer->Get<int32_t>("known", 0, i) != 0});
    }
    return found;
}

std::vector<FoundBackup> MeantBackups(const std::vector<FoundBackup>& all,
                                      const std::string& text) {
    std::vector<FoundBackup> meant;
    const auto take = [&](auto fits) {
        if (meant.empty()) std::ranges::copy_if(all, std::back_inserter(meant), fits);
    };
    take([&](const FoundBackup& backup) { return backup.id == text; });
    take([&](const FoundBackup& backup) { return backup.id == text + std::string(kPartial); });
    take([&](const FoundBackup& backup) { return backup.title == text; });
    return meant;
}

std::string FoundLine(const FoundBackup& backup) {
    std::string line = Padded(Printable(backup.id), 32) + "  " + DateWords(backup.date) + "  " +
                       Printable(backup.title);
    if (backup.isProtected) line += "  [" + core::TextOf(kMoreCtlFoundProtected) + "]";
    if (backup.isKnown) line += "  [" + core::TextOf(kMoreCtlFoundKnown) + "]";
    return line;
}

BMessage InsertJob(const std::string& folder, const std::vector<FoundBackup>& backups,
                   const std::string& title) {
    BMessage info;
    info.Add("title", title);
    BMessage job(core::code::kSubmitJob);
    job.Add("job_type", static_cast<int32_t>(core::JobType::Insert));
    job.Add("addon", kImage);
    job.Add("volume", VolumeOf(folder));
    for (const auto& backup : backups) {
        job.Add("ID", backup.id);
        job.Add("title", backup.title);
    }
    job.Add("start_info", info);
    return job;
}

}  // namespace ctl
