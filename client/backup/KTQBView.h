// KTQBView: the quick backup tool: whole volumes, always a full backup, started at once. Main
// thread.
#pragma once

#include "client/backup/KTBackupTool.h"

class KTVolumeSelectionView;

class KTQBView : public KTBackupTool {
    Q_OBJECT
public:
    explicit KTQBView(KTToolContext context, QWidget* parent = nullptr,
                      const char* name = "quickbackup",
                      std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System());

    bool CheckStart(bool quiet = false) override;
    void MessageReceived(BMessage& message) override;

    KTVolumeSelectionView* Volumes() const { return fVolumes; }

protected:
    QString AlertTitle() const override;
    void InitControls() override;
    void SaveSelection() override;
    void InitSelection() override;
    void BeforeSending() override;

private:
    void SelectAll(BMessage&);
    void ClearAll(BMessage&);

    KTVolumeSelectionView* fVolumes;
};
