#include "server/catalogue/CatalogueDesk.h"

#include <algorithm>
#include <memory>
#include <tuple>

#include "core/protocol/Codes.h"
#include "server/archive/Format.h"
#include "server/engine/AddOns.h"
#include "server/engine/SelectedBackups.h"
#include "server/queue/JobList.h"

namespace server {

namespace {

// Removes the files of a backup from where they lie.
kit::Status RemoveData(const std::string& addOnFolder, const BackupInfo& backup) {
    auto volume = LoadDestination(addOnFolder, backup.addon);
    if (!volume) return volume.error();
    (*volume)->SetSettings(backup.volumeSettings);
    if (auto access = (*volume)->CheckAccess(); !access) return access;
    auto removed = (*volume)->RemoveBackup(backup.name);
    if (!removed) {
        if (removed.error().kind != kit::ErrorKind::NotFound) return removed;
        // Cut short earlier it has the name of one that was never completed.
        auto rest = (*volume)->RemoveBackup(backup.name + std::string(archive::kPartialSuffix));
        if (!rest) return removed;
    }
    // Parts of it that lie in the same place; those on other discs stay there.
    const auto folders = (*volume)->ListBackups();
    if (!folders) return folders.error();
    for (const std::string& folder : *folders) {
        if (archive::BackupOfFolder(folder) != backup.name) continue;
        if (auto part = (*volume)->RemoveBackup(folder); !part) return part;
    }
    return {};
}

// Whether `other` cannot be restored without `backup`.
bool BuildsOn(const BackupInfo& other, const BackupInfo& backup) {
    return std::ranges::find(other.builtOn, backup.name) != other.builtOn.end();
}

}  // namespace

struct CatalogueDesk::Deletion {
    struct Problem {
        BackupInfo backup;
        std::string words;
    };
    std::vector<Problem> problems;
};

CatalogueDesk::CatalogueDesk(ServerHost& host, CatalogueStore& catalogues, ReportDesk& reports,
                             std::string addOnFolder)
    : fHost(host),
      fCatalogues(catalogues),
      fReports(reports),
      fAddOnFolder(std::move(addOnFolder)),
      fSearch(catalogues, [this](const std::string& name, const kit::Error& error) {
          fHost.Later([this, name, error] { TellDamage(name, error); });
      }) {
    for (auto& backup : fCatalogues.Backups())
        fKnown.emplace(backup.name, backup);
}

void CatalogueDesk::List(BMessage& message) {
    if (!message.IsSourceWaiting()) return;
    auto question = std::make_shared<BMessage>(std::move(message));
    fReading.Post([this, question] {
        const auto path = question->Get("path", std::string("/"));
        auto list = fCatalogues.List(path, question->Find<int32_t>("index"));
        if (list) {
            question->SendReply(std::move(*list));
            return;
        }
        question->SendReply(core::code::kNone);
        const std::string name(FirstPart("/" + path.substr(path.find_first_not_of('/'))));
        fHost.Later([this, name, error = list.error()] { TellDamage(name, error); });
    });
}

void CatalogueDesk::Find(BMessage& message) {
    if (!message.IsSourceWaiting()) return;
    auto question = std::make_shared<BMessage>(std::move(message));
    fSearching.Post([this, question] {
        question->SendReply(fSearch.Find(question->Get("text", std::string()),
                                         question->Get("max", EntrySearch::kUsual)));
    });
}

void CatalogueDesk::TellDamage(const std::string& name, const kit::Error& error) {
    const auto backup = fKnown.find(name);
    if (error.kind != kit::ErrorKind::Damaged || backup == fKnown.end() ||
        !fDamaged.insert(name).second) {
        return;
    }
    Report(backup->second, "The catalogue of the backup '" + name + "' is damaged. " +
                               error.Text() + ". Its files can still be restored by hand.");
}

void CatalogueDesk::Report(const BackupInfo& backup, const std::string& words, int32_t client) {
    LineChunk lines;
    lines.AddWords(core::LineType::Error, words);
    fReports.Write({0, 0, static_cast<int32_t>(backup.type), backup.title, 0}, std::move(lines),
                   {.client = client});
}

void CatalogueDesk::Scan(BMessage& message) {
    // Inserting backups from a medium is not part of this version: nothing is found.
    BMessage answer(core::code::kScanResult);
    if (auto id = message.Find<int32_t>("id")) answer.Add("id", *id);
    if (message.IsSourceWaiting()) {
        message.SendReply(std::move(answer));
    } else {
        fHost.Send(BMessenger(message.SourceTeam(), BMessenger::kApplication), std::move(answer));
    }
}

void CatalogueDesk::Delete(BMessage& message) {
    std::vector<std::string> names;
    std::vector<bool> withData;
    for (int32_t i = 0; i < message.Count("name"); ++i) {
        const auto name = message.Find<std::string>("name", i);
        if (!name || std::find(names.begin(), names.end(), *name) != names.end()) continue;
        names.push_back(*name);
        withData.push_back(message.Get<int32_t>("full", 0, i) != 0);
    }
    if (names.empty()) return;
    fDeleting.Post([this, names, withData, client = message.SourceTeam()] {
        auto done = DeleteNow(names, withData);
        fHost.Later([this, done, client] {
            TellChanges();
            for (const auto& [backup, words] : done.problems)
                Report(backup, words, client);
        });
    });
}

// On the deleting worker.
CatalogueDesk::Deletion CatalogueDesk::DeleteNow(const std::vector<std::string>& names,
                                                 const std::vector<bool>& withData) {
    Deletion done;
    // The newest go first, so that what is left, if this is cut short, still has all it builds on.
    std::vector<BackupInfo> left = fCatalogues.Backups();
    std::vector<std::pair<BackupInfo, bool>> wanted;
    for (const auto& backup : left) {
        const auto at = std::find(names.begin(), names.end(), backup.name);
        if (at == names.end()) continue;
        wanted.emplace_back(backup, withData[static_cast<size_t>(at - names.begin())]);
    }
    std::sort(wanted.begin(), wanted.end(), [](const auto& a, const auto& b) {
        return std::tie(a.first.start, a.first.jobId) > std::tie(b.first.start, b.first.jobId);
    });
    for (const auto& [backup, data] : wanted) {
        const auto problem = [&, &info = backup](const std::string& words) {
            done.problems.push_back(
                {info, "The backup '" + info.name + "' was not deleted: " + words});
        };
        const auto needed =
            std::find_if(left.begin(), left.end(),
                         [&, &info = backup](const auto& other) { return BuildsOn(other, info); });
        if (needed != left.end()) {
            problem("'" + needed->name + "' is built on it.");
            continue;
        }
        auto removal = fCatalogues.BeginRemoval(backup.name);
        if (!removal) {
            // Gone meanwhile is as good; the clients were told by whoever removed it.
            if (removal.error().kind != kit::ErrorKind::NotFound)
                problem("a job that is running uses it.");
            continue;
        }
        if (data) {
            if (auto removed = RemoveData(fAddOnFolder, backup); !removed) {
                problem("its data cannot be deleted. " + removed.error().Text());
                continue;
            }
        }
        if (auto removed = removal->Finish(); !removed) {
            if (fCatalogues.Find(backup.name)) {
                problem(removed.error().Text());
                continue;
            }
            done.problems.push_back({backup, "The backup '" + backup.name +
                                                 "' was deleted, but may be listed again after a "
                                                 "power failure: " +
                                                 removed.error().Text()});
        }
        if (data && !backup.manifest.empty()) {
            done.problems.push_back({backup, "The backup '" + backup.name +
                                                 "' was deleted. On its other discs remain its "
                                                 "parts, which can be deleted by hand."});
        }
        std::erase_if(left,
                      [&, &info = backup](const auto& other) { return other.name == info.name; });
    }
    return done;
}

void CatalogueDesk::TellChanges() {
    std::map<std::string, BackupInfo> now;
    for (auto& backup : fCatalogues.Backups())
        now.emplace(backup.name, backup);
    for (const auto& [name, backup] : fKnown) {
        if (now.contains(name)) continue;
        BMessage gone(core::code::kBackupRemoved);
        gone.Add("name", name);
        fHost.NotifyAll(gone);
        fReports.BackupDeleted(backup.jobId);
        if (backup.type != core::JobType::Full) continue;
        BMessage base(core::code::kJobRemoved);
        base.Add("job_id", backup.jobId);
        fHost.NotifyAll(base);
    }
    for (const auto& [name, backup] : now) {
        if (fKnown.contains(name)) continue;
        fHost.NotifyAll(fCatalogues.ListOne(name));
        fSearching.Post([this, name = name] { fSearch.Prepare(name); });
        if (backup.type != core::JobType::Full) continue;
        BMessage base(core::code::kJobInserted);
        AddToJobList(base, backup);
        fHost.NotifyAll(base);
    }
    fKnown = std::move(now);
}

}  // namespace server
