#include "client/notices/KTNotices.h"

#include "client/app/ClientCodes.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"

namespace {

constexpr int32_t kNoReport = 0;

// The words for a job's end; 0: not worth a notice, because the user did it.
int32_t WordsFor(core::JobEnd end) {
    switch (end) {
        case core::JobEnd::Good:
            return core::kMoreNoticeGood;
        case core::JobEnd::Aborted:
            return 0;
        case core::JobEnd::Errors:
            return core::kMoreNoticeErrors;
        case core::JobEnd::Abnormal:
            return core::kMoreNoticeAbnormal;
    }
    return 0;
}

}  // namespace

KTNotices::KTNotices(std::function<bool()> isWatched, BMessenger window, QDBusConnection bus)
    : fIsWatched(std::move(isWatched)), fBus(std::move(bus)) {
    connect(&fBus, &KTNoticeBus::Pressed, this, [window](int32_t report) {
        BMessage show(report == kNoReport ? client::code::kRaise : client::code::kShowReport);
        if (report != kNoReport) show.Add("report_id", report);
        window.SendMessage(std::move(show));
    });
}

void KTNotices::ReportInserted(const BMessage& notice) {
    const auto end = notice.Find<int32_t>("status");
    const bool overdue = notice.Get("overdue", false);
    if (!end && !overdue) return;
    // What has not happened is told even to who looks at what happens.
    if (!overdue && fIsWatched()) return;
    const int32_t words =
        overdue ? core::kMoreNoticeOverdue : WordsFor(static_cast<core::JobEnd>(*end));
    if (words == 0) return;
    const std::string title = notice.Get("title", std::string());
    KTNoticeBus::Notice shown;
    shown.summary = title.empty() ? KTControl::Text(core::text::kNoTitle) : KTControl::Shown(title);
    shown.body = KTControl::Text(core::JobTypeTextId(notice.Get<int32_t>("job_type", 0))) + ": " +
                 KTControl::Text(words);
    shown.button = KTControl::Text(core::kMoreShowReport);
    shown.urgent = words != core::kMoreNoticeGood;
    fBus.Show(shown, notice.Get<int32_t>("report_id", kNoReport));
}

void KTNotices::ServerGone(int running) {
    if (running == 0 || fIsWatched()) return;
    fBus.Show({KTControl::Text(core::kMoreNoticeServerGone),
               KTControl::Text(core::kMoreNoticeServerGoneMore),
               {},
               true},
              kNoReport);
}
