#include "client/jobqueue/KTJQBackupWindow.h"

#include "client/backup/KTBackupView.h"

KTJQBackupWindow::KTJQBackupWindow(KTToolContext context, const QString& title,
                                   QWidget* parentWindow, const BMessage& settings,
                                   uint32_t replyCode, BMessenger target)
    : KTJQWindow(title, parentWindow, settings, replyCode, target) {
    Embed(new KTBackupView(std::move(context), BkgView(), "bak_job_setttings"),
          settings);  // spelled as it is looked up
}
