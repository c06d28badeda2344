#include "server/engine/CompareJob.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>

#include "core/protocol/Texts.h"
#include "server/engine/CatalogueCount.h"
#include "server/engine/CatalogueWalk.h"
#include "server/engine/DiscOrder.h"
#include "server/engine/EntryComparer.h"
#include "server/engine/FrameCrew.h"
#include "server/engine/JobTotals.h"
#include "server/engine/NewOnDisk.h"
#include "server/engine/OwnFiles.h"
#include "server/engine/SavedSelection.h"

namespace server {

using core::JobEnd;
using core::LineType;
namespace text = core::text;

// --- one backup ---------------------------------------------------------------------------------

class CompareJob::Backup : private CatalogueVisitor {
public:
    Backup(CompareJob& job, const OpenBackup& backup, const core::SelectionMatcher& matcher)
        : fJob(job),
          fRoot("/" + backup.info.name),
          fPath(job.fCatalogues.PathOf(backup.info.name)),
          fContent(backup.content),
          fCatalogue(backup.catalogue),
          fMatcher(matcher),
          fSaved(backup.catalogue),
          fVolumes(job.fConfig.roster.Volumes()),
          fCrew(ReadingThreads(backup.content, job.fConfig), backup.info.builtOn.size() + 1,
                [this] { Work(); }),
          fOrder(fCrew, fContent, fCatalogue) {}

    void Run();

private:
    bool Enter(const std::string& path, const CatalogueEntry& entry,
               const CatalogueDirectory& place, bool taken) override;
    void Entry(const std::string& directory, const CatalogueEntry& entry) override;
    bool MayGoOn() override { return fJob.fControl.MayGoOn(); }

    CompareItem ItemOf(const std::string& path, const CatalogueEntry& entry) const;
    // Opens it; what is not there is told.
    void EnterVolume(const std::string& path);
    void Work();
    void Compare(EntryComparer& comparer, CompareItem item);
    // Each with the place of what it is a link to.
    void CompareLinks(const std::function<void(CompareItem)>& compare);

    CompareJob& fJob;
    const std::string fRoot, fPath;
    const BackupContent& fContent;
    CatalogueReader& fCatalogue;
    const core::SelectionMatcher& fMatcher;
    const SavedSelection fSaved;
    const std::vector<BVolume> fVolumes;

    std::shared_ptr<const RestoreTarget> fVolume;  // the one that the walk is in; null: not there
    std::vector<CompareItem> fLinks;
    std::mutex fMutex;
    std::map<int32_t, DiskNode> fShared;  // nodes with several names, by the entry; of fMutex
    FrameCrew<CompareItem> fCrew;
    DiscOrder<CompareItem> fOrder;
};

void CompareJob::Backup::Run() {
    std::thread beside([this] {
        const auto mayGoOn = [this] { return !fJob.fControl.IsAborted(); };
        auto catalogue = CatalogueReader::Open(fPath);
        if (!catalogue) return;
        CatalogueCount counter(fJob.fReport, mayGoOn);
        std::ignore = CatalogueWalk(*catalogue, fMatcher, fJob.fRules).Run(fRoot, counter);
        NewOnDisk found(*catalogue, fSaved, fRoot, fJob.fRules, fJob.fReport, fJob.fControl);
        found.Look(fVolumes, OwnFilesOf(fContent.Volume(), fJob.fConfig));
        fJob.fDifferent += found.Count();
        fJob.fUnreadable += found.Unread();
    });
    CatalogueWalk walk(fCatalogue, fMatcher, fJob.fRules);
    const kit::Status walked = walk.Run(fRoot, *this);
    const bool needsDiscs = fOrder.NeedsDiscs();
    // Behind what they are links to, on the disc on which that is.
    const auto later = [this](CompareItem item) {
        const int64_t frame = item.entry.frame;
        fOrder.Add(frame, std::move(item));
    };
    if (needsDiscs) CompareLinks(later);
    fOrder.Finish();
    TellUnread(walk, walked, fJob.fReport);
    EntryComparer comparer(fContent, fCatalogue, fJob.fItems, fJob.fReport, fJob.fControl);
    if (!needsDiscs) CompareLinks([&](const CompareItem& item) { Compare(comparer, item); });
    beside.join();
}

// --- the walk -----------------------------------------------------------------------------------

CompareItem CompareJob::Backup::ItemOf(const std::string& path, const CatalogueEntry& entry) const {
    CompareItem item;
    item.entry = entry;
    item.path = WithoutBackup(path);
    item.volume = fVolume;
    const std::string_view below = std::string_view(item.path).substr(item.path.find('/', 1) + 1);
    const size_t slash = below.rfind('/');
    item.directory = slash == std::string_view::npos ? "" : below.substr(0, slash);
    item.name = slash == std::string_view::npos ? below : below.substr(slash + 1);
    return item;
}

void CompareJob::Backup::EnterVolume(const std::string& path) {
    fVolume.reset();
    const std::string shown = WithoutBackup(path);
    const BVolume* volume = BVolumeRoster::ByName(fVolumes, shown.substr(1));
    if (!volume) {
        ++fJob.fUnreadable;
        fJob.fReport.Error(text::kSourceNoAccess, {shown}, "There is no such volume here.");
        return;
    }
    auto opened = RestoreTarget::Open(volume->mountPoint, false);
    if (opened) {
        fJob.fReport.Line(LineType::Volume, text::kLine, {volume->name});
        fVolume = std::make_shared<const RestoreTarget>(std::move(*opened));
    } else {
        ++fJob.fUnreadable;
        fJob.fReport.Error(text::kSourceNoAccess, {shown}, opened.error().Text());
    }
}

bool CompareJob::Backup::Enter(const std::string& path, const CatalogueEntry& entry,
                               const CatalogueDirectory& place, bool taken) {
    if (taken) ++fJob.fTaken;
    // What a volume's own directory is belongs to the system, not to what was saved of it.
    if (path.rfind('/') == fRoot.size()) {
        EnterVolume(path);
        return fVolume != nullptr;
    }
    CompareItem item = ItemOf(path, entry);
    item.entry.frame = place.frame;
    item.entry.offset = place.offset;
    const std::string below = item.directory + (item.directory.empty() ? "" : "/") + item.name;
    // One that is only on the way is told where it bars the way.
    const bool isThere = fVolume->OpenDirectory(below).ok();
    const bool counts = taken && fSaved.Includes(item.path);
    if (counts || !isThere) fOrder.Add(place.frame, std::move(item));
    return isThere;
}

void CompareJob::Backup::Entry(const std::string& directory, const CatalogueEntry& entry) {
    ++fJob.fTaken;
    CompareItem item = ItemOf(directory + "/" + entry.name, entry);
    if (entry.link != 0) {
        fLinks.push_back(std::move(item));
    } else {
        fOrder.Add(entry.frame, std::move(item));
    }
}

// --- the work -----------------------------------------------------------------------------------

void CompareJob::Backup::Work() {
    auto catalogue = CatalogueReader::Open(fPath);
    std::unique_ptr<EntryComparer> comparer;
    if (catalogue) {
        comparer = std::make_unique<EntryComparer>(fContent, *catalogue, fJob.fItems, fJob.fReport,
                                                   fJob.fControl);
    } else {
        fJob.fReport.Error(text::kNoDatabase, {}, catalogue.error().Text());
    }
    while (const auto bundle = fCrew.Next()) {
        for (const CompareItem& item : *bundle) {
            if (!comparer || !MayGoOn()) break;
            Compare(*comparer, item);
        }
    }
}

void CompareJob::Backup::Compare(EntryComparer& comparer, CompareItem item) {
    using Outcome = EntryComparer::Outcome;
    if (item.entry.link != 0) {
        const std::lock_guard lock(fMutex);
        if (const auto known = fShared.find(item.entry.link); known != fShared.end())
            item.compared = known->second;
    }
    const Outcome outcome = comparer.Compare(item);
    if (outcome == Outcome::Aborted) return;
    const bool isDirectory = S_ISDIR(item.entry.mode);
    if (outcome == Outcome::Different) ++fJob.fDifferent;
    if (outcome == Outcome::Unreadable) ++fJob.fUnreadable;
    if (!isDirectory) {
        ++fJob.fFiles;
        if (fJob.fItems.data && outcome != Outcome::Unreadable) fJob.fBytes += DataSize(item.entry);
        fJob.fReport.AddDone(1, 0);
        if (const auto node = comparer.Shared(); node && outcome != Outcome::Unreadable) {
            const std::lock_guard lock(fMutex);
            fShared.emplace(item.entry.id, *node);
        }
    }
    if (outcome == Outcome::Same) {
        fJob.fReport.Words(isDirectory ? LineType::Directory : LineType::File, item.path);
    } else if (item.entry.incomplete) {
        fJob.fReport.Words(LineType::Detail, item.path + ": was not complete when it was saved");
    }
    fJob.fReport.Tick(item.path);
}

// A further name is on disk of the node that was compared under the first, or of one of its own.
void CompareJob::Backup::CompareLinks(const std::function<void(CompareItem)>& compare) {
    for (CompareItem& item : fLinks) {
        if (!MayGoOn()) return;
        const auto first = fCatalogue.EntryAt(item.entry.link);
        if (!first || S_ISDIR(first->mode)) {
            ++fJob.fUnreadable;
            fJob.fReport.Error(text::kBackupFileHeaderUnreadable, {item.path});
            fJob.fReport.AddDone(1, 0);
            continue;
        }
        item.entry.frame = first->frame;
        item.entry.offset = first->offset;
        compare(std::move(item));
    }
}

// --- the job ------------------------------------------------------------------------------------

CompareJob::CompareJob(const JobOrder& order, const EngineConfig& config,
                       CatalogueStore& catalogues, JobReport& report, JobControl& control)
    : fOrder(order),
      fConfig(config),
      fCatalogues(catalogues),
      fReport(report),
      fControl(control),
      fItems(CompareItems::Of(order.description)) {}

JobEnd CompareJob::Run() {
    const std::string title = fOrder.title.empty() ? "- no title -" : fOrder.title;
    fReport.Line(LineType::Heading, text::kStartingCompare, {title});
    fReport.Line(LineType::Heading, text::kStartIs,
                 {LocalTimeText(fConfig.now ? fConfig.now() : std::time(nullptr))});
    fItems.Tell(fReport);
    fRules = SelectionRules(fOrder, fReport);
    const core::SelectionMatcher matcher(fRules);
    ForEachSelectedBackup(fRules, fOrder, fConfig, fCatalogues, fReport, fControl, Chain::Whole,
                          [&](const OpenBackup& backup) {
                              Backup(*this, backup, matcher).Run();
                              return fControl.MayGoOn();
                          });
    return Ended();
}

JobEnd CompareJob::Ended() {
    const bool aborted = fControl.IsAborted();
    if (!aborted && fTaken == 0) fReport.Error(text::kNothingToCompare, {});
    fReport.TellProgress("");
    TellTotals(fReport, fFiles, fBytes, kCompareTexts);
    fReport.Line(LineType::Totals, text::kMiscompared, Number(fDifferent));
    fReport.Line(LineType::Totals, text::kReadErrors, Number(fUnreadable));
    if (aborted) {
        fReport.Line(LineType::Totals, text::kCompareAborted);
        return JobEnd::Aborted;
    }
    if (fReport.Errors() > 0) {
        fReport.Line(LineType::Totals, text::kCompareErrors);
        return JobEnd::Errors;
    }
    fReport.Line(LineType::Totals, text::kCompareGood);
    return JobEnd::Good;
}

}  // namespace server
