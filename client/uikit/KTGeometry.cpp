#include "client/uikit/KTGeometry.h"

#include <QGuiApplication>
#include <QScreen>
#include <algorithm>
#include <cmath>

namespace {

constexpr float kFurthest = 32000;
constexpr int kGrip = 48;  // what must stay in reach of the mouse

int Pixel(float value) {
    if (!std::isfinite(value)) return 0;
    return static_cast<int>(std::lround(std::clamp(value, -kFurthest, kFurthest)));
}

}  // namespace

namespace KTGeometry {

QRect FromRect(const BRect& rect) {
    return {QPoint(Pixel(rect.left), Pixel(rect.top)),
            QPoint(Pixel(rect.right), Pixel(rect.bottom))};
}

BRect ToRect(const QRect& rect) {
    return {static_cast<float>(rect.left()), static_cast<float>(rect.top()),
            static_cast<float>(rect.right()), static_cast<float>(rect.bottom())};
}

QPoint Reachable(const QWidget* window, QPoint wanted) {
    const QSize size = window->size();
    const QScreen* screen = QGuiApplication::screenAt(wanted + QPoint(size.width() / 2, kGrip / 2));
    if (!screen) screen = QGuiApplication::screenAt(wanted);
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen) return wanted;
    const QRect room = screen->availableGeometry();
    const int left = room.left() + std::min(0, kGrip - size.width());
    return {std::clamp(wanted.x(), left, std::max(left, room.right() - kGrip)),
            std::clamp(wanted.y(), room.top(), std::max(room.top(), room.bottom() - kGrip))};
}

BRect RelativeTo(const QWidget* window, const QWidget* parent) {
    const QPoint origin = parent ? parent->window()->pos() : QPoint();
    return ToRect(QRect(window->pos() - origin, window->size()));
}

void PlaceRelativeTo(QWidget* window, const QWidget* parent, const BRect& offset) {
    const QPoint origin = parent ? parent->window()->pos() : QPoint();
    window->move(Reachable(window, origin + FromRect(offset).topLeft()));
}

void PlaceOver(QWidget* window, const QWidget* parent) {
    if (!parent) return;
    const QRect frame = parent->window()->frameGeometry();
    QPoint corner = frame.center() - QPoint(window->width() / 2, window->height() / 2);
    // A place that nobody chose shows all of the window, if the screen is large enough for it.
    if (const QScreen* screen = parent->window()->screen()) {
        const QRect room = screen->availableGeometry();
        corner.setX(
            std::max(std::min(corner.x(), room.right() + 1 - window->width()), room.left()));
        corner.setY(
            std::max(std::min(corner.y(), room.bottom() + 1 - window->height()), room.top()));
    }
    window->move(Reachable(window, corner));
}

}  // namespace KTGeometry
