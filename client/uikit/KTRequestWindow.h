// KTRequestWindow: a question with up to three buttons ("btn0" to "btn2"). Not modal. When it
// closes, the reply message goes to the target with "which" (int32): the pressed button, -1 when it
// was closed without one. With several buttons the last one ("No", "Cancel") is the default: what
// destroys never is.
#pragma once

#include <QDialog>

#include "kit/app/BHandler.h"
#include "kit/message/BMessenger.h"

class KTRequestWindow : public QDialog, public BHandler {
    Q_OBJECT
public:
    KTRequestWindow(const QString& title, const QString& text, QWidget* parentWindow,
                    BMessenger target, const BMessage& reply, const QStringList& buttons);

    void MessageReceived(BMessage& message) override;  // 'btn0' 'btn1' 'btn2', '_QRQ'

protected:
    void closeEvent(QCloseEvent* event) override;
    void reject() override;
    void showEvent(QShowEvent* event) override;

private:
    BMessage fReply;
    BMessenger fTarget;
    int32_t fWhich = -1;
    bool fAnswered = false;
    bool fPlaced = false;
};
