// Where a backup finds room when its destination is full: older backups that go, and other discs.
#include <algorithm>

#include "core/protocol/Texts.h"
#include "server/archive/Format.h"
#include "server/engine/BackupJob.h"
#include "server/engine/JobTotals.h"
#include "server/engine/LookAgain.h"

namespace server {

using archive::BackupWriter;
using core::LineType;
using kit::ErrorKind;
using kit::Status;
namespace text = core::text;

namespace {

constexpr char kNothingNew[] = "-";  // no problem to tell of

}  // namespace

int BackupJob::RemoveOldBackups() {
    auto folders = fVolume.ListBackups();
    if (!folders) {
        fReport.ErrorWords("Error: can't list the older backups", folders.error().Text());
        return 0;
    }
    // The newest go first: they may build on those before.
    std::ranges::sort(*folders, std::ranges::greater());
    int removed = 0;
    for (const std::string& folder : *folders) {
        const auto backup = archive::BackupOfFolder(folder);
        if (!backup || *backup == fName || !MayBeOverwritten(std::string(*backup))) continue;
        const std::string name(*backup);
        const auto info = fCatalogues.Find(name);
        auto removal = fCatalogues.BeginRemoval(name);
        if (info && !removal) {
            fReport.ErrorWords("Error: can't delete backup '" + name + "'", removal.error().Text());
            continue;
        }
        fReport.Line(LineType::Heading, text::kDeletingBackup,
                     {info ? info->title : name, info ? std::to_string(info->jobId) : "-",
                      info ? LocalTimeText(info->start) : fVolume.MediaName()});
        if (Status status = fVolume.RemoveBackup(folder); !status) {
            fReport.ErrorWords("Error: can't delete backup '" + name + "'", status.error().Text());
            continue;
        }
        ++removed;
        if (!info) continue;
        if (Status status = removal->Finish(); !status) {
            fReport.Error(text::kNoDatabase, {}, status.error().Text());
        }
    }
    return removed;
}

// What this job builds on is never taken away, nor what others need that lie elsewhere.
bool BackupJob::MayBeOverwritten(const std::string& name) {
    std::string why;
    if (fBase && std::ranges::find(fBase->origin.chain, name) != fBase->origin.chain.end()) {
        why = "this one builds on it";
    } else {
        for (const BackupInfo& other : fCatalogues.Backups()) {
            if (std::ranges::find(other.builtOn, name) != other.builtOn.end())
                why = "'" + other.name + "' is built on it";
        }
    }
    if (why.empty()) return true;
    if (fKept.insert(name).second)
        fReport.Words(LineType::Heading, "The backup '" + name + "' stays: " + why + ".");
    return false;
}

// Before the new backup stands the older ones go only where there is no room for it otherwise, and
// only if that is wanted.
bool BackupJob::MakeRoom() {
    if (!fVolume.IsOverwrite() || !fControl.MayGoOn()) return false;
    return RemoveOldBackups() > 0;
}

// Of the drive that the destination is. Called by the writing thread, too.
bool BackupJob::WaitForDisc(const BackupWriter::FullDisc& full) {
    if (!fControl.MayGoOn()) return false;
    const auto space = fVolume.Space();
    const int64_t before = space ? space->freeBytes : -1;
    // What is asked for comes last: it is what the panel shows.
    const auto ask = [&](const std::string& why) {
        if (!why.empty()) fReport.Words(LineType::Heading, why);
        KTReportLine line;
        line.AddInt32(full.disc);
        line.AddString(fVolume.MediaName());
        fReport.Line(LineType::Heading, text::kMediumFull, std::move(line));
    };
    ask(full.why.kind == ErrorKind::Full ? "" : full.why.Text());
    std::string told;
    return LookAgainUntil(fControl, fConfig.lookAgain, [&] {
        const std::string problem = ProblemWithDisc(full.needed, before);
        if (problem != told && problem != kNothingNew && !problem.empty()) ask(problem);
        told = problem;
        return problem.empty();
    });
}

// Why the backup cannot go on with what is in the drive now; "" if it can.
std::string BackupJob::ProblemWithDisc(int64_t needed, int64_t before) {
    auto space = fVolume.Space();
    // Where nothing is in, the place is a directory of the system, or none.
    if (!space || !space->removable) return kNothingNew;
    if (space->readOnly) return "This disc is read-only. Please insert another one.";
    if (const Status access = fVolume.CheckAccess(); !access) return access.error().Text();
    if (space->freeBytes < 0) return "";
    if (space->freeBytes < needed && MakeRoom()) space = fVolume.Space();
    if (!space || space->freeBytes == before) return kNothingNew;
    if (space->freeBytes >= needed) return "";
    const auto folders = fVolume.ListBackups();
    const bool isOurs = folders && std::ranges::any_of(*folders, [&](const std::string& folder) {
                            return archive::BackupOfFolder(folder) == fName;
                        });
    return isOurs ? "This disc has a part of this backup already. Please insert another one."
                  : "This disc has too little room. Please insert another one.";
}

}  // namespace server
