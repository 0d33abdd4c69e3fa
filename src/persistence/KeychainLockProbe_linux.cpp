#include "persistence/KeychainLockProbe.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include <qcoro/qcorosignal.h>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace glinta {

// The Secret Service's "Locked" property of the default collection.
QCoro::Task<bool> keychainKnownLocked(std::chrono::milliseconds timeout)
{
    QDBusMessage get = QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_s,
                                                      u"/org/freedesktop/secrets/aliases/default"_s,
                                                      u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get << u"org.freedesktop.Secret.Collection"_s << u"Locked"_s;
    const auto milliseconds = std::clamp<qint64>(timeout.count(), 1, std::numeric_limits<int>::max());
    QDBusPendingCallWatcher watcher(QDBusConnection::sessionBus().asyncCall(get, int(milliseconds)));
    // The watcher reports a call that has already ended (no bus at all) from the event loop as well.
    co_await qCoro(&watcher, &QDBusPendingCallWatcher::finished);
    const QDBusPendingReply<QDBusVariant> reply = watcher;
    co_return !reply.isError() && reply.value().variant().toBool();
}

} // namespace glinta
