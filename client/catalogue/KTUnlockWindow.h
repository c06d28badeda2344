// KTUnlockWindow: asks for the password of a backup whose catalogue is still locked, until it is
// right or the user gives up. The settings it is given name the backup ("name", and "title" and
// "date" to show) and may hold whatever the caller wants back. "result" is true when the server has
// opened the catalogue: what was locked can then be asked for again. The password is in no
// settings.
#pragma once

#include "client/app/Inquiry.h"
#include "client/uikit/KTSetWindow.h"
#include "client/uikit/KTToolView.h"

class QLabel;
class QLineEdit;

class KTUnlockWindow : public KTSetWindow {
    Q_OBJECT
public:
    KTUnlockWindow(const KTToolContext& context, QWidget* parentWindow, const BMessage& settings,
                   uint32_t replyCode, BMessenger target);

    void MessageReceived(BMessage& message) override;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void Check();
    void ShowState(int32_t hint);

    const std::string fBackup;
    client::Inquiry fInquiry;
    QLineEdit* fPassword;
    QLabel* fHint;
};
