#include "client/mainwindow/Icons.h"

#include <QFile>

// Of a library's resources Qt hears only this way; the macro must stand outside of any namespace.
static void LoadResources() {
    Q_INIT_RESOURCE(icons);
}

namespace client {

QString IconPath(const char* name) {
    [[maybe_unused]] static const bool loaded = (LoadResources(), true);
    return QStringLiteral(":/icons/%1.svg").arg(QLatin1String(name));
}

QIcon IconNamed(const char* name) {
    const QString path = IconPath(name);
    return QFile::exists(path) ? QIcon(path) : QIcon();
}

}  // namespace client
