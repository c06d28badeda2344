#include "client/uikit/KTIcons.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

// The resources lie in a static library, where nothing but this call keeps the linker from leaving
// them out. It must stand outside of any name space.
static void InitIcons() {
    Q_INIT_RESOURCE(icons);
}

namespace {

QString PathOf(const char* name) {
    [[maybe_unused]] static const bool once = (InitIcons(), true);
    return QStringLiteral(":/icons/%1.svg").arg(QLatin1String(name));
}

}  // namespace

QIcon KTIcons::Get(const char* name) {
    const QString path = PathOf(name);
    return QFile::exists(path) ? QIcon(path) : QIcon();
}

QPixmap KTIcons::Picture(const char* name, QSize size, qreal ratio) {
    QPixmap picture(size * ratio);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    QSvgRenderer(PathOf(name)).render(&painter);
    painter.end();
    picture.setDevicePixelRatio(ratio);
    return picture;
}
