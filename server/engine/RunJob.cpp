#include <exception>

#include "core/protocol/Texts.h"
#include "server/engine/AddOns.h"
#include "server/engine/BackupJob.h"
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

JobEnd RunBackup(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                 JobReport& report, JobControl& control) {
    const BMessage& job = order.description;
    const std::string title = order.title.empty() ? "- no title -" : order.title;
    report.Line(LineType::Heading, text::kStartingBackup, {title});
    report.Line(LineType::Heading, text::kStartIs,
                {LocalTimeText(config.now ? config.now() : std::time(nullptr))});
    report.Line(LineType::Heading, text::kBackupModeIs, {"Full"});

    if (description::ProtectionOf(job)) {
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
    return BackupJob(order, config, catalogues, report, control, **volume, **compressor).Run();
}

}  // namespace

JobEnd RunJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
              JobEvents& events, JobControl& control) {
    JobReport report(events);
    try {
        if (order.type == core::JobType::Full) {
            return RunBackup(order, config, catalogues, report, control);
        }
        if (order.type == core::JobType::Restore) {
            return RestoreJob(order, config, catalogues, report, control).Run();
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
