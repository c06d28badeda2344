#include "client/uikit/KTIndicatorStyle.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QStyleOptionButton>

namespace {

// The greatest difference in lightness between an empty box or button and the ground it is on.
int Contrast(const QStyle& style, QStyle::PrimitiveElement element, int ground, int text) {
    QStyleOptionButton option;
    option.rect = QRect(2, 2, 14, 14);
    option.state = QStyle::State_Enabled | QStyle::State_Off;
    option.palette = QPalette(QColor(ground, ground, ground));
    for (const auto role : {QPalette::Window, QPalette::Base})
        option.palette.setColor(role, QColor(ground, ground, ground));
    for (const auto role : {QPalette::WindowText, QPalette::Text})
        option.palette.setColor(role, QColor(text, text, text));
    QImage image(18, 18, QImage::Format_RGB32);
    image.fill(QColor(ground, ground, ground));
    QPainter painter(&image);
    style.drawPrimitive(element, &option, &painter, nullptr);
    painter.end();
    int most = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            most = std::max(most, std::abs(image.pixelColor(x, y).lightness() - ground));
    }
    return most;
}

TEST(KTIndicatorStyle, EmptyBoxesAreSeenOnLightAndDark) {
    const KTIndicatorStyle style;
    for (const auto element : {QStyle::PE_IndicatorCheckBox, QStyle::PE_IndicatorRadioButton,
                               QStyle::PE_IndicatorItemViewItemCheck}) {
        EXPECT_GT(Contrast(style, element, 34, 238), 50) << element;
        EXPECT_GT(Contrast(style, element, 250, 0), 50) << element;
    }
}

}  // namespace
