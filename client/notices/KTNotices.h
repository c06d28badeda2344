// KTNotices: which of the server's notices about reports the user is told of on the desktop, and
// how: a job that went well quietly, one that did not so that it stays, each with the way to its
// report. Main thread.
#pragma once

#include <functional>

#include "client/notices/KTNoticeBus.h"
#include "kit/message/BMessage.h"
#include "kit/message/BMessenger.h"

class KTNotices : public QObject {
    Q_OBJECT
public:
    // `isWatched`: the user sees the running jobs anyway, so that nothing need be said. `window`
    // gets 'RPSH' with "report_id" when a report is asked for.
    KTNotices(std::function<bool()> isWatched, BMessenger window,
              QDBusConnection bus = KTNoticeBus::OfSession());

    void ReportInserted(const BMessage& notice);  // 'rpIN'
    // The server is gone while jobs were running.
    void ServerGone(int running);

private:
    const std::function<bool()> fIsWatched;
    KTNoticeBus fBus;
};
