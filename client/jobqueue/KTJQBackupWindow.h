// KTJQBackupWindow: edits a backup job that waits. Main thread.
#pragma once

#include "client/jobqueue/KTJQWindow.h"
#include "client/uikit/KTToolView.h"

class KTJQBackupWindow : public KTJQWindow {
    Q_OBJECT
public:
    KTJQBackupWindow(KTToolContext context, const QString& title, QWidget* parentWindow,
                     const BMessage& settings, uint32_t replyCode, BMessenger target);
};
