#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

// A notification server that records what it is asked and hands out ids; list it in SOURCES, for moc.
class FakeNotifications : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    // A line a call: "41 <- 0 Low: 62 ↘ | body | snooze-30,… | urgency 2 device dialog-warning icon" (the
    // id handed out, the one it replaces, the hints), or "close 41".
    QStringList calls;

    ~FakeNotifications() override
    {
        if (m_bus.isConnected())
            m_bus.unregisterService(service());
    }

    bool serveOn(const QDBusConnection &bus)
    {
        m_bus = bus;
        return m_bus.registerObject(path(), this, QDBusConnection::ExportAllSlots) &&
               m_bus.registerService(service());
    }

    // What a click on an action's button sends.
    bool invokeAction(uint id, const QString &action)
    {
        return m_bus.send(QDBusMessage::createSignal(path(), service(), QStringLiteral("ActionInvoked"))
                          << id << action);
    }

public Q_SLOTS:
    uint Notify(const QString &, uint replaces, const QString &, const QString &summary, const QString &body,
                const QStringList &actions, const QVariantMap &hints, int)
    {
        const uint id = replaces ? replaces : uint(41 + calls.size());
        calls.append(QStringLiteral("%1 <- %2 %3 | %4 | %5 | urgency %6 %7 %8")
                         .arg(id)
                         .arg(replaces)
                         .arg(summary, body, actions.join(u','))
                         .arg(hints.value(QStringLiteral("urgency"), -1).toInt())
                         .arg(hints.value(QStringLiteral("category")).toString(),
                              hints.value(QStringLiteral("sound-name")).toString()) +
                     (hints.contains(QStringLiteral("image-data")) ? QStringLiteral(" icon") : QString()));
        return id;
    }
    void CloseNotification(uint id) { calls.append(QStringLiteral("close %1").arg(id)); }

private:
    static QString service() { return QStringLiteral("org.freedesktop.Notifications"); }
    static QString path() { return QStringLiteral("/org/freedesktop/Notifications"); }

    QDBusConnection m_bus{QString()};
};
