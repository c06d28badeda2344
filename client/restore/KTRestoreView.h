// KTRestoreView: the restore tool: the catalogue in which the user marks what to restore, beside it
// a browser of directories to send it to, and the controls. Its dialogs are not modal and follow
// the marks while they are open. Main thread.
#pragma once

#include <future>

#include "client/catalogue/KTCatalogueTool.h"
#include "client/restore/KTRestoreJob.h"
#include "kit/storage/BVolume.h"

class KTFolderView;
class KTRestoreSelectionView;
class QPushButton;
class QScrollArea;

class KTRestoreView : public KTCatalogueTool {
    Q_OBJECT
public:
    explicit KTRestoreView(KTToolContext context, QWidget* parent = nullptr,
                           const char* name = "restore",
                           std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System());
    ~KTRestoreView() override;

    void MessageReceived(BMessage& message) override;

    void HideStart() override;

    KTRestoreSelectionView* Catalogue() const { return fCatalogue; }

protected:
    KTJob& OwnJob() override { return fJob; }
    QString AlertTitle() const override;
    void InitControls() override;
    void StartShown() override;

private:
    void MakeControls();
    void SetPWList();
    void TellLanding();

    void OpenSettings(BMessage&);
    void SettingsAnswered(BMessage& message);
    void Divert(BMessage& message);
    void InitDivert();

    void DeleteRequest(BMessage&);
    void DeleteAnswered(BMessage& message);
    void Delete();

    void OpenInsert(BMessage&);
    void InsertAnswered(BMessage& message);
    void InsertStart();
    void InsertStartAnswered(BMessage& message);
    void Insert();
    void ToInsertWindow(BMessage& message);
    void ServerNotice(BMessage& message);
    void SelectionChanged(BMessage&);
    void ToCatalogue(BMessage& message);

    KTRestoreJob fJob;
    KTRestoreSelectionView* fCatalogue;
    QScrollArea* fRedirect;
    QPushButton* fInsert;
    QPushButton* fDelete;
    QPushButton* fSettings;
    QPushButton* fStart;
    // Looking at the volumes may take a while: a worker does it when the tool opens.
    std::shared_future<std::vector<BVolume>> fVolumes;
};
