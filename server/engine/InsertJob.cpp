#include "server/engine/InsertJob.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <mutex>

#include "core/protocol/Texts.h"
#include "server/archive/Format.h"
#include "server/catalogue/CatalogueWriter.h"
#include "server/engine/AddOns.h"
#include "server/engine/BackupIndexer.h"
#include "server/engine/FoundBackup.h"
#include "server/engine/JobTotals.h"
#include "server/engine/VolumeHost.h"

namespace server {

using core::JobEnd;
using core::LineType;
using kit::ErrorKind;
namespace text = core::text;

namespace {

// Ids of other machines count like our own from there on: one that is out of all reason must not
// use up all that are left.
constexpr int32_t kHighestForeignId = 1 << 30;

}  // namespace

InsertJob::InsertJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                     JobReport& report, JobControl& control)
    : fOrder(order), fConfig(config), fCatalogues(catalogues), fReport(report), fControl(control) {}

JobEnd InsertJob::Run() {
    fReport.Line(LineType::Heading, text::kStartingInsert,
                 {fOrder.title.empty() ? "- no title -" : fOrder.title});
    fReport.Line(LineType::Heading, text::kStartIs,
                 {LocalTimeText(fConfig.now ? fConfig.now() : std::time(nullptr))});
    if (!InsertAll()) return JobEnd::Errors;
    fReport.TellProgress("");
    TellTotals(fReport, fFiles, fBytes, kInsertTexts);
    if (fControl.IsAborted()) {
        fReport.Line(LineType::Totals, text::kInsertAborted);
        return JobEnd::Aborted;
    }
    if (fReport.Errors() > 0) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tInsert ended with errors!");
        return JobEnd::Errors;
    }
    fReport.Line(LineType::Totals, text::kInsertGood);
    return JobEnd::Good;
}

// What the job names, each once. Names begin with the time of the start: bases come before what is
// built on them.
std::vector<std::string> InsertJob::Folders() const {
    std::vector<std::string> folders;
    for (int32_t i = 0; i < fOrder.description.Count("ID"); ++i) {
        if (auto folder = fOrder.description.Find<std::string>("ID", i)) folders.push_back(*folder);
    }
    std::ranges::sort(folders);
    const auto twice = std::ranges::unique(folders);
    folders.erase(twice.begin(), twice.end());
    return folders;
}

bool InsertJob::InsertAll() {
    const auto folders = Folders();
    if (folders.empty()) {
        fReport.Error(text::kNothingToInsert, {});
        return false;
    }
    KTReportLine count;
    count.AddInt16(static_cast<int16_t>(std::min<size_t>(folders.size(), INT16_MAX)));
    fReport.Line(LineType::Heading, text::kBackupsToInsert, std::move(count));
    const std::string addOn = fOrder.description.Get<std::string>("addon", "KTImage");
    VolumeHost host(fReport, fControl);  // before the destination, so that it is there to the end
    auto volume = LoadDestination(fConfig.addOnFolder, addOn);
    if (!volume) {
        fReport.Error(
            volume.error().kind == ErrorKind::Damaged ? text::kAddOnCorrupt : text::kAddOnNotLoaded,
            {addOn}, volume.error().Text());
        return false;
    }
    (*volume)->SetHost(&host);
    (*volume)->SetSettings(fOrder.description.Get<BMessage>("volume", BMessage()));
    const std::string media = (*volume)->MediaName();
    if (media.empty()) {
        fReport.Error(text::kNoDestination, {});
        return false;
    }
    fReport.Line(LineType::Volume, text::kLine, {media});
    for (const std::string& folder : folders) {
        if (!fControl.MayGoOn()) break;
        Insert(**volume, folder);
    }
    return true;
}

void InsertJob::Insert(KTVolume& volume, const std::string& folder) {
    BackupInfo info;
    if (!LookAt(volume, folder, &info)) return;
    fReport.AddTotals(info.files, info.bytes);
    const bool isMade = info.isProtected ? Lock(volume, &info) : MakeCatalogue(volume, &info);
    if (!isMade) return;
    if (const auto adopted = Adopt(&info); !adopted) {
        ::unlink(fCatalogues.PathForNew(info.name).c_str());
        fReport.Error(text::kNoDatabase, {}, adopted.error().Text());
        return;
    }
    fFiles += info.files;
    fBytes += info.bytes;
    fReport.TellProgress("");
    for (const std::string& base : info.builtOn) {
        if (!fCatalogues.Find(base))
            fReport.Words(LineType::Heading, "It is built on '" + base +
                                                 "', which must be inserted, too, before anything "
                                                 "can be restored.");
    }
}

// What it is, and whether it may be inserted.
bool InsertJob::LookAt(KTVolume& volume, const std::string& folder, BackupInfo* info) {
    const auto name = archive::BackupOfFolder(folder);
    if (!name) {
        fReport.Error(text::kBackupMissing, {folder});
        return false;
    }
    if (const auto known = fCatalogues.Find(std::string(*name))) {
        fReport.Words(LineType::Heading, "The backup '" + known->name + "' (" + known->title +
                                             ") is in the catalogue already and is left alone.");
        return false;
    }
    if (fCatalogues.IsBeingMade(std::string(*name))) {
        fReport.ErrorWords("Error: backup '" + folder + "' is just being made");
        return false;
    }
    auto found = server::LookAt(volume, folder, fConfig.addOnFolder);
    if (!found) {
        const bool isMissing = found.error().kind == ErrorKind::NotFound;
        fReport.Error(isMissing ? text::kBackupMissing : text::kBackupHeaderUnreadable, {folder},
                      found.error().Text());
        return false;
    }
    *info = std::move(*found);
    volume.GetSettings(&info->volumeSettings);
    info->addon = info->volumeSettings.Get<std::string>("addon", "");
    info->mediaName = volume.MediaName();
    const auto space = volume.Space();
    info->isRemovable |= space && space->removable;
    fReport.Line(LineType::Heading, text::kInsertingBackup, {info->title, info->mediaName});
    if (!info->folder.empty()) {
        fReport.Error(text::kBackupEndedUnexpected, {}, "What is whole of it is inserted.");
    } else if (info->isLoose) {
        fReport.Error(text::kBackupHeaderUnreadable, {info->name},
                      "What is whole of its media is inserted without it.");
    }
    return true;
}

bool InsertJob::MakeCatalogue(KTVolume&, BackupInfo* info) {
    const auto content = BackupContent::Open(*info, fConfig, fOrder.keys, fReport, fControl);
    if (!content) {
        fReport.Error(text::kBackupHeaderUnreadable, {info->title}, content.error().Text());
        return false;
    }
    return BackupIndexer(fCatalogues, fReport, fControl).Run(**content, info);
}

// Its tree comes with its password ('ktpc'); until then it is in the list and nothing more.
bool InsertJob::Lock(KTVolume& volume, BackupInfo* info) {
    if (info->protection.keyFile.empty()) {
        fReport.ErrorWords("Error: '" + info->title + "' is protected, and its key is missing",
                           "Nobody can open it, with its password or without.");
        return false;
    }
    CatalogueOrigin origin;
    origin.chain = info->builtOn;
    origin.chain.push_back(info->name);
    auto writer = CatalogueWriter::Create(fCatalogues.PathForNew(info->name), origin);
    const auto written = writer ? (*writer)->Finish() : kit::Status(writer.error());
    if (!written) {
        fReport.Error(text::kLogNotWritten, {info->name}, written.error().Text());
        return false;
    }
    info->isLocked = true;
    fReport.Words(LineType::Heading,
                  "The backup is protected: its password opens its tree in the catalogue.");
    const std::string sealed = archive::kCatalogueFile + std::string(archive::kSealedSuffix);
    const auto files = volume.ListFiles(info->Folder());
    const bool isThere = files && std::ranges::any_of(*files, [&](const KTVolumeFile& file) {
                             return file.name == sealed;
                         });
    if (!isThere) {
        fReport.Words(LineType::Heading,
                      "Its own catalogue is missing: the whole backup is read when its password is "
                      "given.");
    }
    fReport.AddDone(info->files, info->bytes);
    return true;
}

// The ids that it had, where they are free; with it in the catalogue.
kit::Status InsertJob::Adopt(BackupInfo* info) {
    // Two inserts side by side may want the same ids.
    static std::mutex choosing;
    const std::lock_guard lock(choosing);
    if (info->builtOn.empty()) {
        info->type = core::JobType::Full;
        info->baseId = 0;
        info->jobId = SetIdOf(info->name, info->jobId);
    } else {
        if (info->type == core::JobType::Full) info->type = core::JobType::Incremental;
        info->baseId = SetIdOf(info->builtOn.front(), info->baseId);
        info->jobId = FreeId(info->jobId);
    }
    if (info->jobId == 0 || (!info->builtOn.empty() && info->baseId == 0))
        return kit::Error::Make(ErrorKind::TooLarge, info->name, "there are no more job numbers");
    return fCatalogues.Adopt(info->name, *info);
}

// The key of the set of a full backup: as long as one of the set is here, that one's.
int32_t InsertJob::SetIdOf(const std::string& full, int32_t wanted) const {
    for (const BackupInfo& backup : fCatalogues.Backups()) {
        if (backup.name == full) return backup.jobId;
        if (!backup.builtOn.empty() && backup.builtOn.front() == full) return backup.baseId;
    }
    return FreeId(wanted);
}

int32_t InsertJob::FreeId(int32_t wanted) const {
    const auto backups = fCatalogues.Backups();
    const bool isFree = wanted > 0 && wanted <= kHighestForeignId &&
                        std::ranges::none_of(backups, [&](const BackupInfo& backup) {
                            return backup.jobId == wanted || backup.baseId == wanted;
                        });
    return fOrder.number(isFree ? wanted : 0);
}

}  // namespace server
