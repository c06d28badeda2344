#include "server/engine/VerifyJob.h"

#include <ctime>
#include <functional>
#include <set>
#include <thread>

#include "core/protocol/Texts.h"
#include "server/archive/BackupWriter.h"
#include "server/archive/Format.h"
#include "server/archive/SumsFile.h"
#include "server/archive/TarReader.h"
#include "server/engine/CatalogueWalk.h"
#include "server/engine/FrameCursor.h"
#include "server/engine/JobTotals.h"

namespace server {

using core::JobEnd;
using core::LineType;
namespace text = core::text;

namespace {

constexpr size_t kBlock = size_t{1} << 20;

// Follows the stream through the catalogue and reads every frame of it once. What lies in backups
// that this one builds on is theirs.
class StreamCheck : public CatalogueVisitor {
public:
    // `onFrame` is told of each before it is read; may be empty.
    StreamCheck(const OpenBackup& backup, CatalogueReader& places, int64_t firstFrame,
                std::function<void(int64_t)> onFrame, JobReport& report, JobControl& control)
        : fCursor(backup.content, places),
          fOnFrame(std::move(onFrame)),
          fReport(report),
          fControl(control),
          fFirst(firstFrame),
          fPassed(firstFrame - 1) {}

    bool Enter(const std::string& path, const CatalogueEntry&, const CatalogueDirectory& directory,
               bool) override {
        if (directory.frame >= fFirst) Check(path, directory.frame, directory.offset);
        return true;
    }
    void Entry(const std::string& directory, const CatalogueEntry& entry) override {
        if (entry.frame < fFirst) return;
        ++files;
        if (entry.link == 0) bytes += entry.size;
        Check(directory + "/" + entry.name, entry.frame, entry.offset);
        fReport.AddDone(1, entry.link == 0 ? entry.size : 0);
    }
    bool MayGoOn() override { return fControl.MayGoOn(); }

    // What lies behind the last header.
    void Finish(int64_t frames) { PassTo(frames); }

    int64_t files = 0, bytes = 0;

private:
    void Check(const std::string& path, int64_t frame, int64_t offset) {
        PassTo(frame);
        fPath = WithoutBackup(path);
        fIsTold = false;
        fReport.Tick(fPath);
        if (auto status = Seek(frame, offset); !status) {
            Tell(status.error());
            return;
        }
        const auto member =
            archive::ReadTarHeader([this](auto into) { return fCursor.Read(into); });
        // A header may lie across two frames.
        fPassed = std::max(fPassed, fCursor.Frame());
        if (!member) {
            Tell(member.error());
        } else if ("/" + member->path != fPath) {
            Tell(kit::Error::Make(kit::ErrorKind::Damaged, member->path, "something else"));
        }
    }
    // The frames between two headers hold the data of the entry before.
    void PassTo(int64_t frame) {
        for (; fPassed < frame - 1 && fControl.MayGoOn(); ++fPassed) {
            if (auto status = Seek(fPassed + 1, 0); !status) Tell(status.error());
        }
        fPassed = std::max(fPassed, frame);
    }
    kit::Status Seek(int64_t frame, int64_t offset) {
        if (fOnFrame) fOnFrame(frame);
        return fCursor.Seek(frame, offset);
    }
    void Tell(const kit::Error& error) {
        if (fControl.IsAborted()) return;
        if (!std::exchange(fIsTold, true))
            fReport.Error(text::kNotReadFromBackup, {fPath}, error.Text());
    }

    FrameCursor fCursor;
    const std::function<void(int64_t)> fOnFrame;
    JobReport& fReport;
    JobControl& fControl;
    const int64_t fFirst;  // of its own frames
    int64_t fPassed;
    std::string fPath = "/";
    bool fIsTold = false;
};

}  // namespace

VerifyJob::VerifyJob(const JobOrder& order, const EngineConfig& config, CatalogueStore& catalogues,
                     JobReport& report, JobControl& control)
    : fOrder(order), fConfig(config), fCatalogues(catalogues), fReport(report), fControl(control) {}

JobEnd VerifyJob::Run() {
    fReport.Words(LineType::Heading, "Checking backups '" + fOrder.title + "':");
    fReport.Line(LineType::Heading, text::kStartIs,
                 {LocalTimeText(fConfig.now ? fConfig.now() : std::time(nullptr))});
    auto rules = SelectionRules(fOrder, fReport);
    // One that builds on others is worth what they are: they are checked with it.
    JobOrder order = fOrder;
    std::set<std::string> checked;
    while (!rules.empty() && fControl.MayGoOn()) {
        std::set<std::string> bases;
        ForEachSelectedBackup(rules, order, fConfig, fCatalogues, fReport, fControl, Chain::Own,
                              [&](const OpenBackup& backup) {
                                  checked.insert(backup.info.name);
                                  bases.insert(backup.info.builtOn.begin(),
                                               backup.info.builtOn.end());
                                  const auto key = order.keys.find(backup.info.name);
                                  if (key != order.keys.end()) {
                                      const auto sets = key->second;
                                      for (const std::string& base : backup.info.builtOn)
                                          order.keys[base] = sets;
                                  }
                                  Check(backup);
                                  return fControl.MayGoOn();
                              });
        for (const core::SelectionRule& rule : rules)
            checked.emplace(FirstPart(rule.path));  // told, if it was not there
        rules.clear();
        for (const std::string& base : bases)
            if (!checked.contains(base)) rules.push_back({true, true, "/" + base});
    }
    if (fBackups == 0 && !fControl.IsAborted())
        fReport.ErrorWords("Error: there is no backup to check");
    fReport.TellProgress("");
    fReport.Words(LineType::Totals, "Files checked:\t\t" + std::to_string(fFiles));
    fReport.Words(LineType::Totals, "Bytes checked:\t\t" + std::to_string(fBytes));
    if (fControl.IsAborted()) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tCheck aborted!!!");
        return JobEnd::Aborted;
    }
    if (fReport.Errors() > 0) {
        fReport.Words(LineType::Totals, "Status:\t\t\t\tCheck ended with errors!");
        return JobEnd::Errors;
    }
    fReport.Words(LineType::Totals, "Status:\t\t\t\tCheck successful");
    return JobEnd::Good;
}

void VerifyJob::Check(const OpenBackup& backup) {
    ++fBackups;
    fReport.AddTotals(backup.info.files, backup.info.bytes);
    fReadDisc = 0;
    fChecked.clear();
    if (backup.content.NeedsDiscs()) {
        // Each disc once: the last one, with the sums of all files, comes last.
        CheckStream(backup);
        CheckSums(backup);
        return;
    }
    std::thread sums([&] { CheckSums(backup); });
    CheckStream(backup);
    sums.join();
}

void VerifyJob::CheckSums(const OpenBackup& backup) {
    const auto sums = archive::ReadSums(*backup.content.File(archive::kSumsFile));
    if (!sums) {
        if (fControl.IsAborted()) return;
        // One that was cut short may not have come to its sums.
        if (backup.info.IsCut() && sums.error().kind == kit::ErrorKind::NotFound) {
            fReport.Words(LineType::Heading,
                          "'" + backup.info.title + "' ended before its checksums were written.");
        } else {
            fReport.ErrorWords("Error: the checksums of '" + backup.info.name + "' cannot be read",
                               sums.error().Text());
        }
        return;
    }
    // What the manifest names must be there, whatever the list says.
    std::set<std::string> missing;
    if (!backup.info.isLoose) missing.insert(archive::kManifestFile);
    if (backup.info.isProtected) missing.insert(archive::kKeyFile);
    if (!backup.info.builtOn.empty())
        missing.insert(archive::kGoneFile +
                       std::string(backup.info.isProtected ? archive::kSealedSuffix : ""));
    for (const auto& medium : backup.content.Manifest().media)
        missing.insert(medium.file);
    for (const auto& [file, sum] : *sums) {
        missing.erase(file);
        // The media of the discs before were read when those were in.
        const auto before = fChecked.find(file);
        if (before == fChecked.end()) {
            CheckSum(backup, file, sum);
        } else if (before->second != sum) {
            fReport.ErrorWords("Error: the checksum of '" + file + "' is wrong");
        }
    }
    for (const std::string& file : missing)
        fReport.ErrorWords("Error: '" + file + "' has no checksum");
}

void VerifyJob::CheckSum(const OpenBackup& backup, const std::string& file,
                         const std::string& sum) {
    const auto source = backup.content.File(file);
    archive::Sha256 sha;
    Bytes block(kBlock);
    for (int64_t offset = 0;;) {
        if (!fControl.MayGoOn()) return;
        const auto got = source->ReadAt(offset, block);
        if (!got) {
            if (fControl.IsAborted()) return;
            fReport.ErrorWords("Error: can't read '" + file + "'", got.error().Text());
            return;
        }
        if (*got == 0) break;
        sha.Update(std::span(block).first(*got));
        offset += static_cast<int64_t>(*got);
    }
    if (sha.Finish() != sum) fReport.ErrorWords("Error: the checksum of '" + file + "' is wrong");
}

// A disc was put in, and another will follow: what lies on it is checked now.
void VerifyJob::CheckDisc(const OpenBackup& backup, int disc) {
    if (disc == fReadDisc) return;
    fReadDisc = disc;
    if (disc == backup.content.Discs()) return;
    for (const auto& medium : backup.content.Manifest().media) {
        if (medium.disc != disc) continue;
        CheckSum(backup, medium.file, medium.sha256);
        fChecked[medium.file] = medium.sha256;
    }
}

void VerifyJob::CheckStream(const OpenBackup& backup) {
    // The walk lists while the places are asked for.
    auto places = CatalogueReader::Open(fCatalogues.PathOf(backup.info.name));
    if (!places) {
        fReport.Error(text::kNoDatabase, {}, places.error().Text());
        return;
    }
    const auto all = core::SelectionRule::Parse("INCLUDE /" + backup.info.name + "/*");
    const std::vector<core::SelectionRule> rules{*all};
    const core::SelectionMatcher matcher(rules);
    const auto source = static_cast<int32_t>(backup.info.builtOn.size());
    std::function<void(int64_t)> onFrame;
    if (backup.content.NeedsDiscs()) {
        onFrame = [&](int64_t frame) {
            const auto place = places->FrameAt(frame);
            if (place) CheckDisc(backup, backup.content.DiscOf(*place).second);
        };
    }
    StreamCheck check(backup, *places, places->FirstFrameOf(source), std::move(onFrame), fReport,
                      fControl);
    CatalogueWalk walk(backup.catalogue, matcher, rules);
    const kit::Status walked = walk.Run("/" + backup.info.name, check);
    if (!walked || walk.Refused() > 0) {
        fReport.Error(text::kNoDatabase, {}, walked ? "impossible entries" : walked.error().Text());
    }
    check.Finish(places->CountFrames());
    fFiles += check.files;
    fBytes += check.bytes;
}

}  // namespace server
