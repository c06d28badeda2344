// KTJQCompareWindow: edits a compare job that waits. Main thread.
#pragma once

#include "client/jobqueue/KTJQWindow.h"
#include "client/uikit/KTToolView.h"

class KTJQCompareWindow : public KTJQWindow {
    Q_OBJECT
public:
    KTJQCompareWindow(KTToolContext context, const QString& title, QWidget* parentWindow,
                      const BMessage& settings, uint32_t replyCode, BMessenger target);
};
