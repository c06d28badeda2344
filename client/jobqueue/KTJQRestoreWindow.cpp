#include "client/jobqueue/KTJQRestoreWindow.h"

#include "client/restore/KTRestoreView.h"

KTJQRestoreWindow::KTJQRestoreWindow(KTToolContext context, const QString& title,
                                     QWidget* parentWindow, const BMessage& settings,
                                     uint32_t replyCode, BMessenger target)
    : KTJQWindow(title, parentWindow, settings, replyCode, target) {
    Embed(new KTRestoreView(std::move(context), BkgView(), "res_job_setttings"),
          settings);  // spelled as it is looked up
}
