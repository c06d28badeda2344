#include "client/jobqueue/KTJQCompareWindow.h"

#include "client/compare/KTCompareView.h"

KTJQCompareWindow::KTJQCompareWindow(KTToolContext context, const QString& title,
                                     QWidget* parentWindow, const BMessage& settings,
                                     uint32_t replyCode, BMessenger target)
    : KTJQWindow(title, parentWindow, settings, replyCode, target) {
    Embed(new KTCompareView(std::move(context), BkgView(), "cmp_job_setttings"),
          settings);  // spelled as it is looked up
}
