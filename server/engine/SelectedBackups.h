// The backups that a restore, a check or a comparison is about, as its selection names them, opened
// one after the other; what cannot be had is told and left out.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/selection/KTSelection.h"
#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BackupContent.h"
#include "server/engine/CatalogueWalk.h"
#include "server/engine/JobReport.h"

namespace server {

// Rules whose paths begin with the backup's name: "/Backup/Volume/path". What cannot be understood
// is told.
std::vector<core::SelectionRule> SelectionRules(const JobOrder& order, JobReport& report);

struct OpenBackup {
    const BackupInfo& info;
    const BackupContent& content;
    CatalogueReader& catalogue;
};
// Whether the backups that it builds on are opened with it.
enum class Chain { Whole, Own };
// In the order of the rules that take something of them, protected ones with what the order has to
// open them; none of them is deleted meanwhile. `visit` returns false to stop.
void ForEachSelectedBackup(const std::vector<core::SelectionRule>& rules, const JobOrder& order,
                           const EngineConfig& config, CatalogueStore& catalogues,
                           JobReport& report, JobControl& control, Chain chain,
                           const std::function<bool(const OpenBackup&)>& visit);

// What a walk over such a backup's catalogue could not read or would not believe.
void TellUnread(const CatalogueWalk& walk, const kit::Status& walked, JobReport& report);

// The first component of "/a/b/c".
std::string_view FirstPart(std::string_view path);
// "/Backup/Volume/path" without the backup: how reports and the stream name an entry.
std::string WithoutBackup(const std::string& path);

}  // namespace server
