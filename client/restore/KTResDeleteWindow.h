// KTResDeleteWindow: confirms that backups are to be deleted, and whether with their data: the
// job's "res_delete" message ("deletedata", int32). SetText lists them.
#pragma once

#include "client/uikit/KTMultiRequest.h"

class QCheckBox;

class KTResDeleteWindow : public KTMultiRequest {
    Q_OBJECT
public:
    KTResDeleteWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                      uint32_t replyCode, BMessenger target);

protected:
    void Save(BMessage& settings) override;

private:
    QCheckBox* fDeleteData;
};
