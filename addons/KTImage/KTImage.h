// KTImage: a destination that is a directory of this machine. Every backup is a folder in it.
//
// Settings, besides "addon": "path" (string), "mediasize" (int64, bytes that one file of a backup
// may have, 0: no limit, else at least 16 MiB), "overwrite" (int32), and where
// it was put in by hand "removable" (int32): whatever is mounted there may be changed, as a disc.
#pragma once

#include "addons/KTVolume.h"

class KTImage : public KTVolume {
public:
    static constexpr char kAddOn[] = "KTImage";

    int32_t Archive(BMessage* message, bool deep) const override;
    bool IsOverwrite() const override { return fOverwrite; }
    void SetOverwrite(bool overwrite) override { fOverwrite = overwrite; }
    const char* MediaName() const override { return fPath.c_str(); }
    void ShowSettings(KTSettingsHost* parent, const BMessenger& target,
                      const char* language) override;
    void SetSettings(const BMessage& settings) override;
    void GetSettings(BMessage* settings) const override;
    const char* MenuName() const override { return "Image"; }
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override;

    kit::Status CheckAccess() override;
    kit::Result<KTVolumeSpace> Space() override;
    int64_t MediaSize() const override { return fMediaSize; }
    std::string LocalDirectory() const override { return fPath; }
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
    kit::Status ClosePart(const std::string& name, const std::string& folder,
                          const std::vector<std::string>& files) override;

private:
    std::string fPath;
    int64_t fMediaSize = 0;
    bool fOverwrite = false;
    bool fRemovable = false;
    bool fGerman = false;  // the language that the settings window was last shown in
};
