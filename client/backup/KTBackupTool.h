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

class QLabel;
class QMenu;

class KTBackupTool : public KTJobTool {
    Q_OBJECT
public:
    ~KTBackupTool() override;

    BMessage FinishedJob() override;
    bool ConfirmEdit() override;
    void HideStart() override;
    void MessageReceived(BMessage& message) override;

protected:
    KTBackupTool(const char* name, KTToolContext context, QWidget* parent,
                 std::shared_ptr<kit::MountSource> mounts);

    // Makes the destination and compressor controls in the tool's grid.
    void MakeTargets(QGridLayout* grid, int firstRow);
    KTBackupTargets& Targets() { return *fTargets; }
    // "btn_start".
    QPushButton* MakeStartButton();
    // "backuppopup", of the right mouse button: all, none, start.
    QMenu* MakePopUpMenu(const QString& start);
    // "str_hint", a line that says what Hint() does; ShowHint() when that has changed.
    QLabel* MakeHint();
    void ShowHint();
    virtual QString Hint() const;  // that /var is left out, as soon as the volume's name is known

    KTJob& OwnJob() override { return fJob; }
    virtual std::string BaseTitle() const { return {}; }  // other than full backups
    virtual void BeforeSending() {}                       // last look at the controls

    void contextMenuEvent(QContextMenuEvent* event) override;

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

    std::unique_ptr<KTBackupTargets> fTargets;
    // Looking at the volumes may take a while: a worker does it when the tool opens.
    std::shared_future<std::string> fBootVolume;
    std::string fBootName;  // empty until it is known
    QPushButton* fStart = nullptr;
    QMenu* fPopUp = nullptr;
    QLabel* fHint = nullptr;
};
