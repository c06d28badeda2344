// KTCmpSettingWindow: which things of each entry are compared: the job's "compare" message
// ("compareall", "filedata", "attribute", "size", "mdate", "cdate", "symlinkdata", "permissions",
// "uid", "gid", all int32, 1: compare). "compareall" stands for the other nine, which cannot be
// changed while it is on.
#pragma once

#include "client/uikit/KTSetWindow.h"

class QCheckBox;

class KTCmpSettingWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTCmpSettingWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                       uint32_t replyCode, BMessenger target);

    void MessageReceived(BMessage& message) override;

protected:
    void Save(BMessage& settings) override;

private:
    void AllSwitched();

    std::vector<QCheckBox*> fItems;  // the first one is all the others
};
