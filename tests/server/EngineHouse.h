// A place in which backups are made by the real engine with the real add-ons: a folder with a
// source that stands for a volume, a destination and catalogues.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "addons/KTVolume.h"
#include "server/archive/KeyFile.h"
#include "server/archive/Manifest.h"
#include "server/engine/JobEnvironment.h"
#include "tests/server/Trees.h"

namespace server {

// Keeps what a job says.
class Recorder : public JobEvents {
public:
    struct Said {
        core::LineType type;
        int32_t textId;
        std::string text;  // rendered in English
    };
    void Line(core::LineType type, int32_t textId, KTReportLine arguments) override;
    void SetProgress(const Progress& progress) override;

    bool Has(core::LineType type, int32_t textId) const;
    bool HasText(core::LineType type, const std::string& part) const;
    std::vector<std::string> Texts(core::LineType type) const;
    std::string All() const;
    void Clear();

    std::vector<Said> lines;
    std::vector<Progress> progress;
    std::function<void(const Said&)> onLine;
    std::function<void(const Progress&)> onProgress;

private:
    mutable std::mutex fMutex;  // a test may ask from one of the job's threads
};

class Control : public JobControl {
public:
    bool MayGoOn() override {
        ++asked;
        if (onAsked) onAsked();
        return !aborted;
    }
    bool IsAborted() const override { return aborted; }
    std::atomic<bool> aborted = false;
    std::atomic<int64_t> asked = 0;
    std::function<void()> onAsked;  // from any of the job's threads
};

class EngineHouse {
public:
    EngineHouse();
    ~EngineHouse();

    // A job that saves all of the source, or what `rules` say, to the destination.
    JobOrder Order(const std::vector<std::string>& rules = {"INCLUDE /Source/*"}) const;
    // One that adds to the backups of that set.
    JobOrder NextOrder(core::JobType type, int32_t set = 1) const;
    // One that reads what was saved of the source, or what `rules` say; with `to` it goes there.
    JobOrder ReadOrder(core::JobType type, const std::string& backup, const std::string& to = "",
                       const std::vector<std::string>& rules = {"INCLUDE /Source/*"}) const;
    // One that takes folders of the destination into the catalogues. Numbers that are taken become
    // those from 5001 on.
    JobOrder InsertOrder(const std::vector<std::string>& folders);
    // Afterwards `events` tell of this run alone.
    core::JobEnd Run(const JobOrder& order);
    core::JobEnd Run() { return Run(Order()); }
    // The same with a stand-in for the destination.
    core::JobEnd RunTo(KTVolume& volume, const JobOrder& order);
    // A backup of the source, by Run(): its name, "" when there is none. How it ended is in `end`.
    std::string Save(core::JobType type = core::JobType::Full, int32_t set = 1);
    // A whole backup brought back into a new folder: that folder. How it ended is in `end`.
    std::string Restored(const std::string& backup);
    // From here on backups are protected by the password, and are read with their key.
    void Protect(std::string_view password);

    // Folders in the destination, by name.
    std::vector<std::string> Folders() const;
    // Out of the catalogues; its folder stays.
    void Forget(const std::string& folder);
    void ForgetAll();
    // What the catalogues know of it; nothing when they do not know it.
    BackupInfo Known(const std::string& backup) const;
    // What its "backup.json" says.
    archive::Manifest ManifestOf(const std::string& folder) const;
    // A new folder beside source and destination.
    std::string NewFolder();
    // Unpacks a backup with stock tools, after those that it is built on; the folder into which it
    // went, "" when that failed.
    std::string Unpack(const std::vector<std::string>& chain);
    std::string Unpack(const std::string& folder) {
        return Unpack(std::vector<std::string>{folder});
    }
    // What `packer` puts behind ".tar", and the stock command that unpacks it.
    std::string Ending() const;
    std::string Unpacker() const;

    std::string root, source, target;
    EngineConfig config;
    std::unique_ptr<CatalogueStore> catalogues;
    Recorder events;
    Control control;
    std::string packer = "KTZstd";
    BMessage volume;  // settings of the destination
    core::JobEnd end = core::JobEnd::Good;
    std::optional<archive::Protection> protection;
    std::shared_ptr<const archive::AgeIdentity> identity;

private:
    int32_t fNextJob = 1, fLastNumber = 5000;
    int fLastFolder = 0;
};

// Passes everything on to another destination, and fails where a test wants it to.
class FaultyVolume : public KTVolume {
public:
    explicit FaultyVolume(KTVolume& volume) : fVolume(volume) {}

    int64_t room = INT64_MAX;  // bytes until it is full
    kit::ErrorKind kind = kit::ErrorKind::Full;
    bool removable = false;
    int64_t mediaSize = 0;
    std::string failing;  // the call that fails: "Begin", "Create:FILE", "Finish:FILE", …
    std::function<void()> onSpace;

    bool Fails(const std::string& call) const { return call == failing; }
    kit::Error Failure() const { return kit::Error::Make(kind, "stand-in", "as the test wants"); }

    int32_t Archive(BMessage* message, bool deep) const override {
        return fVolume.Archive(message, deep);
    }
    bool IsOverwrite() const override { return fVolume.IsOverwrite(); }
    void SetOverwrite(bool overwrite) override { fVolume.SetOverwrite(overwrite); }
    const char* MediaName() const override { return fVolume.MediaName(); }
    void ShowSettings(KTSettingsHost*, const BMessenger&, const char*) override {}
    void SetSettings(const BMessage& settings) override { fVolume.SetSettings(settings); }
    void GetSettings(BMessage* settings) const override { fVolume.GetSettings(settings); }
    const char* MenuName() const override { return fVolume.MenuName(); }
    bool ApplySettings(const BMessage&, const BMessenger&, std::string*) override { return false; }
    kit::Status CheckAccess() override;
    kit::Result<KTVolumeSpace> Space() override;
    int64_t MediaSize() const override { return mediaSize; }
    std::string LocalDirectory() const override { return fVolume.LocalDirectory(); }
    kit::Status BeginBackup(const std::string& name) override;
    kit::Result<std::unique_ptr<KTVolumeWriter>> CreateFile(const std::string& name,
                                                            const std::string& file) override;
    kit::Status Publish(const std::string& name) override;
    kit::Status RemoveBackup(const std::string& folder) override {
        return fVolume.RemoveBackup(folder);
    }
    kit::Result<std::vector<std::string>> ListBackups() override { return fVolume.ListBackups(); }
    kit::Result<std::vector<KTVolumeFile>> ListFiles(const std::string& folder) override {
        return fVolume.ListFiles(folder);
    }
    kit::Result<size_t> ReadAt(const std::string& folder, const std::string& file, int64_t offset,
                               std::span<uint8_t> into) override {
        return fVolume.ReadAt(folder, file, offset, into);
    }
    kit::Status WriteRootFile(const std::string& file, std::span<const uint8_t> data) override;
    kit::Status ClosePart(const std::string& name, const std::string& folder,
                          const std::vector<std::string>& files) override {
        return fVolume.ClosePart(name, folder, files);
    }

private:
    KTVolume& fVolume;
};

}  // namespace server
