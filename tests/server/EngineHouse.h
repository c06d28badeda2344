// A place in which backups are made by the real engine with the real add-ons: a folder with a
// source that stands for a volume, a destination and catalogues.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "addons/KTVolume.h"
#include "server/engine/JobEnvironment.h"

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
    core::JobEnd Run(const JobOrder& order);
    core::JobEnd Run() { return Run(Order()); }
    // The same with a stand-in for the destination.
    core::JobEnd RunTo(KTVolume& volume, const JobOrder& order);

    // Folders in the destination, by name.
    std::vector<std::string> Folders() const;
    // Out of the catalogues; its folder stays.
    void Forget(const std::string& folder);
    // Unpacks a backup with stock tools; the folder into which it went, "" when that failed.
    std::string Unpack(const std::string& folder);
    // What `packer` puts behind ".tar", and the stock command that unpacks it.
    std::string Ending() const;
    std::string Unpacker() const;
    // What a shell command prints, with "exit N" at the end when it failed.
    static std::string Shell(const std::string& command);

    std::string root, source, target;
    EngineConfig config;
    std::unique_ptr<CatalogueStore> catalogues;
    Recorder events;
    Control control;
    std::string packer = "KTZstd";
    BMessage volume;  // settings of the destination

private:
    int32_t fNextJob = 1;
    int fUnpacked = 0;
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

// Everything that can be known of a tree, by path: {"/dir/file", facts in words}. Independent of
// the engine.
std::map<std::string, std::string> DescribeTree(const std::string& root);
// What differs, in words; empty: nothing.
std::string Differences(const std::map<std::string, std::string>& left,
                        const std::map<std::string, std::string>& right);
inline std::string TreeDifferences(const std::string& left, const std::string& right) {
    return Differences(DescribeTree(left), DescribeTree(right));
}

// A tree with one of everything that a backup must carry.
void MakeNastyTree(const std::string& root);
void WriteWhole(const std::string& path, std::string_view content);
std::string NoiseBytes(size_t size, uint64_t seed = 4711);

}  // namespace server
