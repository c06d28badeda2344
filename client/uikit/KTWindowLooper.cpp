#include "client/uikit/KTWindowLooper.h"

#include <QCoreApplication>
#include <QEvent>

namespace {

constexpr int kMessagesAtATime = 16;

KTWindowLooper* gWindowLooper = nullptr;

QEvent::Type WakeEvent() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

}  // namespace

KTWindowLooper* WindowLooper() {
    return gWindowLooper;
}

KTWindowLooper::KTWindowLooper() : BLooper("window") {
    gWindowLooper = this;
    OnPosted([this] {
        if (!fAwake.exchange(true)) QCoreApplication::postEvent(this, new QEvent(WakeEvent()));
    });
}

KTWindowLooper::~KTWindowLooper() {
    Stop();  // from here on nobody wakes what is about to go
    gWindowLooper = nullptr;
}

void KTWindowLooper::Hold() {
    ++fHeld;
}

void KTWindowLooper::Release() {
    if (--fHeld == 0) fNext.start(0, this);
}

bool KTWindowLooper::event(QEvent* event) {
    if (event->type() == WakeEvent() ||
        (event->type() == QEvent::Timer &&
         static_cast<QTimerEvent*>(event)->timerId() == fNext.timerId())) {
        Drain();
        return true;
    }
    return QObject::event(event);
}

void KTWindowLooper::Drain() {
    // Going on is left to a timer: Qt works off posted events in one go, so posting oneself another
    // would never let it come back to painting. It is started first, because a handler may run an
    // event loop of its own (an alert), in which the messages behind it must go on; and anew,
    // because Qt does not fire a timer again within its own event.
    fNext.start(0, this);
    for (int i = 0; i < kMessagesAtATime && fHeld == 0; ++i) {
        if (DispatchPending(1)) continue;
        // What is queued from here on wakes us; what came just before is seen by the second look.
        fAwake = false;
        if (!DispatchPending(0)) {
            fNext.stop();
            return;
        }
        fAwake = true;
    }
    if (fHeld > 0) fNext.stop();  // Release goes on
}
