#pragma once

#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

// What a tray host needs of a StatusNotifierWatcher, and a record of what the items told it; list it in
// SOURCES, for moc. Serve it with ExportScriptableContents at /StatusNotifierWatcher.
class FakeStatusNotifierWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems MEMBER items)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)

public:
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }

    // "service/path" of each item, in the order they came.
    QStringList items;
    // Answers every registration with an error, as a host that takes no more items would.
    bool refuses = false;

public Q_SLOTS:
    // The protocol allows a bus name or an object path; the sender is the item's service either way.
    Q_SCRIPTABLE void RegisterStatusNotifierItem(const QString &serviceOrPath, const QDBusMessage &message)
    {
        if (refuses) {
            sendErrorReply(QDBusError::AccessDenied, QStringLiteral("no more items"));
            return;
        }
        const bool isPath = serviceOrPath.startsWith(u'/');
        const QString service = isPath ? message.service() : serviceOrPath;
        items.append(service + (isPath ? serviceOrPath : QStringLiteral("/StatusNotifierItem")));
        Q_EMIT StatusNotifierItemRegistered(items.last());
    }
    Q_SCRIPTABLE void RegisterStatusNotifierHost(const QString &) {}

Q_SIGNALS:
    Q_SCRIPTABLE void StatusNotifierItemRegistered(const QString &item);
    Q_SCRIPTABLE void StatusNotifierItemUnregistered(const QString &item);
    Q_SCRIPTABLE void StatusNotifierHostRegistered();
};
