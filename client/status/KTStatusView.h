// KTStatusView: the panel of one job, named by the job's id. It answers the job-start message with
// its own messenger; from then on the server sends it the job's progress and end. Main thread.
#pragma once

#include <QFrame>
#include <chrono>
#include <memory>

#include "client/status/KTStatusText.h"
#include "kit/app/BHandler.h"

class KTElidedLabel;
class KTPulseUtil;
class QGridLayout;
class QGroupBox;
class QLabel;
class QProgressBar;
class QToolButton;
class ServerLink;

class KTStatusView : public QFrame, public BHandler {
    Q_OBJECT
public:
    // `window` gets 'svrm' with "name" when the panel is to go. Both outlive it.
    KTStatusView(const BMessage& jobStart, const BHandler* window, ServerLink* server);
    ~KTStatusView() override;

    static std::string NameFor(int32_t jobId) { return std::to_string(jobId); }

    // How long a finished job's panel stays; 0 counts as one second.
    void SetTimeout(int32_t seconds);
    // Whether it goes by itself. Switched on for a finished job, its time starts now.
    void EnableTimeout(bool enable);
    bool IsFinished() const { return fText.Ended() != KTStatusText::Outcome::Running; }
    // The server is gone, and its job with it.
    void ServerGone();

    void MessageReceived(BMessage& message) override;

protected:
    void changeEvent(QEvent* event) override;

private:
    static QLabel* AddRow(QGridLayout* grid, int row, int column, const QString& label,
                          const char* name);
    void MakeContents();
    void JobStart(BMessage& message);
    void UpdateStatus(BMessage& message);
    void JobFinished(BMessage& message);
    void Remove(BMessage& message);
    void Finish(int32_t status);
    void StartTimer();
    void Show();
    void SetColors();

    KTStatusText fText;
    const BHandler* fWindow;
    ServerLink* fServer;
    bool fAutoRemove = false;
    std::chrono::microseconds fRemoveDelay{1'000'000};
    std::unique_ptr<KTPulseUtil> fTimer;

    QGroupBox* fBox;
    KTElidedLabel* fStatusLine;
    QLabel *fFilesDone, *fFilesTotal, *fBytesDone, *fBytesTotal, *fElapsed, *fRemain;
    KTElidedLabel* fFileName;
    QProgressBar* fBar;
    QLabel* fSpeed;
    QToolButton* fClose;
};
