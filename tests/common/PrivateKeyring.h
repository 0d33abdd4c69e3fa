#pragma once

#include "PrivateSessionBus.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QProcess>
#include <QTest>

// A Secret Service secret: (oayays) on the bus.
struct KeyringSecret
{
    QDBusObjectPath session;
    QByteArray parameters;
    QByteArray value;
    QString contentType;
};

inline QDBusArgument &operator<<(QDBusArgument &argument, const KeyringSecret &secret)
{
    argument.beginStructure();
    argument << secret.session << secret.parameters << secret.value << secret.contentType;
    argument.endStructure();
    return argument;
}

inline const QDBusArgument &operator>>(const QDBusArgument &argument, KeyringSecret &secret)
{
    argument.beginStructure();
    argument >> secret.session >> secret.parameters >> secret.value >> secret.contentType;
    argument.endStructure();
    return argument;
}

Q_DECLARE_METATYPE(KeyringSecret)

// A gnome-keyring on a bus of a test's own, to do what must never happen to the session's: lock it. It stays
// locked until unlock(), since the bus activates no prompt.
class PrivateKeyring
{
public:
    ~PrivateKeyring()
    {
        m_keyring.terminate();
        if (!m_keyring.waitForFinished(5000))
            m_keyring.kill();
    }

    // Call with QVERIFY(keyring.start()) before anything in the process opens the session bus.
    bool start()
    {
        if (!m_directory.isValid() || !m_bus.start())
            return false;
        // Unlocking with a non-empty password creates the "login" collection, unlocked.
        QDir(m_directory.path()).mkpath(u"home"_qs);
        QDir(m_directory.path()).mkpath(u"run"_qs);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"GNOME_KEYRING_CONTROL"_qs);
        for (const auto name : {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"})
            environment.insert(QString::fromLatin1(name), m_directory.filePath(u"home"_qs));
        environment.insert(u"XDG_RUNTIME_DIR"_qs, m_directory.filePath(u"run"_qs));
        m_keyring.setProcessEnvironment(environment);
        m_keyring.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_keyring.start(u"gnome-keyring-daemon"_qs,
                        {u"--foreground"_qs, u"--unlock"_qs, u"--components=secrets"_qs});
        m_keyring.write(m_password);
        m_keyring.closeWriteChannel();
        const QDBusConnectionInterface *bus = m_bus.connection().interface();
        return QTest::qWaitFor(
            [bus] { return bus->isServiceRegistered(u"org.freedesktop.secrets"_qs).value(); }, 20000);
    }

    bool lock()
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_qs, u"/org/freedesktop/secrets"_qs,
                                           u"org.freedesktop.Secret.Service"_qs, u"Lock"_qs);
        call << QVariant::fromValue(QList<QDBusObjectPath>{QDBusObjectPath(collection)});
        return answered(call) && isLocked();
    }

    // What typing the password into the keyring's prompt does, without the prompt.
    bool unlock()
    {
        qDBusRegisterMetaType<KeyringSecret>();
        QDBusMessage open =
            QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_qs, u"/org/freedesktop/secrets"_qs,
                                           u"org.freedesktop.Secret.Service"_qs, u"OpenSession"_qs);
        open << u"plain"_qs << QVariant::fromValue(QDBusVariant(QString()));
        const QDBusMessage opened = m_bus.connection().call(open, QDBus::Block, 10000);
        if (opened.type() != QDBusMessage::ReplyMessage || opened.arguments().size() < 2)
            return false;
        const KeyringSecret master{
            opened.arguments().at(1).value<QDBusObjectPath>(), {}, m_password, u"text/plain"_qs};
        QDBusMessage call = QDBusMessage::createMethodCall(
            u"org.freedesktop.secrets"_qs, u"/org/freedesktop/secrets"_qs,
            u"org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface"_qs, u"UnlockWithMasterPassword"_qs);
        call << QVariant::fromValue(QDBusObjectPath(collection)) << QVariant::fromValue(master);
        return answered(call) && !isLocked();
    }

    bool isLocked()
    {
        QDBusMessage get = QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_qs, collection,
                                                          u"org.freedesktop.DBus.Properties"_qs, u"Get"_qs);
        get << u"org.freedesktop.Secret.Collection"_qs << u"Locked"_qs;
        const QDBusMessage reply = m_bus.connection().call(get, QDBus::Block, 10000);
        return reply.type() == QDBusMessage::ReplyMessage &&
               reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
    }

private:
    inline static const QString collection = u"/org/freedesktop/secrets/collection/login"_qs;

    bool answered(const QDBusMessage &call)
    {
        const QDBusMessage reply = m_bus.connection().call(call, QDBus::Block, 10000);
        if (reply.type() != QDBusMessage::ReplyMessage)
            qWarning("%s: %s", qPrintable(call.member()), qPrintable(reply.errorMessage()));
        return reply.type() == QDBusMessage::ReplyMessage;
    }

    PrivateSessionBus m_bus;
    QTemporaryDir m_directory;
    const QByteArray m_password = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    QProcess m_keyring;
};
