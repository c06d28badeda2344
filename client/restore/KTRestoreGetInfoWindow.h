// KTRestoreGetInfoWindow: the details of one row of the catalogue, to read and to copy. Made of the
// pairs of an info message: "RESINFOSPALTE1" (label) and "RESINFOSPALTE2" (value), strings at equal
// indexes. Not modal; gone when closed.
#pragma once

#include <QDialog>

#include "kit/message/BMessage.h"

class KTRestoreGetInfoWindow : public QDialog {
    Q_OBJECT
public:
    KTRestoreGetInfoWindow(const BMessage& info, QWidget* parent);

protected:
    void showEvent(QShowEvent* event) override;

private:
    bool fPlaced = false;
};
