#include <exception>

#include "core/protocol/Texts.h"
#include "server/engine/AddOns.h"
#include "server/engine/BackupJob.h"
#include "server/engine/CompareJob.h"
#include "server/engine/InsertJob.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/JobReport.h"
#include "server/engine/JobTotals.h"
#include "server/engine/RestoreJob.h"
#include "server/engine/VerifyJob.h"
#include "server/engine/VolumeHost.h"
#include "server/queue/JobDescription.h"

namespace server {

using core::JobEnd;
using core::LineType;
namespace text = core::text;

namespace {

constexpr char kNoCompressor[] = "KTNone";

const char* ModeOf(core::JobType type) {
    switch (type) {
        case core::JobType::Incremental:
            return "Incremental";
        case core::JobType::Differential:
            return "Differential";
        default:
            return "Full";
    }
}

JobEnd RunBackup(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                 JobReport& report, JobControl& control) {
    const BMessage& job = order.description;
    const std::string title = order.title.empty() ? "- no title -" : order.title;
    report.Line(LineType::Heading, text::kStartingBackup, {title});
    report.Line(LineType::Heading, text::kStartIs,
                {LocalTimeText(config.now ? config.now() : std::time(nullptr))});
    report.Line(LineType::Heading, text::kBackupModeIs, {ModeOf(order.type)});

    std::unique_ptr<BaseBackup> base;
    if (order.type != core::JobType::Full) {
        auto found = BaseBackup::Find(catalogues, job.Get<int32_t>("base_id", 0), order.type);
        if (!found) {
            const kit::Error& error = found.error();
            if (error.kind == kit::ErrorKind::NotFound)
                report.Error(text::kBackupMissing, {error.path});
            else if (error.kind == kit::ErrorKind::Denied)
                report.Error(text::kPasswordProblem, {},
                             "'" + error.path + "' came by insert: its password opens it first.");
            else if (error.kind == kit::ErrorKind::Unsupported)
                report.ErrorWords(
                    "Error: nothing can be built on '" + error.path + "'",
                    "Its catalogue was lost and does not tell any more what it was to "
                    "save. Make a full backup.");
            else
                report.Error(text::kNoDatabase, {}, error.Text());
            return JobEnd::Errors;
        }
        base = std::move(*found);
        report.Words(LineType::Heading, "It builds on:\t\t\t\t" + base->Info().name);
        if (base->Info().isProtected)
            report.Words(LineType::Heading, "The backup is protected by the password of its set.");
    } else if (description::ProtectionOf(job)) {
        report.Words(LineType::Heading, "The backup is protected by a password.");
    } else if (description::HasPassword(job)) {
        // The key is made of it when the job is submitted.
        report.ErrorWords("Error: the job has a password, but no key to protect the backup with");
        return JobEnd::Errors;
    } else if (description::WantsProtection(job)) {
        report.Words(LineType::Heading, "The password is empty: the backup is not protected.");
    }

    const std::string addOn = job.Get<std::string>("addon", "");
    if (addOn.empty()) {
        report.Error(text::kNoDestination, {});
        return JobEnd::Errors;
    }
    VolumeHost host(report, control);  // before the destination, so that it is there to the end
    auto volume = LoadDestination(config.addOnFolder, addOn);
    if (!volume) {
        report.Error(volume.error().kind == kit::ErrorKind::Damaged ? text::kAddOnCorrupt
                                                                    : text::kAddOnNotLoaded,
                     {addOn}, volume.error().Text());
        return JobEnd::Errors;
    }
    std::string packer = job.Get<std::string>("bak_addonpacker", "");
    if (packer.empty()) packer = kNoCompressor;
    auto compressor = LoadCompressor(config.addOnFolder, packer);
    if (!compressor) {
        report.ErrorWords("Error: can't load Add-On '" + packer + "' for compression",
                          compressor.error().Text());
        return JobEnd::Errors;
    }
    (*volume)->SetHost(&host);
    (*volume)->SetSettings(job.Get<BMessage>("volume", BMessage()));
    (*compressor)->SetSettings(job.Get<BMessage>("bak_packer", BMessage()));
    return BackupJob(order, config, catalogues, report, control, **volume, **compressor,
                     std::move(base))
        .Run();
}

}  // namespace

JobEnd RunJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobEvents& events, JobControl& control) {
    JobReport report(events);
    try {
        if (core::IsBackup(order.type)) {
            return RunBackup(order, config, catalogues, report, control);
        }
        if (order.type == core::JobType::Restore) {
            return RestoreJob(order, config, catalogues, report, control).Run();
        }
        if (order.type == core::JobType::Compare) {
            return CompareJob(order, config, catalogues, report, control).Run();
        }
        if (order.type == core::JobType::Insert) {
            return InsertJob(order, config, catalogues, report, control).Run();
        }
        if (order.type == core::JobType::Verify) {
            return VerifyJob(order, config, catalogues, report, control).Run();
        }
        report.ErrorWords("Error: this version cannot run jobs of this kind");
    } catch (const std::bad_alloc&) {
        report.Error(text::kNoMemory, {});
    } catch (const std::exception& problem) {
        report.ErrorWords("Error: internal error", problem.what());
    }
    return JobEnd::Errors;
}

}  // namespace server
