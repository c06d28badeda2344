// KTJobSettingWindow: the settings of the job queue tool: which columns its list shows. Main
// thread.
#pragma once

#include "client/jobqueue/KTJobListView.h"
#include "client/uikit/KTSetWindow.h"

class KTJobSettingWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTJobSettingWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                       uint32_t replyCode, BMessenger target);

    // Whether these settings ask for the column. The title is always there.
    static bool Shows(const BMessage& settings, KTJobListView::Column column);

protected:
    void Save(BMessage& settings) override;

private:
};
