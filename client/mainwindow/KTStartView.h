// KTStartView: the page that the main window shows while no tool is open: logo, maker, version,
// "Quit".
#pragma once

#include <QPixmap>

#include "client/uikit/KTView.h"
#include "kit/app/BHandler.h"

class QPushButton;

class KTStartView : public KTView {
    Q_OBJECT
public:
    // `window` gets '_QRQ' from the button.
    KTStartView(const BHandler* window, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;
    // A new height alone redraws nothing but what it uncovers.
    void resizeEvent(QResizeEvent* event) override;

private:
    void PlaceButton();
    QPushButton* fQuit;
    QPixmap fLogo;  // drawn for the screen that the window is on
};
