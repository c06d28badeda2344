// KTIndicatorStyle: Qt's own style, but with boxes and radio buttons that can be seen on dark
// grounds: it draws their frames in a darker shade of the window's colour, whatever that is.
#pragma once

#include <QProxyStyle>

class KTIndicatorStyle : public QProxyStyle {
    Q_OBJECT
public:
    KTIndicatorStyle();

    // Makes it the style of the program, where the desktop does not bring another one than Qt's.
    static void Install();

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
};
