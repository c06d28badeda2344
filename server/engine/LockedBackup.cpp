#include "server/engine/LockedBackup.h"

#include <unistd.h>

#include "core/protocol/Texts.h"
#include "server/engine/BackupIndexer.h"

namespace server {

namespace text = core::text;

bool OpenLockedBackup(const std::string& name, std::shared_ptr<const archive::AgeIdentity> key,
                      const EngineConfig& config, CatalogueStore& catalogues, JobEvents& events,
                      JobControl& control) {
    const auto known = catalogues.Use(name);
    if (!known) return false;
    if (!known->isLocked) return true;
    JobReport report(events);
    BackupInfo info = *known;
    info.isLocked = false;
    info.protection.recipient = key->Recipient().Text();
    // Nobody sees it ask for a disc, so it does not.
    BackupInfo asItIs = info;
    asItIs.isRemovable = false;
    const auto content =
        BackupContent::Open(asItIs, config, {{name, std::move(key)}}, report, control);
    if (!content) {
        report.Error(text::kBackupHeaderUnreadable, {info.title}, content.error().Text());
        return false;
    }
    if (!BackupIndexer(catalogues, report, control).Run(**content, &info)) return false;
    const auto adopted = catalogues.Adopt(name, info);
    if (!adopted) {
        ::unlink(catalogues.PathForNew(name).c_str());
        report.Error(text::kNoDatabase, {}, adopted.error().Text());
    }
    return adopted.ok();
}

}  // namespace server
