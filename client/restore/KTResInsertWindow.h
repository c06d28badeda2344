// KTResInsertWindow: chooses backups on a destination that are to be brought back into the
// catalogue. The server scans the destination ('ktvs') as soon as it is chosen; its answer 'ktvd'
// is to be handed to the open window. Main thread.
//
// Settings, as given and as handed back: "addon" and "volume" (the destination, as backup jobs have
// it), "ID" and "title" (string, one for each chosen backup; earlier titles stay in front of the
// new ones), "job_id" (int32: what the first scan is called).
#pragma once

#include <QPointer>
#include <memory>

#include "client/addons/KTDestination.h"
#include "client/restore/KTFoundBackups.h"
#include "client/uikit/KTSetWindow.h"
#include "client/uikit/KTToolView.h"

class QLabel;

class KTResInsertWindow : public KTSetWindow {
    Q_OBJECT
public:
    // What it is opened for: a new choice begins with nothing marked. A job that waits in the queue
    // keeps its "ID" marked, those that are not found at its destination just now, too; its "title"
    // is taken away, as the server takes one for the new title of the job.
    enum class Use { NewChoice, WaitingJob };

    KTResInsertWindow(const KTToolContext& context, const QString& title, QWidget* parentWindow,
                      const BMessage& settings, uint32_t replyCode, BMessenger target,
                      Use use = Use::NewChoice);
    ~KTResInsertWindow() override;

    // 'ktvd'; 'news' and 'dset' of the destination; client::code::kServerGone and kServerBack.
    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;

private:
    enum class State { NoPlace, Scanning, Scanned, NoServer };

    void DestinationChosen();
    void ScanDestination();
    void SetScanResult(const BMessage& answer);
    void SetState(State state);
    void ShowCount();

    ServerLink* fServer;
    const Use fUse;
    KTDestinationJob fJob;
    std::string fScanned;  // add-on and medium of the last scan; "" before the first
    int32_t fScan = 0;     // what that scan is called
    State fState = State::NoPlace;
    // Marked backups that the list does not show just now.
    std::vector<KTFoundBackups::Backup> fUnlisted;

    std::unique_ptr<KTDestination> fDestination;
    KTFoundBackups* fList;
    QLabel* fCount;
};
