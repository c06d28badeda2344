// What a finished backup holds, read from where it lies: its manifest, its media, its frames. One
// that builds on others has them with it.
//
// Where it lies on discs that can be changed, whatever needs one that is not in asks for it and
// waits, until it is there or the job is to end (Aborted).
//
// Made by one thread; ReadFrame, Medium and Load may be called by several at once, each with a
// context of its own.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "server/archive/FileSource.h"
#include "server/archive/Manifest.h"
#include "server/catalogue/CatalogueTypes.h"
#include "server/engine/AddOns.h"
#include "server/engine/JobEnvironment.h"
#include "server/engine/VolumeHost.h"

namespace server {

class BackupContent {
public:
    // Loads the add-ons and reads the manifest. NotFound: the data is not there; Denied: it is
    // protected, and `keys` has nothing that opens it.
    static kit::Result<std::unique_ptr<BackupContent>> Open(const BackupInfo& info,
                                                            const EngineConfig& config,
                                                            const BackupKeys& keys,
                                                            JobReport& report, JobControl& control);

    const archive::Manifest& Manifest() const { return fManifest; }
    KTVolume& Volume() const { return **fVolume; }
    std::unique_ptr<KTCruncherContext> NewContext() const { return (*fCompressor)->NewContext(); }

    // Those that it builds on, the oldest first: all of them, or none, when only its own data is
    // asked for.
    void SetBases(std::vector<std::unique_ptr<BackupContent>> bases) { fBases = std::move(bases); }
    // The one of the chain that CatalogueFrame::source names; null for none.
    const BackupContent* Source(int32_t source) const;

    // --- discs, counted from 1; the last one has everything but the media of those before --------
    int Discs() const { return fManifest.discs; }
    // The disc on which a frame of the chain lies, and which place of the chain it belongs to.
    std::pair<int32_t, int> DiscOf(const CatalogueFrame& frame) const;
    // Whether discs will be asked for: not all are there, of all of the chain.
    bool NeedsDiscs() const;
    // The first one of its own that is not there; 0: all are.
    int MissingDisc() const;
    // Whether one that is missing is asked for.
    bool AsksForDiscs() const { return fCanBeAway; }
    // Returns when this disc is there.
    kit::Status Load(int disc) const;

    // A file of the backup by its name, as it lies there.
    std::unique_ptr<archive::FileSource> File(const std::string& name) const;
    // The plain bytes of one that is sealed in a protected backup, by its name in any other.
    std::unique_ptr<archive::FileSource> SecretFile(const std::string& name) const;
    // The plain bytes of a medium; null where the backup has none of that number.
    archive::FileSource* Medium(int number) const;

    // The content of one of its own frames, whole and with the checksum it had when it was written.
    // Damaged otherwise. `packed` is room that is used again from call to call.
    kit::Status ReadFrame(const CatalogueFrame& frame, KTCruncherContext& context, Bytes* packed,
                          Bytes* content) const;

private:
    class DiscFile;

    BackupContent(const BackupInfo& info, const EngineConfig& config, JobReport& report,
                  JobControl& control);
    kit::Status ReadItsManifest(const BackupInfo& info, const EngineConfig& config);
    std::unique_ptr<archive::FileSource> Plain(std::unique_ptr<archive::FileSource> file) const;
    bool HasDisc(int disc) const;
    std::string FolderOf(int disc) const;

    JobReport& fReport;
    JobControl& fControl;
    const std::chrono::milliseconds fLookAgain;
    const std::string fShown;  // how it is asked for
    const bool fCanBeAway;
    mutable std::mutex fLoading;

    VolumeHost fHost;  // goes after the destination
    std::optional<LoadedAddOn<KTVolume>> fVolume;
    std::optional<LoadedAddOn<KTCruncher>> fCompressor;
    const std::string fFolder;
    std::shared_ptr<const archive::AgeIdentity> fKey;  // of a protected one
    archive::Manifest fManifest;
    std::vector<std::unique_ptr<archive::FileSource>> fMedia;
    std::vector<std::unique_ptr<BackupContent>> fBases;
};

}  // namespace server
