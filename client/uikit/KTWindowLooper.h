// The Qt main thread as a looper: every window and view of the client is a handler of it. Messages
// are dispatched between Qt's own events, a few at a time, so that a flood of them cannot stop
// painting.
#pragma once

#include <QBasicTimer>
#include <QObject>
#include <atomic>

#include "kit/app/BLooper.h"

class KTWindowLooper : public QObject, public BLooper {
    Q_OBJECT
public:
    KTWindowLooper();
    ~KTWindowLooper() override;

    // While held, messages stay queued (a question to the server is open). Nests.
    void Hold();
    void Release();

protected:
    bool event(QEvent* event) override;

private:
    void Drain();
    int fHeld = 0;
    // A drain is on its way: further messages need not wake the thread again.
    std::atomic<bool> fAwake = false;
    QBasicTimer fNext;
};

// The client's one window looper; made in main before any view, never null while views live.
KTWindowLooper* WindowLooper();
