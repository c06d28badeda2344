#include "server/catalogue/CatalogueDesk.h"

#include <algorithm>
#include <memory>
#include <tuple>

#include "core/protocol/Codes.h"
#include "server/archive/Format.h"
#include "server/engine/AddOns.h"
#include "server/engine/FoundBackup.h"
#include "server/engine/LockedBackup.h"
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
    auto removed = (*volume)->RemoveBackup(backup.Folder());
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

// A destination that is only looked at.
class ScanHost : public KTVolumeHost {
public:
    explicit ScanHost(const std::atomic<bool>& stopping) : fStopping(stopping) {}
    bool IsAborted() const override { return fStopping; }
    void Tell(const std::string&) override {}

private:
    const std::atomic<bool>& fStopping;
};

// What is said while there is no job that says it.
class Lines : public JobEvents {
public:
    void Line(core::LineType type, int32_t textId, KTReportLine arguments) override {
        chunk.Add(type, textId, arguments);
    }
    void SetProgress(const Progress&) override {}
    LineChunk chunk;
};

// Nobody pauses it.
class Unhurried : public JobControl {
public:
    explicit Unhurried(const std::atomic<bool>& stopping) : fStopping(stopping) {}
    bool MayGoOn() override { return !fStopping; }
    bool IsAborted() const override { return fStopping; }

private:
    const std::atomic<bool>& fStopping;
};

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
    auto question = std::make_shared<BMessage>(std::move(message));
    fScanning.Post([this, question] {
        BMessage answer = ScanNow(question->Get("name", std::string()),
                                  question->Get("settings", BMessage()), question->SourceTeam());
        if (auto id = question->Find<int32_t>("id")) answer.Add("id", *id);
        if (question->IsSourceWaiting()) {
            question->SendReply(std::move(answer));
            return;
        }
        fHost.Later([this, answer = std::move(answer), team = question->SourceTeam()] {
            fHost.Send(BMessenger(team, BMessenger::kApplication), answer);
        });
    });
}

// On the scanning worker.
BMessage CatalogueDesk::ScanNow(const std::string& addOn, const BMessage& settings,
                                int32_t client) {
    BMessage answer(core::code::kScanResult);
    if (addOn.empty()) return answer;  // nothing was chosen yet
    std::vector<std::string> problems;
    ScanHost host(fStopping);  // before the destination, so that it is there to the end
    const auto volume = LoadDestination(fAddOnFolder, addOn);
    if (!volume) {
        problems.push_back("The add-on '" + addOn + "' cannot be loaded. " + volume.error().Text());
    } else {
        (*volume)->SetHost(&host);
        (*volume)->SetSettings(settings);
        if (*(*volume)->MediaName() == '\0') return answer;
        const auto folders = BackupFolders(**volume);
        if (!folders)
            problems.push_back("The destination cannot be read. " + folders.error().Text());
        for (const std::string& folder : folders ? *folders : std::vector<std::string>()) {
            if (fStopping) break;
            const std::string name(*archive::BackupOfFolder(folder));
            // What is being made by a job of ours did not end unexpectedly.
            if (folder != name && fCatalogues.IsBeingMade(name)) continue;
            // The last one speaks for all.
            if (archive::DiscOfFolder(folder) > 0 &&
                (fCatalogues.Find(name) || std::ranges::binary_search(*folders, name))) {
                continue;
            }
            const auto found = LookAt(**volume, folder, fAddOnFolder);
            if (!found) {
                problems.push_back("'" + folder + "' cannot be inserted. " + found.error().Text());
                continue;
            }
            answer.Add("title", TitleOfFound(*found));
            answer.Add("ID", folder);
            answer.Add("date", BTime::FromSeconds(found->start));
            answer.Add("protected", int32_t{found->isProtected});
            answer.Add("known", int32_t{fCatalogues.Find(name).has_value()});
        }
    }
    if (!problems.empty()) {
        fHost.Later([this, problems, client] {
            LineChunk lines;
            for (const std::string& words : problems)
                lines.AddWords(core::LineType::Error, words);
            fReports.Write(
                {0, 0, static_cast<int32_t>(core::JobType::Insert), "Looking for backups", 0},
                std::move(lines), {.client = client});
        });
    }
    return answer;
}

void CatalogueDesk::OpenTree(const std::string& name,
                             std::shared_ptr<const archive::AgeIdentity> key, int32_t client) {
    const auto backup = fCatalogues.Find(name);
    if (!backup || !backup->isLocked) return;
    EngineConfig config;
    config.addOnFolder = fAddOnFolder;
    Lines lines;
    Unhurried control(fStopping);
    const bool opened = OpenLockedBackup(name, std::move(key), config, fCatalogues, lines, control);
    if (opened) fSearching.Post([this, name] { fSearch.Prepare(name); });
    if (lines.chunk.Count() == 0) return;
    fHost.Later([this, backup = *backup, client, chunk = std::move(lines.chunk)]() mutable {
        fReports.Write({0, 0, static_cast<int32_t>(core::JobType::Insert), backup.title, 0},
                       std::move(chunk), {.client = client});
    });
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
        if (!backup.IsBase()) continue;
        BMessage base(core::code::kJobRemoved);
        base.Add("job_id", backup.jobId);
        fHost.NotifyAll(base);
    }
    for (const auto& [name, backup] : now) {
        if (fKnown.contains(name)) continue;
        fHost.NotifyAll(fCatalogues.ListOne(name));
        fSearching.Post([this, name = name] { fSearch.Prepare(name); });
        if (!backup.IsBase()) continue;
        BMessage base(core::code::kJobInserted);
        AddToJobList(base, backup);
        fHost.NotifyAll(base);
    }
    fKnown = std::move(now);
}

}  // namespace server
