// KTBackupTool: what the backup tools share: the job, its destination and compressor, the start
// dialog, the overwrite question and the sending. Main thread.
//
// Starting goes: 'sbak' checks the job and opens the start dialog; its answer 'bsqt' brings
// "start_info"; where the destination is set to overwrite, the user is asked; the job is posted to
// the application.
#pragma once

#include <future>
#include <memory>

#include "client/backup/KTBackupJob.h"
#include "client/backup/KTBackupTargets.h"
#include "client/job/KTJobTool.h"
#include "kit/storage/BVolume.h"

class KTBackupTool : public KTJobTool {
    Q_OBJECT
public:
    ~KTBackupTool() override;

    // Whether the job is complete and valid; tells the user what is missing, and stores what is
    // marked in the job.
    virtual bool CheckStart() = 0;

    void MessageReceived(BMessage& message) override;

protected:
    KTBackupTool(const char* name, KTToolContext context, QWidget* parent,
                 std::shared_ptr<kit::MountSource> mounts);

    // Makes the destination and compressor controls in the tool's grid.
    void MakeTargets(QGridLayout* grid, int firstRow);
    KTBackupTargets& Targets() { return *fTargets; }

    KTJob& OwnJob() override { return fJob; }
    virtual std::string BaseTitle() const { return {}; }  // other than full backups
    virtual void BeforeSending() {}                       // last look at the controls
    virtual void BootVolumeKnown(const std::string& name) { (void)name; }

    KTBackupJob fJob;

private:
    void DestinationChosen(BMessage&);
    void PackerChosen(BMessage&);
    void DestinationSettings(BMessage&);
    void PackerSettings(BMessage&);
    void BackupStart(BMessage&);
    void StartAnswered(BMessage& message);
    void BootVolume(BMessage& message);
    // False: the user takes the start back.
    bool AskOverwrite();
    void Backup();

    std::unique_ptr<KTBackupTargets> fTargets;
    // Looking at the volumes may take a while: a worker does it when the tool opens.
    std::shared_future<std::string> fBootVolume;
};
