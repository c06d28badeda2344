#include "server/engine/BackupJob.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <thread>
#include <utility>

#include "addons/KTZstd/ZstdContext.h"
#include "core/protocol/Texts.h"
#include "core/selection/KTSelection.h"
#include "kit/support/UniqueFd.h"
#include "server/archive/Format.h"
#include "server/engine/JobTotals.h"
#include "server/engine/OwnFiles.h"
#include "server/engine/SourceScan.h"
#include "server/queue/JobDescription.h"

namespace server {

using archive::BackupWriter;
using core::JobEnd;
using core::LineType;
using kit::ErrorKind;
using kit::Status;
namespace text = core::text;

namespace {

constexpr int64_t kMegabyte = 1048576;
constexpr size_t kMostSelection = size_t{1} << 20;  // bytes of rules in a manifest
constexpr int kCatalogueLevel = 3;

std::string HostName() {
    char name[256] = {};
    ::gethostname(name, sizeof(name) - 1);
    return name;
}

// An incremental or differential backup has the protection of its set.
std::optional<archive::Protection> ProtectionFor(const JobOrder& order, const BaseBackup* base) {
    if (!base) return description::ProtectionOf(order.description);
    if (!base->Info().isProtected) return std::nullopt;
    return base->Info().protection;
}

}  // namespace

kit::Result<std::unique_ptr<BaseBackup>> BaseBackup::Find(CatalogueStore& catalogues, int32_t setId,
                                                          core::JobType type) {
    const auto missing = [](const std::string& name) {
        return kit::Error::Make(ErrorKind::NotFound, name);
    };
    std::optional<BackupInfo> chosen;
    for (const BackupInfo& backup : catalogues.Backups()) {  // newest first
        const bool isFull = backup.type == core::JobType::Full;
        if ((isFull ? backup.jobId : backup.baseId) != setId || setId == 0) continue;
        if (!isFull && type == core::JobType::Differential) continue;
        if (backup.IsCut()) continue;
        chosen = backup;
        break;
    }
    if (!chosen) return missing("job " + std::to_string(setId));
    if (chosen->isLocked) return kit::Error::Make(ErrorKind::Denied, chosen->name, "is locked");
    auto catalogue = CatalogueReader::Open(catalogues.PathOf(chosen->name));
    if (!catalogue) return catalogue.error();
    auto origin = catalogue->Origin();
    if (!origin) return origin.error();
    // Where the catalogue was made anew nobody knows any more what was selected.
    if (origin->rules.empty())
        return kit::Error::Make(ErrorKind::Unsupported, chosen->name, "what to save is not known");
    if (origin->chain.back() != chosen->name)
        return kit::Error::Make(ErrorKind::Damaged, chosen->name, "chain");
    auto base =
        std::unique_ptr<BaseBackup>(new BaseBackup{{}, std::move(*origin), std::move(*catalogue)});
    for (const std::string& name : base->origin.chain) {
        auto info = catalogues.Use(name);
        if (!info) return missing(name);
        base->held.push_back(std::move(info));
    }
    return base;
}

BackupJob::BackupJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                     JobReport& report, JobControl& control, KTVolume& volume,
                     KTCruncher& compressor, std::unique_ptr<BaseBackup> base)
    : fOrder(order),
      fConfig(config),
      fCatalogues(catalogues),
      fReport(report),
      fControl(control),
      fVolume(volume),
      fCompressor(compressor),
      fStart(config.now ? config.now() : std::time(nullptr)),
      fName(archive::BackupName(fStart, order.id)),
      fTitle(order.title),
      fBase(std::move(base)),
      fProtection(ProtectionFor(order, fBase.get())) {}

JobEnd BackupJob::Run() {
    if (!CheckDestination() || !FindSources()) return Ended(false);
    fOwn = OwnFilesOf(fVolume, fConfig, {fCatalogues.PathForNew(fName)});
    const bool published = WriteData() && FinishCatalogue() && WriteRest();
    // What did not come to be is removed before the end is told.
    if (fWriter && !published) {
        std::string left;
        for (const std::string& folder : fWriter->Discard())
            left += (left.empty() ? "" : ", ") + folder;
        if (!left.empty()) {
            fReport.Words(LineType::Heading,
                          "On discs that are not in there remain, and can be deleted: " + left);
        }
    }
    fWriter.reset();
    fCatalogue.reset();
    ::unlink(fCatalogues.PathForNew(fName).c_str());
    if (published && fVolume.IsOverwrite()) RemoveOldBackups();
    return Ended(published);
}

// --- before anything is written -----------------------------------------------------------------

bool BackupJob::CheckDestination() {
    const std::string media = fVolume.MediaName();
    if (media.empty()) {
        fReport.Error(text::kNoDestination, {});
        return false;
    }
    fReport.Line(LineType::Heading, text::kDestinationIs, {media});
    if (Status status = fVolume.CheckAccess(); !status) {
        if (status.error().kind == ErrorKind::ReadOnly) {
            fReport.Error(text::kDestinationReadOnly, {});
        } else {
            fReport.Error(text::kDestinationNoAccess, {media}, status.error().Text());
        }
        return false;
    }
    if (const auto space = fVolume.Space(); space.ok()) {
        if (space->readOnly) {
            fReport.Error(text::kDestinationReadOnly, {});
            return false;
        }
        if (space->capacity >= 0) {
            fReport.Line(LineType::Heading, text::kCapacityIs, Number(space->capacity / kMegabyte));
        }
        if (space->freeBytes >= 0) {
            fReport.Line(LineType::Heading, text::kFreeSpaceIs,
                         Number(space->freeBytes / kMegabyte));
        }
        fRemovable = space->removable;
        fReport.Line(LineType::Heading,
                     space->removable ? text::kRemovableYes : text::kRemovableNo);
    }
    fReport.Line(LineType::Heading, fVolume.IsOverwrite() ? text::kOverwriteDestinationYes
                                                          : text::kOverwriteDestinationNo);
    return true;
}

bool BackupJob::FindSources() {
    BMessage selection;
    if (fBase) {
        for (const std::string& rule : fBase->origin.rules)
            selection.Add(core::kSelectionField, rule);
    } else {
        selection = fOrder.description.Get<BMessage>("selection", BMessage());
    }
    int refused = 0;
    fRules = core::selection::Rules(selection, &refused);
    if (refused > 0) {
        fReport.ErrorWords("Error: " + std::to_string(refused) +
                           " rules of the selection cannot be understood");
    }
    const std::vector<BVolume> volumes = fConfig.roster.Volumes();
    for (const BVolume& volume : volumes) {
        if (!volume.isBoot) continue;
        const std::string always = "/" + volume.name + "/var";
        const bool ruled = std::any_of(fRules.begin(), fRules.end(), [&](const auto& rule) {
            return !rule.include && rule.subtree && rule.path == always;
        });
        if (ruled) {
            fReport.Words(LineType::Heading,
                          "Left out by rule: " + always + " (data of the running system)");
        }
    }
    const core::SelectionMatcher matcher(fRules);
    for (const core::SelectionRule& rule : fRules) {
        if (!rule.include) continue;
        const std::string_view path(rule.path);
        const std::string_view name = path.substr(
            1, path.find('/', 1) == std::string_view::npos ? path.size() : path.find('/', 1) - 1);
        const BVolume* volume = BVolumeRoster::ByName(volumes, name);
        if (!volume) {
            fReport.Error(text::kSourceNoAccess, {rule.path}, "There is no such volume.");
            continue;
        }
        const std::string onDisk = volume->mountPoint + std::string(path.substr(1 + name.size()));
        struct stat info;
        if (matcher.Includes(rule.path) && ::lstat(onDisk.c_str(), &info) != 0 &&
            (errno == ENOENT || errno == ENOTDIR)) {
            fReport.Error(text::kSourceNoAccess, {rule.path}, "It is not there.");
        }
        const bool known = std::any_of(fSources.begin(), fSources.end(),
                                       [&](const BVolume& v) { return v.name == volume->name; });
        if (!known) fSources.push_back(*volume);
    }
    std::sort(fSources.begin(), fSources.end(),
              [](const BVolume& a, const BVolume& b) { return a.name < b.name; });
    if (fSources.empty()) {
        fReport.Error(text::kNothingToBackUp, {});
        return false;
    }
    return true;
}

// --- writing ------------------------------------------------------------------------------------

bool BackupJob::WriteData() {
    CatalogueOrigin origin;
    if (fBase) origin.chain = fBase->origin.chain;
    fSource = static_cast<int32_t>(origin.chain.size());
    origin.chain.push_back(fName);
    for (const core::SelectionRule& rule : fRules)
        origin.rules.push_back(rule.Text());
    auto catalogue = CatalogueWriter::Create(fCatalogues.PathForNew(fName), origin);
    if (!catalogue) {
        fReport.Error(text::kLogNotCreated, {fCatalogues.PathForNew(fName)},
                      catalogue.error().Text());
        return false;
    }
    fCatalogue = std::move(*catalogue);
    if (fBase && !CopyBaseFrames()) return false;

    const bool split = fVolume.MediaSize() > 0;
    fWriter = std::make_unique<BackupWriter>(
        fVolume, fName, fCompressor.Suffix(), [this, split](int medium) {
            if (split || medium > 1)
                fReport.Line(LineType::Heading, text::kBackupDataToMedium, Number(medium));
        });
    std::function<bool(const BackupWriter::FullDisc&)> nextDisc;
    if (fRemovable) nextDisc = [this](const auto& full) { return WaitForDisc(full); };
    fWriter->WhenFull([this] { return MakeRoom(); }, std::move(nextDisc));
    if (fProtection) {
        const auto recipient = archive::AgeRecipient::FromText(fProtection->recipient);
        if (!recipient) {
            fReport.ErrorWords("Error: the key of this protected job is damaged");
            return false;
        }
        fWriter->Protect(*recipient);
    }
    if (Status status = fWriter->Begin(); !status) return DestinationFailed(status.error());

    fReport.Line(LineType::Heading, text::kScanningSources);
    if (!split) fReport.Line(LineType::Heading, text::kBackupData);
    const core::SelectionMatcher matcher(fRules);
    FrameStream stream(
        [this] { return fCompressor.NewContext(); },
        [this](const FrameStream::PackedFrame& frame) -> Status {
            auto place = fWriter->WriteFrame(frame.packed);
            if (!place) return place.error();
            fCatalogue->AddFrame({frame.number, place->medium, place->offset,
                                  static_cast<int64_t>(frame.packed.size()),
                                  static_cast<int64_t>(frame.content), frame.hash, fSource});
            return {};
        },
        fControl, Workers(), fFirstFrame);
    // How much has changed only the walk itself finds out.
    std::optional<SourceScan> scan;
    if (fBase)
        fReport.AddTotals(fBase->Info().files, 0);
    else
        scan.emplace(matcher, fOwn, fSources, fReport, fControl);
    TreePacker packer(stream, *fCatalogue, fReport, fControl, fBase ? &fBase->catalogue : nullptr);
    const std::vector<int64_t> tags = packer.AddVolumes(fSources);
    TreeWalk walk(matcher, fOwn, TreeWalk::Order::Sorted);
    for (size_t i = 0; i < fSources.size(); ++i) {
        const BVolume& volume = fSources[i];
        fReport.Line(LineType::Volume, text::kLine, {volume.name});
        if (!walk.Run(volume.name, volume.mountPoint, tags[i], packer)) break;
    }
    packer.Finish();
    fTotals = packer.Done();
    Status written = stream.Finish();
    if (written && !fControl.IsAborted()) written = fWriter->FinishMedia();
    if (!written) return DestinationFailed(written.error());
    if (fControl.IsAborted()) return false;
    if (scan) scan->Wait();
    fReport.TellProgress("");
    if (fTotals.taken == 0) {
        fReport.Error(text::kNothingToBackUp, {});
        return false;
    }
    return true;
}

bool BackupJob::FinishCatalogue() {
    Status status = fCatalogue->Finish();
    if (!status) fReport.Error(text::kLogNotWritten, {fCatalogue->Path()}, status.error().Text());
    return status.ok();
}

// What stands behind the media stands together, on the last disc.
bool BackupJob::WriteRest() {
    fInRest = true;
    for (;;) {
        if (WriteCatalogue() && WriteGone() && WriteKey() && WriteManifest() && MakeItExist())
            return true;
        if (!fDiscFull) return false;
        const kit::Error full = *std::exchange(fDiscFull, std::nullopt);
        if (Status status = fWriter->NextDisc(full); !status) return TellFailure(status.error());
    }
}

bool BackupJob::WriteCatalogue() {
    const std::string path = fCatalogue->Path();
    if (Status status = fWriter->OpenFile(archive::kCatalogueFile, BackupWriter::Content::Secret);
        !status) {
        return DestinationFailed(status.error());
    }
    FrameStream stream([] { return std::make_unique<ZstdContext>(kCatalogueLevel); },
                       [this](const FrameStream::PackedFrame& frame) {
                           return fWriter->WriteToFile(frame.packed);
                       },
                       fControl, Workers());
    kit::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    for (;;) {
        if (!fControl.MayGoOn()) return false;
        const std::span<uint8_t> room = stream.Room();
        if (room.empty()) break;
        const ssize_t got = ::read(file.Get(), room.data(), room.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            fReport.Error(text::kNoDatabase, {}, kit::Error::FromErrno(errno, path, "read").Text());
            return false;
        }
        if (got == 0) break;
        stream.Filled(static_cast<size_t>(got));
    }
    Status status = stream.Finish();
    if (status) status = fWriter->FinishFile();
    if (!status) return DestinationFailed(status.error());
    return true;
}

bool BackupJob::CopyBaseFrames() {
    const Status copied = fBase->catalogue.Frames([this](const CatalogueFrame& frame) {
        fCatalogue->AddFrame(frame);
        fFirstFrame = frame.id + 1;
        return true;
    });
    if (!copied) fReport.Error(text::kNoDatabase, {}, copied.error().Text());
    return copied.ok();
}

// What is gone since the base, for whoever restores by hand: paths in the archive, each with a zero
// byte behind it.
bool BackupJob::WriteGone() {
    if (!fBase) return true;
    auto catalogue = CatalogueReader::Open(fCatalogue->Path());
    if (!catalogue) {
        fReport.Error(text::kNoDatabase, {}, catalogue.error().Text());
        return false;
    }
    Status status = fWriter->OpenFile(archive::kGoneFile, BackupWriter::Content::Secret);
    Bytes block;
    const auto write = [&] {
        if (status && !block.empty()) status = fWriter->WriteToFile(block);
        block.clear();
    };
    const Status read = catalogue->Gone([&](std::string_view path) {
        block.insert(block.end(), path.begin(), path.end());
        block.push_back(0);
        if (block.size() >= archive::kFrameSize) write();
        return status.ok();
    });
    write();
    if (!read) {
        fReport.Error(text::kNoDatabase, {}, read.error().Text());
        return false;
    }
    if (status) status = fWriter->FinishFile();
    if (!status) return DestinationFailed(status.error());
    return true;
}

bool BackupJob::WriteKey() {
    if (!fProtection) return true;
    Status status = fWriter->OpenFile(archive::kKeyFile, BackupWriter::Content::Public);
    if (status) status = fWriter->WriteToFile(fProtection->keyFile);
    if (status) status = fWriter->FinishFile();
    if (!status) return DestinationFailed(status.error());
    return true;
}

bool BackupJob::WriteManifest() {
    archive::Manifest& manifest = fManifest;
    manifest = {};
    manifest.name = fName;
    manifest.title = fTitle;
    manifest.type = fOrder.type;
    manifest.jobId = fOrder.id;
    manifest.baseId = SetId();
    if (fBase) {
        manifest.baseBackup = fBase->Info().name;
        manifest.buildsOn = fBase->origin.chain;
    }
    manifest.start = fStart;
    manifest.end = fConfig.now ? fConfig.now() : std::time(nullptr);
    manifest.host = HostName();
    for (const BVolume& volume : fSources) {
        manifest.volumes.push_back({volume.name, volume.mountPoint, volume.fileSystem});
    }
    BMessage settings;
    fCompressor.Archive(&settings, true);
    // All of a set select the same. Of a protected one nobody is to read it.
    size_t rules = 0;
    for (const core::SelectionRule& rule : fRules) {
        if (fBase || fProtection) break;
        manifest.selection.push_back(rule.Text());
        rules += manifest.selection.back().size();
    }
    // A manifest has its limits, and the catalogue has them anyway.
    if (rules > kMostSelection) manifest.selection.clear();
    manifest.compressor = settings.Get<std::string>("addon", "");
    manifest.stockCommand = fCompressor.StockCommand();
    manifest.isProtected = fProtection.has_value();
    manifest.media = fWriter->Media();
    manifest.discs = fWriter->Disc();
    manifest.entries = fTotals.entries;
    manifest.files = fTotals.files;
    manifest.bytes = fTotals.bytes;
    manifest.errors = fReport.Errors();
    Status status = fWriter->OpenFile(archive::kManifestFile, BackupWriter::Content::Public);
    if (status) status = fWriter->WriteToFile(archive::WriteManifest(manifest));
    if (status) status = fWriter->FinishFile();
    if (!status) return DestinationFailed(status.error());
    return true;
}

bool BackupJob::MakeItExist() {
    if (!fControl.MayGoOn()) return false;
    if (Status status = fWriter->Publish(); !status) return DestinationFailed(status.error());
    BackupInfo info;
    info.name = fName;
    info.title = fTitle;
    info.type = fOrder.type;
    info.jobId = fOrder.id;
    info.baseId = SetId();
    if (fBase) info.builtOn = fBase->origin.chain;
    info.start = fStart;
    info.files = fTotals.files;
    info.bytes = fTotals.bytes;
    info.isProtected = fProtection.has_value();
    if (fProtection) info.protection = *fProtection;
    fVolume.GetSettings(&info.volumeSettings);
    info.addon = info.volumeSettings.Get<std::string>("addon", "");
    info.mediaName = fVolume.MediaName();
    info.isRemovable = fRemovable;
    if (fManifest.discs > 1) info.manifest = archive::WriteManifest(fManifest);
    if (Status status = fCatalogues.Adopt(fName, info); !status) {
        // The backup stands and can be inserted by its own catalogue.
        fReport.Error(text::kNoDatabase, {}, status.error().Text());
    }
    return true;
}

int32_t BackupJob::SetId() const {
    if (!fBase) return 0;
    const BackupInfo& base = fBase->Info();
    return base.type == core::JobType::Full ? base.jobId : base.baseId;
}

// --- the end ------------------------------------------------------------------------------------

JobEnd BackupJob::Ended(bool published) {
    if (!published && fControl.IsAborted()) {
        TellTotals(fReport, fTotals.savedFiles, fTotals.savedBytes, kBackupTexts);
        fReport.Line(LineType::Totals, text::kBackupAborted);
        return JobEnd::Aborted;
    }
    if (!published) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tBackup failed, nothing was saved!!!");
        return JobEnd::Errors;
    }
    TellTotals(fReport, fTotals.savedFiles, fTotals.savedBytes, kBackupTexts);
    if (fReport.Errors() > 0) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tBackup ended with errors!");
        return JobEnd::Errors;
    }
    fReport.Line(LineType::Totals, text::kBackupGood);
    return JobEnd::Good;
}

bool BackupJob::DestinationFailed(const kit::Error& error) {
    // Behind the media another disc helps.
    if (error.kind == ErrorKind::Full && fWriter && fWriter->CanChangeDiscs() && fInRest) {
        fDiscFull = error;
        return false;
    }
    return TellFailure(error);
}

bool BackupJob::TellFailure(const kit::Error& error) {
    if (fControl.IsAborted()) return false;
    switch (error.kind) {
        case ErrorKind::Full:
            fReport.Error(text::kDestinationFull, {fVolume.MediaName()}, error.Text());
            break;
        case ErrorKind::ReadOnly:
            fReport.Error(text::kDestinationReadOnly, {}, error.Text());
            break;
        default:
            fReport.Error(text::kDestinationNotWritable, {}, error.Text());
            break;
    }
    return false;
}

int BackupJob::Workers() const {
    if (fConfig.workers > 0) return fConfig.workers;
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

}  // namespace server
