// KTNoticeBus: notices of the desktop (org.freedesktop.Notifications) on a message bus. With no
// bus, or nobody on it who shows notices, nothing happens and nothing waits. Main thread.
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <map>

class KTNoticeBus : public QObject {
    Q_OBJECT
public:
    struct Notice {
        QString summary, body;  // plain text
        QString button;         // of the only action; empty: none. A press on the notice is as good
        bool urgent = false;    // stays until it is closed
    };

    // The user's own bus, unless there is none.
    static QDBusConnection OfSession();
    explicit KTNoticeBus(QDBusConnection bus = OfSession());

    // `tag` comes back by Pressed.
    void Show(const Notice& notice, int32_t tag);

signals:
    void Pressed(int32_t tag);

private slots:
    void Invoked(uint id, const QString& action);
    void Closed(uint id);

private:
    QDBusConnection fBus;
    std::map<uint, int32_t> fShown;  // tags by what the desktop calls its notices
};
