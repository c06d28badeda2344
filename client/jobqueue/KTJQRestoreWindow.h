// KTJQRestoreWindow: edits a restore job that waits. Main thread.
#pragma once

#include "client/jobqueue/KTJQWindow.h"
#include "client/uikit/KTToolView.h"

class KTJQRestoreWindow : public KTJQWindow {
    Q_OBJECT
public:
    KTJQRestoreWindow(KTToolContext context, const QString& title, QWidget* parentWindow,
                      const BMessage& settings, uint32_t replyCode, BMessenger target);
};
