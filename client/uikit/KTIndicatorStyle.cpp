#include "client/uikit/KTIndicatorStyle.h"

#include <QApplication>
#include <QStyleOption>

namespace {

const QString kPatched = QStringLiteral("fusion");

// As visible on the dark ground as the usual frame is on a light one.
QColor FrameSource(const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Base), text = palette.color(QPalette::Text);
    const auto middle = [](int a, int b) { return (a + b) / 2; };
    return {middle(ground.red(), text.red()), middle(ground.green(), text.green()),
            middle(ground.blue(), text.blue())};
}

bool IsDark(const QPalette& palette) {
    return palette.color(QPalette::Base).lightness() < palette.color(QPalette::Text).lightness();
}

}  // namespace

KTIndicatorStyle::KTIndicatorStyle() : QProxyStyle(kPatched) {}

void KTIndicatorStyle::Install() {
    if (QApplication::style()->name() == kPatched) QApplication::setStyle(new KTIndicatorStyle);
}

void KTIndicatorStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                     QPainter* painter, const QWidget* widget) const {
    const bool indicator = element == PE_IndicatorCheckBox || element == PE_IndicatorRadioButton;
    const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
    if (!indicator || !button || !IsDark(option->palette))
        return QProxyStyle::drawPrimitive(element, option, painter, widget);
    QStyleOptionButton lighter(*button);
    lighter.palette.setColor(QPalette::Window, FrameSource(option->palette));
    QProxyStyle::drawPrimitive(element, &lighter, painter, widget);
}
