#include "client/selection/SourceIcons.h"

#include <QHash>
#include <QMimeDatabase>
#include <QPainter>

#include "client/uikit/KTIcons.h"

namespace {

QIcon Themed(const QString& name, const char* own) {
    const QIcon themed = QIcon::fromTheme(name);
    return themed.isNull() ? KTIcons::Get(own) : themed;
}

QIcon ForType(const QString& ending) {
    const QMimeType type =
        QMimeDatabase().mimeTypeForFile("name" + ending, QMimeDatabase::MatchExtension);
    const QIcon icon = QIcon::fromTheme(type.iconName());
    if (!icon.isNull()) return icon;
    return Themed(type.genericIconName(), "file");
}

// The icon with a small arrow in its corner.
QIcon Linked(const QIcon& icon) {
    QIcon linked;
    for (const int size : {16, 32, 48}) {
        QPixmap picture = icon.pixmap(QSize(size, size), 1.0);
        QPainter painter(&picture);
        const int part = size * 9 / 16;
        painter.drawPixmap(0, size - part, KTIcons::Picture("link", {part, part}));
        painter.end();
        linked.addPixmap(picture);
    }
    return linked;
}

}  // namespace

QIcon SourceIcons::For(SourceKind kind, std::string_view name) {
    switch (kind) {
        case SourceKind::Volume: {
            static const QIcon icon = Themed("drive-harddisk", "volume");
            return icon;
        }
        case SourceKind::Directory: {
            static const QIcon icon = Themed("folder", "folder");
            return icon;
        }
        case SourceKind::DirectoryLink: {
            static const QIcon icon = Linked(Themed("folder", "folder"));
            return icon;
        }
        case SourceKind::FileLink: {
            static const QIcon icon = Linked(Themed("text-x-generic", "file"));
            return icon;
        }
        case SourceKind::File:
            break;
    }
    // A name can end in anything; the known endings are few.
    constexpr size_t kLongestEnding = 12;
    constexpr qsizetype kMostEndings = 1000;
    static QHash<QString, QIcon> known;
    const size_t dot = name.rfind('.');
    QString ending;
    if (dot != std::string_view::npos && dot > 0 && name.size() - dot <= kLongestEnding)
        ending = QString::fromUtf8(name.data() + dot, static_cast<qsizetype>(name.size() - dot))
                     .toLower();
    const auto found = known.constFind(ending);
    if (found != known.constEnd()) return *found;
    if (known.size() >= kMostEndings) known.clear();
    return *known.insert(ending, ForType(ending));
}
