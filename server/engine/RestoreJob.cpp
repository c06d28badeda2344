#include "server/engine/RestoreJob.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "core/protocol/Texts.h"
#include "server/engine/CatalogueCount.h"
#include "server/engine/DiscOrder.h"
#include "server/engine/FrameCrew.h"
#include "server/engine/JobTotals.h"
#include "server/engine/SelectedBackups.h"

namespace server {

using archive::ReadMember;
using core::JobEnd;
using core::LineType;
namespace text = core::text;

// --- one backup ---------------------------------------------------------------------------------

class RestoreJob::Backup : private CatalogueVisitor {
public:
    Backup(RestoreJob& job, const OpenBackup& backup, const core::SelectionMatcher& matcher)
        : fJob(job),
          fRoot("/" + backup.info.name),
          fPath(job.fCatalogues.PathOf(backup.info.name)),
          fContent(backup.content),
          fCatalogue(backup.catalogue),
          fMatcher(matcher),
          fPlaces(job.fOrder.description.Get<BMessage>("selection", BMessage()), job.fDivert,
                  job.fCreateRoot, job.fConfig.roster.Volumes()),
          fCrew(ReadingThreads(backup.content, job.fConfig), backup.info.builtOn.size() + 1,
                [this] { Work(); }),
          fOrder(fCrew, fContent, fCatalogue) {
        if (fPlaces.Refused() > 0) {
            job.fReport.ErrorWords("Error: " + std::to_string(fPlaces.Refused()) +
                                   " redirections cannot be understood");
        }
    }

    void Run();

private:
    static constexpr size_t kNone = SIZE_MAX;
    // An entry to be made, a directory whose header is to be read (its place in fLate), or a hard
    // link of which it is to be read what it is a link to (its place in fLinks).
    struct Task {
        RestoreItem item;
        size_t late = kNone;
        size_t link = kNone;
    };
    struct Link {
        RestoreItem item;
        std::optional<ReadMember> header;
    };

    // A directory on the way down, made when something needs it.
    struct Directory {
        std::string path;  // "/Backup/Volume/…"
        CatalogueEntry entry;
        CatalogueDirectory place;
        bool taken = false;
        bool made = false, failed = false;
        std::shared_ptr<const RestoreTarget> target;
        std::string relative;
    };
    // One whose owner, rights and times are put back when nothing is made in it any more.
    struct Late {
        std::shared_ptr<const RestoreTarget> target;
        std::string relative, shown;
        CatalogueEntry entry;
        std::optional<ReadMember> header;
    };

    bool Enter(const std::string& path, const CatalogueEntry& entry,
               const CatalogueDirectory& directory, bool taken) override;
    void Entry(const std::string& directory, const CatalogueEntry& entry) override;
    bool MayGoOn() override { return !fJob.fFull && fJob.fControl.MayGoOn(); }

    std::shared_ptr<const RestoreTarget> TargetAt(const std::string& root, bool create);
    bool Resolve(Directory& directory);
    bool Make(Directory& directory);
    // Makes it, and what is missing above it, where it is not there.
    bool MakePath(const RestoreTarget& target, const std::string& relative, bool* isNew);
    Directory* DirectoryAt(const std::string& path);

    void Work();
    void Count(const RestoreItem& item, EntryRestorer::Outcome outcome);
    void ReadHeaderOf(EntryRestorer& restorer, size_t late);
    void ReadLink(EntryRestorer& restorer, size_t link);
    void LinkAll(EntryRestorer& restorer);
    void FinishDirectories();

    RestoreJob& fJob;
    const std::string fRoot, fPath;
    const BackupContent& fContent;
    CatalogueReader& fCatalogue;
    const core::SelectionMatcher& fMatcher;
    const core::RestorePlaces fPlaces;

    std::map<std::string, std::shared_ptr<const RestoreTarget>> fTargets;
    std::set<std::string> fMissingVolumes;
    std::vector<Directory> fWay;  // from the top to the directory at hand
    std::vector<bool> fRestored;  // by the entry's id; guarded by fMutex

    std::mutex fMutex;
    std::deque<Late> fLate;
    std::deque<Link> fLinks;
    FrameCrew<Task> fCrew;
    DiscOrder<Task> fOrder;
};

void RestoreJob::Backup::Run() {
    std::thread counting([this] {
        auto catalogue = CatalogueReader::Open(fPath);
        if (!catalogue) return;
        CatalogueCount counter(fJob.fReport,
                               [this] { return !fJob.fFull && !fJob.fControl.IsAborted(); });
        std::ignore = CatalogueWalk(*catalogue, fMatcher, fJob.fRules).Run(fRoot, counter);
    });
    CatalogueWalk walk(fCatalogue, fMatcher, fJob.fRules);
    const kit::Status walked = walk.Run(fRoot, *this);
    fOrder.Finish();
    counting.join();
    TellUnread(walk, walked, fJob.fReport);

    EntryRestorer restorer(fContent, fCatalogue, fJob.fReport, fJob.fControl, fJob.fLosses,
                           fJob.fOverwrite);
    LinkAll(restorer);
    FinishDirectories();
}

// --- directories --------------------------------------------------------------------------------

RestoreJob::Backup::Directory* RestoreJob::Backup::DirectoryAt(const std::string& path) {
    while (!fWay.empty() && fWay.back().path != path)
        fWay.pop_back();
    return fWay.empty() ? nullptr : &fWay.back();
}

bool RestoreJob::Backup::Enter(const std::string& path, const CatalogueEntry& entry,
                               const CatalogueDirectory& place, bool taken) {
    const std::string above = path.substr(0, path.rfind('/'));
    Directory* parent = DirectoryAt(above);
    if (parent && parent->failed) return false;
    Directory directory;
    directory.path = path;
    directory.entry = entry;
    directory.place = place;
    directory.taken = taken;
    fWay.push_back(std::move(directory));
    if (!Resolve(fWay.back())) return !fWay.back().failed;
    if (taken) {
        ++fJob.fTaken;
        if (place.count > 0 || fJob.fCreateEmpty) Make(fWay.back());
    }
    return !fWay.back().failed;
}

// Where it goes. False: nowhere (it is only a step on the way), or that cannot be had.
bool RestoreJob::Backup::Resolve(Directory& directory) {
    const auto place = fPlaces.Of(directory.path);
    if (!place) {
        const std::string volume(FirstPart(WithoutBackup(directory.path)));
        if (!volume.empty() && fMissingVolumes.insert(volume).second &&
            !fPlaces.HasRedirections()) {
            fJob.fReport.Error(text::kTargetNotCreated, {"/" + volume},
                               "There is no such volume here.");
        }
        directory.failed = !fPlaces.HasRedirections();
        return false;
    }
    directory.target = TargetAt(place->root, place->redirected);
    directory.relative = place->relative;
    directory.failed = !directory.target;
    return !directory.failed;
}

std::shared_ptr<const RestoreTarget> RestoreJob::Backup::TargetAt(const std::string& root,
                                                                  bool create) {
    const auto known = fTargets.find(root);
    if (known != fTargets.end()) return known->second;
    std::shared_ptr<const RestoreTarget> target;
    if (auto opened = RestoreTarget::Open(root, create)) {
        target = std::make_shared<RestoreTarget>(std::move(*opened));
    } else {
        fJob.fReport.Error(text::kTargetNotCreated, {root}, opened.error().Text());
    }
    fTargets.emplace(root, target);
    return target;
}

bool RestoreJob::Backup::Make(Directory& directory) {
    if (directory.made) return true;
    if (directory.failed) return false;
    directory.made = true;
    // What is above it on the way gets what the backup knows of it too.
    const size_t at = static_cast<size_t>(&directory - fWay.data());
    if (at > 0 && fWay[at - 1].target == directory.target && !Make(fWay[at - 1])) {
        directory.failed = true;
        return false;
    }
    bool isNew = false;
    if (!MakePath(*directory.target, directory.relative, &isNew)) {
        directory.failed = true;
        return false;
    }
    fJob.fReport.Words(LineType::Directory, WithoutBackup(directory.path));
    // What was there keeps what it is, but for what the user marked. A target as such is his own.
    if ((!isNew && !directory.taken) || directory.relative.empty()) return true;
    Late late{
        directory.target, directory.relative, WithoutBackup(directory.path), directory.entry, {}};
    late.entry.frame = directory.place.frame;
    late.entry.offset = directory.place.offset;
    Task task;
    task.item.entry = late.entry;
    {
        std::lock_guard lock(fMutex);
        task.late = fLate.size();
        fLate.push_back(std::move(late));
    }
    // The stream has nothing of a volume.
    const int64_t frame = task.item.entry.frame;
    if (frame >= 0) fOrder.Add(frame, std::move(task));
    return true;
}

bool RestoreJob::Backup::MakePath(const RestoreTarget& target, const std::string& relative,
                                  bool* isNew) {
    if (relative.empty()) return true;
    const size_t slash = relative.rfind('/');
    const std::string above = slash == std::string::npos ? "" : relative.substr(0, slash);
    const std::string name = relative.substr(slash + 1);
    auto parent = target.OpenDirectory(above);
    if (!parent && parent.error().code == ENOENT) {
        bool ignored = false;
        if (!MakePath(target, above, &ignored)) return false;
        parent = target.OpenDirectory(above);
    }
    int code = parent ? 0 : parent.error().code;
    for (int tries = 2; code == 0 && tries > 0; --tries) {
        if (::mkdirat(parent->Get(), name.c_str(), 0777) == 0) {
            *isNew = true;
            return true;
        }
        code = errno;
        struct stat there;
        if (code != EEXIST ||
            ::fstatat(parent->Get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
            break;
        }
        if (S_ISDIR(there.st_mode)) return true;
        // Something else has the name.
        const WayIs way = ClearTheWay(parent->Get(), name, target.PathOf(relative), fJob.fOverwrite,
                                      INT64_MAX, fJob.fReport);
        if (way == WayIs::Blocked) return false;
        if (way == WayIs::Free) {
            code = 0;
            if (fJob.fOverwrite == Overwrite::Yes || fJob.fOverwrite == Overwrite::OnlyOlder)
                ::unlinkat(parent->Get(), name.c_str(), 0);
        }
    }
    if (code == ENOSPC || code == EDQUOT) {
        fJob.fFull = true;
        return false;
    }
    KTReportLine line;
    line.AddString(target.PathOf(relative));
    line.AddInt32(code);
    fJob.fReport.Line(LineType::Error, text::kDirectoryNotCreated, std::move(line));
    fJob.fReport.Words(LineType::Detail,
                       std::string(std::strerror(code)) + ". Nothing below it is restored.");
    return false;
}

// --- everything else ----------------------------------------------------------------------------

void RestoreJob::Backup::Entry(const std::string& directory, const CatalogueEntry& entry) {
    ++fJob.fTaken;
    Directory* parent = DirectoryAt(directory);
    if (!parent || parent->failed) return;
    RestoreItem item;
    item.path = WithoutBackup(directory) + "/" + entry.name;
    const auto place =
        fPlaces.HasRedirections() ? fPlaces.Of(directory + "/" + entry.name) : std::nullopt;
    if (place && (!parent->target || place->root != parent->target->Path() ||
                  place->relative !=
                      (parent->relative.empty() ? "" : parent->relative + "/") + entry.name)) {
        // This one goes somewhere else than what is around it.
        const size_t slash = place->relative.rfind('/');
        item.directory = slash == std::string::npos ? "" : place->relative.substr(0, slash);
        item.name = place->relative.substr(slash + 1);
        item.target = TargetAt(place->root, place->redirected);
        bool ignored = false;
        if (!item.target || !MakePath(*item.target, item.directory, &ignored)) return;
    } else {
        if (!parent->target || !Make(*parent)) return;
        item.target = parent->target;
        item.directory = parent->relative;
        item.name = entry.name;
    }
    item.entry = entry;
    Task task;
    if (entry.link != 0) {
        const std::lock_guard lock(fMutex);
        task.link = fLinks.size();
        fLinks.push_back({std::move(item), {}});
    } else {
        task.item = std::move(item);
    }
    fOrder.Add(entry.frame, std::move(task));
}

void RestoreJob::Backup::Work() {
    auto catalogue = CatalogueReader::Open(fPath);
    std::unique_ptr<EntryRestorer> restorer;
    if (catalogue) {
        restorer = std::make_unique<EntryRestorer>(fContent, *catalogue, fJob.fReport,
                                                   fJob.fControl, fJob.fLosses, fJob.fOverwrite);
    } else {
        fJob.fReport.Error(text::kNoDatabase, {}, catalogue.error().Text());
    }
    while (const auto bundle = fCrew.Next()) {
        for (const Task& task : *bundle) {
            if (!restorer || !MayGoOn()) break;
            if (task.late != kNone) {
                ReadHeaderOf(*restorer, task.late);
            } else if (task.link != kNone) {
                ReadLink(*restorer, task.link);
            } else {
                Count(task.item, restorer->Restore(task.item));
            }
        }
    }
}

void RestoreJob::Backup::ReadHeaderOf(EntryRestorer& restorer, size_t number) {
    CatalogueEntry entry;
    std::string shown;
    {
        std::lock_guard lock(fMutex);
        entry = fLate[number].entry;
        shown = fLate[number].shown;
    }
    auto header = restorer.ReadHeader(entry, entry.frame, entry.offset);
    if (!header) {
        if (header.error().kind == kit::ErrorKind::Aborted) return;
        fJob.fReport.ErrorWords("Error: can't read the attributes of directory '" + shown + "'",
                                header.error().Text());
        return;
    }
    std::lock_guard lock(fMutex);
    fLate[number].header = std::move(*header);
}

void RestoreJob::Backup::ReadLink(EntryRestorer& restorer, size_t number) {
    CatalogueEntry entry;
    {
        const std::lock_guard lock(fMutex);
        entry = fLinks[number].item.entry;
    }
    auto header = restorer.ReadHeader(entry, entry.frame, entry.offset);
    if (!header) return;  // told when it is to be made
    const std::lock_guard lock(fMutex);
    fLinks[number].header = std::move(*header);
}

void RestoreJob::Backup::Count(const RestoreItem& item, EntryRestorer::Outcome outcome) {
    using Outcome = EntryRestorer::Outcome;
    switch (outcome) {
        case Outcome::Done:
            ++fJob.fFiles;
            fJob.fBytes += DataSize(item.entry);
            fJob.fReport.Words(LineType::File, item.path);
            if (item.entry.incomplete) {
                fJob.fReport.Words(LineType::Detail,
                                   item.path + ": was not complete when it was saved");
            }
            break;
        case Outcome::Kept:
            ++fJob.fKept;
            fJob.fReport.Words(LineType::Detail, item.path + ": is there and stays as it is");
            fJob.fReport.AddDone(0, DataSize(item.entry));
            break;
        case Outcome::TargetFull:
            if (!fJob.fFull.exchange(true)) {
                fJob.fReport.Error(text::kDestinationFull, {item.target->PathOf(item.directory)});
            }
            break;
        case Outcome::Failed:
        case Outcome::Aborted:
            break;
    }
    fJob.fReport.AddDone(1, 0);
    fJob.fReport.Tick(item.path);
    if (outcome != Outcome::Done) return;
    std::lock_guard lock(fMutex);
    const auto id = static_cast<size_t>(item.entry.id);
    // Ids count the entries; a catalogue that claims another is only not believed.
    if (id < size_t{1} << 31 && fRestored.size() <= id) fRestored.resize(id + 1);
    fRestored[id] = true;
}

// --- the end ------------------------------------------------------------------------------------

void RestoreJob::Backup::LinkAll(EntryRestorer& restorer) {
    // The first name of each that is there by now.
    std::map<int32_t, RestoreItem> firsts;
    for (auto& [item, header] : fLinks) {
        if (!MayGoOn()) return;
        const int32_t id = item.entry.link;
        auto first = firsts.find(id);
        if (first == firsts.end()) {
            // The stream names the first one by its path; the catalogue must know the same.
            const auto entry = fCatalogue.EntryAt(id);
            if (!header || !entry || S_ISDIR(entry->mode)) {
                fJob.fReport.Error(text::kNotReadFromBackup, {item.path});
                fJob.fReport.AddDone(1, 0);
                continue;
            }
            const auto found = fCatalogue.Lookup(header->link);
            const bool known = found && found->id == id;
            const std::string path = fRoot + "/" + header->link;
            const auto place = known ? fPlaces.Of(path) : std::nullopt;
            if (place && static_cast<size_t>(id) < fRestored.size() &&
                fRestored[static_cast<size_t>(id)]) {
                RestoreItem other;
                other.entry = *entry;
                other.target = TargetAt(place->root, place->redirected);
                const size_t slash = place->relative.rfind('/');
                other.directory =
                    slash == std::string::npos ? "" : place->relative.substr(0, slash);
                other.name = place->relative.substr(slash + 1);
                if (other.target) first = firsts.emplace(id, std::move(other)).first;
            }
            if (first == firsts.end()) {
                // Not restored itself: this one takes its content and is the first from here on.
                item.entry.frame = entry->frame;
                item.entry.offset = entry->offset;
                const auto outcome = restorer.Restore(item);
                Count(item, outcome);
                if (outcome == EntryRestorer::Outcome::Done) firsts.emplace(id, item);
                continue;
            }
        }
        auto outcome = restorer.Link(item, first->second);
        if (outcome == EntryRestorer::Outcome::Failed) {
            const auto entry = fCatalogue.EntryAt(id);
            item.entry.frame = entry ? entry->frame : -1;
            item.entry.offset = entry ? entry->offset : 0;
            outcome = restorer.Restore(item);
        }
        Count(item, outcome);
    }
}

void RestoreJob::Backup::FinishDirectories() {
    MetadataWriter metadata(fJob.fReport, fJob.fLosses);
    // From the inside out: what is done in one changes the time of the one above.
    for (auto late = fLate.rbegin(); late != fLate.rend(); ++late) {
        if (!late->header) {
            late->header.emplace();
            late->header->type = archive::TarType::Directory;
            late->header->mode = late->entry.mode & 07777;
            late->header->uid = late->entry.uid;
            late->header->gid = late->entry.gid;
            const int64_t second = 1'000'000'000;
            const int64_t rest = (late->entry.modified % second + second) % second;
            late->header->seconds = (late->entry.modified - rest) / second;
            late->header->nanoseconds = static_cast<uint32_t>(rest);
        }
        const auto directory = late->target->OpenDirectory(late->relative);
        if (!directory) {
            fJob.fReport.ErrorWords(
                "Error: can't set the attributes of directory '" + late->shown + "'",
                directory.error().Text());
            continue;
        }
        metadata.Apply(directory->Get(), *late->header, late->shown);
    }
}

// --- the job ------------------------------------------------------------------------------------

RestoreJob::RestoreJob(const JobOrder& order, const EngineConfig& config,
                       CatalogueStore& catalogues, JobReport& report, JobControl& control)
    : fOrder(order), fConfig(config), fCatalogues(catalogues), fReport(report), fControl(control) {
    const BMessage settings = order.description.Get<BMessage>("restore", BMessage());
    const auto isOn = [&](const char* name) { return settings.Get<int32_t>(name, 0) != 0; };
    fCreateEmpty = isOn("createemptydirs");
    fCreateRoot = isOn("createroot");
    fDivert = isOn("divert");
    const int32_t overwrite = settings.Get<int32_t>("overwrite", 0);
    if (overwrite > 0 && overwrite <= static_cast<int32_t>(Overwrite::Yes) &&
        !isOn("askoverwrite")) {
        fOverwrite = static_cast<Overwrite>(overwrite);
    }
}

void RestoreJob::TellSettings() {
    const std::string title = fOrder.title.empty() ? "- no title -" : fOrder.title;
    fReport.Line(LineType::Heading, text::kStartingRestore, {title});
    fReport.Line(LineType::Heading, text::kStartIs,
                 {LocalTimeText(fConfig.now ? fConfig.now() : std::time(nullptr))});
    static constexpr int32_t kOverwriteTexts[] = {text::kOverwriteNo, text::kOverwriteOlder,
                                                  text::kOverwriteRename, text::kOverwriteYes};
    fReport.Line(LineType::Heading, kOverwriteTexts[static_cast<size_t>(fOverwrite)]);
    const BMessage settings = fOrder.description.Get<BMessage>("restore", BMessage());
    if (settings.Get<int32_t>("askoverwrite", 0) != 0) {
        fReport.Words(LineType::Heading,
                      "There is nobody to ask before overwriting: what is there stays as it is.");
    }
    fReport.Line(LineType::Heading,
                 fCreateEmpty ? text::kEmptyDirectoriesYes : text::kEmptyDirectoriesNo);
    fReport.Line(LineType::Heading, fCreateRoot ? text::kRootDirectoryYes : text::kRootDirectoryNo);
}

JobEnd RestoreJob::Run() {
    TellSettings();
    fRules = SelectionRules(fOrder, fReport);
    const core::SelectionMatcher matcher(fRules);
    ForEachSelectedBackup(fRules, fOrder, fConfig, fCatalogues, fReport, fControl, Chain::Whole,
                          [&](const OpenBackup& backup) {
                              Backup(*this, backup, matcher).Run();
                              return !fFull && fControl.MayGoOn();
                          });
    return Ended();
}

JobEnd RestoreJob::Ended() {
    const bool aborted = fControl.IsAborted();
    if (!aborted && fTaken == 0) fReport.Error(text::kNothingToRestore, {});
    const auto sum = [this](int64_t count, const char* what) {
        if (count > 0) {
            fReport.ErrorWords("Error: " + std::to_string(count) + " " + what +
                               " could not be restored");
        }
    };
    sum(fLosses.owners, "owners");
    sum(fLosses.rights, "rights");
    sum(fLosses.attributes, "extended attributes");
    sum(fLosses.times, "times");
    fReport.TellProgress("");
    TellTotals(fReport, fFiles, fBytes, kRestoreTexts);
    if (fKept > 0) {
        fReport.Words(LineType::Totals, "Left as they were:\t\t" + std::to_string(fKept.load()));
    }
    if (aborted) {
        fReport.Line(LineType::Totals, text::kRestoreAborted);
        return JobEnd::Aborted;
    }
    if (fReport.Errors() > 0) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tRestore ended with errors!");
        return JobEnd::Errors;
    }
    fReport.Line(LineType::Totals, text::kRestoreGood);
    return JobEnd::Good;
}

}  // namespace server
