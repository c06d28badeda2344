#include "ctl/Backups.h"

#include <algorithm>
#include <iterator>

#include "ctl/Output.h"
#include "ctl/Say.h"
#include "ctl/ServerConnection.h"
#include "ctl/Words.h"

namespace ctl {

using enum core::MoreText;

std::optional<std::vector<ListedBackup>> ListBackups(ServerConnection& server) {
    BMessage question(core::code::kListCatalogue);
    question.Add("path", "/");
    const auto list = server.Ask(std::move(question));
    if (!list) return std::nullopt;
    std::vector<ListedBackup> backups;
    const int32_t count = list->Count("name");
    backups.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        backups.push_back({list->Get("name", std::string(), i),
                           list->Get("title", std::string(), i),
                           static_cast<core::JobType>(list->Get<int32_t>("mode", 1, i)),
                           list->Get<int32_t>("job_id", 0, i), list->Get<int32_t>("base_id", 0, i),
                           list->Get("date", BTime(), i).seconds});
    }
    return backups;
}

std::vector<ListedBackup> MeantBackups(const std::vector<ListedBackup>& all,
                                       const std::string& text) {
    std::vector<ListedBackup> meant;
    const auto take = [&](auto fits) {
        std::copy_if(all.begin(), all.end(), std::back_inserter(meant), fits);
    };
    take([&](const ListedBackup& backup) { return backup.name == text; });
    if (!meant.empty()) return meant;
    const auto job = ParseJobId(text);
    take([&](const ListedBackup& backup) { return backup.jobId == job || backup.title == text; });
    return meant;
}

std::optional<ListedBackup> FindBackup(ServerConnection& server, const std::string& text,
                                       ExitCode* problem) {
    const auto all = ListBackups(server);
    if (!all) {
        *problem = Fail(kMoreServerSilent);
        return std::nullopt;
    }
    const auto meant = MeantBackups(*all, text);
    if (meant.size() == 1) return meant.front();
    if (meant.empty()) {
        *problem = Fail(kMoreCtlNoSuchBackup, text);
        return std::nullopt;
    }
    *problem = Fail(kMoreCtlSeveralBackups, text);
    for (const auto& backup : meant)
        std::fprintf(stderr, "    %s\n", BackupLine(backup).c_str());
    return std::nullopt;
}

std::string BackupLine(const ListedBackup& backup) {
    return Printable(backup.name) + "  " + DateWords(backup.date) + "  " +
           Padded(core::TextOf(core::JobTypeTextId(static_cast<int32_t>(backup.type))), 20) + "  " +
           Printable(backup.title);
}

nlohmann::ordered_json BackupJson(const ListedBackup& backup) {
    return {{"name", backup.name},
            {"job_id", backup.jobId},
            {"number", JobIdWords(backup.jobId)},
            {"type", JobTypeWords(static_cast<int32_t>(backup.type))},
            {"base_id", backup.baseId},
            {"date", backup.date},
            {"title", backup.title}};
}

}  // namespace ctl
