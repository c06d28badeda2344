// KTBackupView: the backup tool. Full backups take what is marked in the source tree; incremental
// and differential ones build on a full backup chosen from a list. Main thread.
#pragma once

#include "client/backup/KTBackupTool.h"

class KTJobListView;
class KTSourceSelectionView;
class QComboBox;
class QStackedWidget;

class KTBackupView : public KTBackupTool {
    Q_OBJECT
public:
    explicit KTBackupView(KTToolContext context, QWidget* parent = nullptr,
                          const char* name = "backup",
                          std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System());
    ~KTBackupView() override;

    bool CheckStart(bool quiet = false) override;
    void HideStart() override;
    void MessageReceived(BMessage& message) override;

    KTSourceSelectionView* Sources() const { return fSources; }
    KTJobListView* BaseJobs() const { return fBaseJobs; }

protected:
    QString AlertTitle() const override;
    void InitControls() override;
    void SaveSelection() override;
    void InitSelection() override;
    std::string BaseTitle() const override;
    void BeforeSending() override;
    QString Hint() const override;

    void showEvent(QShowEvent* event) override;

private:
    void MakeControls(std::shared_ptr<kit::MountSource> mounts);

    void InitBackupMode();
    void SaveBackupMode();
    void SetBackupModeView();
    void SaveMarks();
    void InitJobListSelection();
    void SaveJobListSelection();

    void ModeChosen(BMessage&);
    void SelectAll(BMessage&);
    void ClearAll(BMessage&);
    void JobsChanged(BMessage& message);

    QComboBox* fMode;
    QStackedWidget* fWhat;
    KTSourceSelectionView* fSources;
    KTJobListView* fBaseJobs;
};
