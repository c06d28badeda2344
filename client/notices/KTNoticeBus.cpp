#include "client/notices/KTNoticeBus.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFile>

#include "client/app/Product.h"

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
constexpr int kPatience = 5'000;  // milliseconds; nobody waits for it
constexpr uchar kLow = 0, kCritical = 2;
constexpr int kStays = 0, kAsUsual = -1;  // how long, in the desktop's terms

// Bodies may be taken for markup.
QString Escaped(const QString& text) {
    return text.toHtmlEscaped();
}

}  // namespace

QDBusConnection KTNoticeBus::OfSession() {
    // Without an address the library would start a bus of its own.
    const QString own = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/bus";
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") && !QFile::exists(own))
        return QDBusConnection(QString());
    return QDBusConnection::sessionBus();
}

KTNoticeBus::KTNoticeBus(QDBusConnection bus) : fBus(std::move(bus)) {
    if (!fBus.isConnected()) return;
    fBus.connect(kService, kPath, kService, "ActionInvoked", this, SLOT(Invoked(uint, QString)));
    fBus.connect(kService, kPath, kService, "NotificationClosed", this, SLOT(Closed(uint)));
}

void KTNoticeBus::Show(const Notice& notice, int32_t tag) {
    if (!fBus.isConnected()) return;
    QVariantMap hints;
    hints["urgency"] = QVariant::fromValue(notice.urgent ? kCritical : kLow);
    hints["desktop-entry"] = QString::fromLatin1(client::kDesktopFile);
    QStringList actions;
    if (!notice.button.isEmpty()) actions << "default" << notice.button << "show" << notice.button;
    auto call = QDBusMessage::createMethodCall(kService, kPath, kService, "Notify");
    call << QString::fromLatin1(client::kProductName) << 0U
         << QString::fromLatin1(client::kDesktopFile) << notice.summary << Escaped(notice.body)
         << actions << hints << (notice.urgent ? kStays : kAsUsual);
    auto* answer = new QDBusPendingCallWatcher(fBus.asyncCall(call, kPatience), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this,
            [this, tag](QDBusPendingCallWatcher* watcher) {
                const QDBusPendingReply<uint> id = *watcher;
                if (id.isValid()) fShown[id.value()] = tag;
                watcher->deleteLater();
            });
}

void KTNoticeBus::Invoked(uint id, const QString&) {
    const auto shown = fShown.find(id);
    if (shown != fShown.end()) emit Pressed(shown->second);
}

void KTNoticeBus::Closed(uint id) {
    fShown.erase(id);
}
