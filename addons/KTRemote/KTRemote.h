// KTRemote: a destination that is any remote of the installed rclone. Every backup is a folder in
// it.
//
// Settings, besides "addon": "remote" (string, rclone's "name:path"; no remote that is described on
// the spot, for such a description holds secrets and this string stands in reports), "mediasize"
// (int64, bytes that one file of a backup may have, 0: no limit, else at least 16 MiB),
// "overwrite" (int32).
//
// What may pass (a connection that is down, lost or hung) is tried again a few times, which the
// report tells; nothing waits without end.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <set>

#include "addons/KTRemote/Rclone.h"
#include "addons/KTRemote/RemoteFiles.h"
#include "addons/KTRemote/RemoteReader.h"
#include "addons/KTVolume.h"

class KTRemote : public KTVolume {
public:
    static constexpr char kAddOn[] = "KTRemote";
    // Small enough to be kept here until it has arrived there.
    static constexpr int64_t kUsualMediaSize = int64_t{1} << 30;

    explicit KTRemote(RcloneLimits limits = {});

    int32_t Archive(BMessage* message, bool deep) const override;
    bool IsOverwrite() const override { return fOverwrite; }
    void SetOverwrite(bool overwrite) override { fOverwrite = overwrite; }
    const char* MediaName() const override { return fRemote.c_str(); }
    void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                      const char* language) override;
    void SetSettings(const BMessage& settings) override;
    void GetSettings(BMessage* settings) const override;
    const char* MenuName() const override { return "Remote"; }
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override;

    kit::Status CheckAccess() override;
    kit::Result<KTVolumeSpace> Space() override;
    int64_t MediaSize() const override { return fMediaSize; }
    std::string LocalDirectory() const override { return {}; }
    kit::Status BeginBackup(const std::string& name) override;
    kit::Result<std::unique_ptr<KTVolumeWriter>> CreateFile(const std::string& name,
                                                            const std::string& file) override;
    kit::Status Publish(const std::string& name) override;
    kit::Status RemoveBackup(const std::string& folder) override;
    kit::Result<std::vector<std::string>> ListBackups() override;
    kit::Result<std::vector<KTVolumeFile>> ListFiles(const std::string& folder) override;
    kit::Result<size_t> ReadAt(const std::string& folder, const std::string& file, int64_t offset,
                               std::span<uint8_t> into) override;
    kit::Status WriteRootFile(const std::string& file, std::span<const uint8_t> data) override;
    void SetHost(KTVolumeHost* host) override { fHost = host; }

private:
    std::string PathOf(const std::string& below) const;
    bool IsAborted() const;
    Rclone::Stop Stop() const;
    // Waits, having told why; false when it is of no use any more.
    bool TryAgain(const kit::Error& error, size_t tries) const;
    template <class Call>
    auto Insist(const Call& call) const -> decltype(call());

    kit::Status CheckSettings() const;
    std::unique_ptr<KTVolumeWriter> NewWriter(const std::string& path) const;
    kit::Status PutFile(const std::string& path, std::span<const uint8_t> data) const;
    // A run that prints nothing of use.
    kit::Status Do(const std::vector<std::string>& command, const std::vector<std::string>& paths,
                   RcloneLimits::Time patience) const;
    kit::Result<std::set<std::string>> Folders() const;
    kit::Result<bool> CanMoveFolders();
    kit::Status MoveFolder(const std::string& from, const std::string& to);
    kit::Status Purge(const std::string& folder) const;
    kit::Result<int64_t> SizeIn(const std::string& folder, const std::string& file);
    void ForgetFiles();

    const RcloneLimits fLimits;
    std::string fRemote;
    int64_t fMediaSize = kUsualMediaSize;
    bool fOverwrite = false;
    bool fGerman = false;  // the language that the settings window was last shown in
    std::atomic<KTVolumeHost*> fHost = nullptr;

    std::string fBegun;            // the backup under way
    std::set<std::string> fFiles;  // that it has
    int fMovesFolders = -1;        // -1: not known yet

    std::mutex fMutex;
    std::map<std::string, std::map<std::string, int64_t>> fSizes;  // of folders that were listed
    RemoteReader fReader;
};
