// KTStatusSettingWindow: the settings of the status window: when it opens and closes, and what
// becomes of finished jobs. Keys: "autoopen", "autoclose", "removeitems", "removedelay",
// "followmain", all int32.
#pragma once

#include "client/uikit/KTSetWindow.h"

class QCheckBox;
class QLineEdit;

class KTStatusSettingWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTStatusSettingWindow(QWidget* parentWindow, const BMessage& settings, uint32_t replyCode,
                          BMessenger target);

    void MessageReceived(BMessage& message) override;

    // The number at the start of a text, as far as digits go; nothing when it begins with none.
    static std::optional<int32_t> Delay(const std::string& text);

protected:
    void Save(BMessage& settings) override;

private:
    void CheckDelay(const BMessage& message);

    QCheckBox* fRemoveItems;
    QLineEdit* fRemoveDelay;
};
