// KTBackupTool: what the backup tools share: the job, its destination and compressor, job files and
// their panels, the start dialog, the overwrite question and the sending. Main thread.
//
// Starting goes: 'sbak' checks the job and opens the start dialog; its answer 'bsqt' brings
// "start_info"; where the destination is set to overwrite, the user is asked; the job is posted to
// the application.
#pragma once

#include <future>
#include <memory>

#include "client/backup/KTBackupJob.h"
#include "client/backup/KTBackupTargets.h"
#include "client/uikit/KTToolView.h"
#include "kit/storage/BVolume.h"

class KTBackupTool : public KTToolView {
    Q_OBJECT
public:
    ~KTBackupTool() override;

    void GetPref(BMessage* settings) override;
    void SetPref(const BMessage& settings) override;
    // A job file, or a selection file, which fills only the selection. What it is its magic tells.
    void SetPref(const entry_ref& file) override;
    bool HasJob() const override { return true; }
    const BMessage& Job() const { return fJob.Data(); }

    // Whether the job is complete and valid; tells the user what is missing, and stores what is
    // marked in the job.
    virtual bool CheckStart() = 0;

    // 0: good; else the number of the failing step (core/files/HeaderFile.h).
    int32_t SaveJobData(const BMessage& panelAnswer);
    int32_t LoadJobData(const entry_ref& file, BMessage* job) const;

    void MessageReceived(BMessage& message) override;

protected:
    KTBackupTool(const char* name, KTToolContext context, QWidget* parent,
                 std::shared_ptr<kit::MountSource> mounts);

    // Makes the destination and compressor controls in the tool's grid.
    void MakeTargets(QGridLayout* grid, int firstRow);
    KTBackupTargets& Targets() { return *fTargets; }

    virtual QString AlertTitle() const = 0;
    virtual void InitControls() = 0;                            // all of them, from the job
    virtual void SaveSources() = 0;                             // what is marked, into the job
    virtual void ShowSelection(const BMessage& selection) = 0;  // a selection file's
    virtual std::string BaseTitle() const { return {}; }        // other than full backups
    virtual void BeforeSending() {}                             // last look at the controls
    virtual void BootVolumeKnown(const std::string& name) { (void)name; }

    void Alert(int32_t textId);

    KTBackupJob fJob;

    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void DestinationChosen(BMessage&);
    void PackerChosen(BMessage&);
    void DestinationSettings(BMessage&);
    void PackerSettings(BMessage&);
    void BackupStart(BMessage&);
    void StartAnswered(BMessage& message);
    void OpenSavePanel(BMessage&);
    void OpenLoadPanel(BMessage&);
    void SavePanelAnswered(BMessage& message);
    void LoadPanelAnswered(BMessage& message);
    void PanelCancelled(BMessage& message);
    void BootVolume(BMessage& message);
    // False: the user takes the start back.
    bool AskOverwrite();
    void Backup();
    void FileProblem(int32_t textId, const std::string& path);

    std::unique_ptr<KTBackupTargets> fTargets;
    // Looking at the volumes may take a while: a worker does it when the tool opens.
    std::shared_future<std::string> fBootVolume;
};
