#include "client/app/About.h"

#include <QString>

#include "client/app/Product.h"
#include "client/uikit/KTAlert.h"

namespace client {

QString AboutText() {
    return QStringLiteral("%1 %2.0%3 RELEASE\n\n%4\n%5")
        .arg(QString::fromLatin1(kProductName).toUpper())
        .arg(kMajorVersion)
        .arg(kMinorVersion)
        .arg(QLatin1String(kMaker), QLatin1String(kCopyright));
}

void ShowAbout(QWidget* parent) {
    KTAlert(parent, "About...", AboutText(), {"OK"});
}

}  // namespace client
