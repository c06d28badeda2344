#include "server/engine/SelectedBackups.h"

#include <algorithm>

#include "core/protocol/Texts.h"

namespace server {

using core::LineType;
namespace text = core::text;

std::string_view FirstPart(std::string_view path) {
    return path.substr(1, path.find('/', 1) - 1);
}

std::string WithoutBackup(const std::string& path) {
    const size_t slash = path.find('/', 1);
    return slash == std::string::npos ? "/" : path.substr(slash);
}

std::vector<core::SelectionRule> SelectionRules(const JobOrder& order, JobReport& report) {
    int refused = 0;
    auto rules =
        core::selection::Rules(order.description.Get<BMessage>("selection", BMessage()), &refused);
    if (refused > 0) {
        report.ErrorWords("Error: " + std::to_string(refused) +
                          " rules of the selection cannot be understood");
    }
    return rules;
}

namespace {

// Opens those that a backup builds on. False: one of them is missing, or cannot be read; told.
bool OpenBases(const BackupInfo& info, BackupContent& content, const JobOrder& order,
               const EngineConfig& config, CatalogueStore& catalogues, JobReport& report,
               JobControl& control, std::vector<std::shared_ptr<const BackupInfo>>* held) {
    std::vector<std::unique_ptr<BackupContent>> bases;
    for (const std::string& name : info.builtOn) {
        const auto base = catalogues.Use(name);
        if (!base) {
            report.Error(text::kBackupMissing, {name}, "'" + info.title + "' is built on it.");
            return false;
        }
        held->push_back(base);
        // All of a set have one key.
        BackupKeys keys = order.keys;
        if (const auto key = order.keys.find(info.name); key != order.keys.end())
            keys[name] = key->second;
        auto opened = BackupContent::Open(*base, config, keys, report, control);
        if (!opened) {
            if (control.IsAborted()) return false;
            report.Error(text::kBackupHeaderUnreadable, {base->title}, opened.error().Text());
            return false;
        }
        bases.push_back(std::move(*opened));
    }
    content.SetBases(std::move(bases));
    return true;
}

}  // namespace

void ForEachSelectedBackup(const std::vector<core::SelectionRule>& rules, const JobOrder& order,
                           const EngineConfig& config, CatalogueStore& catalogues,
                           JobReport& report, JobControl& control, Chain chain,
                           const std::function<bool(const OpenBackup&)>& visit) {
    std::vector<std::string> names;
    for (const core::SelectionRule& rule : rules) {
        std::string name(FirstPart(rule.path));
        if (rule.include && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(std::move(name));
    }
    // All are held from the beginning: none of them goes away while another one is being read.
    std::vector<std::shared_ptr<const BackupInfo>> infos;
    infos.reserve(names.size());
    for (const std::string& name : names)
        infos.push_back(catalogues.Use(name));
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string& name = names[i];
        const auto& info = infos[i];
        if (!info) {
            report.Error(text::kBackupMissing, {name});
            continue;
        }
        if (info->isProtected && !order.keys.contains(name)) {
            report.Error(text::kPasswordProblem, {},
                         "'" + info->title + "' is protected by a password and was left out.");
            continue;
        }
        if (info->isLocked) {
            report.Error(text::kNoDatabase, {},
                         "The tree of '" + info->title + "' could not be opened.");
            continue;
        }
        const auto content = BackupContent::Open(*info, config, order.keys, report, control);
        if (!content) {
            if (control.IsAborted()) break;
            report.Error(text::kBackupHeaderUnreadable, {info->title}, content.error().Text());
            continue;
        }
        std::vector<std::shared_ptr<const BackupInfo>> held;
        if ((*content)->Manifest().buildsOn != info->builtOn) {
            report.Error(text::kBackupHeaderUnreadable, {info->title},
                         "It does not say of what it is built what the catalogue says.");
            continue;
        }
        if (chain == Chain::Whole &&
            !OpenBases(*info, **content, order, config, catalogues, report, control, &held))
            continue;
        auto catalogue = CatalogueReader::Open(catalogues.PathOf(name));
        if (!catalogue) {
            report.Error(text::kNoDatabase, {}, catalogue.error().Text());
            continue;
        }
        KTReportLine loaded;
        loaded.AddString(info->title);
        loaded.AddString((*content)->Volume().MediaName());
        loaded.AddInt32(1);
        report.Line(LineType::Volume, text::kBackupLoaded, std::move(loaded));
        if (!visit({*info, **content, *catalogue})) break;
    }
}

void TellUnread(const CatalogueWalk& walk, const kit::Status& walked, JobReport& report) {
    if (!walked) report.Error(text::kNoDatabase, {}, walked.error().Text());
    if (walk.Refused() > 0) {
        report.ErrorWords("Error: " + std::to_string(walk.Refused()) +
                          " entries of the catalogue cannot be what it says");
    }
}

}  // namespace server
