#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QTest>

// A session bus of a test's own that activates nothing; start() points DBUS_SESSION_BUS_ADDRESS at it for
// this process and its children, so call it before anything opens the session bus.
class PrivateSessionBus
{
public:
    ~PrivateSessionBus()
    {
        QDBusConnection::disconnectFromBus(connectionName);
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000))
            m_daemon.kill();
    }

    // Call with QVERIFY(bus.start()); false, with a warning, when the bus did not come up.
    bool start()
    {
        QFile config(m_directory.filePath(u"bus.conf"_qs));
        if (!m_directory.isValid() || !config.open(QIODevice::WriteOnly))
            return false;
        config.write(uR"(<busconfig><type>session</type><listen>unix:path=%1</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
</busconfig>)"_qs.arg(m_directory.filePath(u"bus"_qs))
                         .toUtf8());
        config.close();
        m_daemon.start(u"dbus-daemon"_qs,
                       {u"--nofork"_qs, u"--nopidfile"_qs, u"--config-file="_qs + config.fileName(),
                        u"--print-address=1"_qs});
        if (!QTest::qWaitFor([&] { return m_daemon.canReadLine(); }, 20000)) {
            qWarning("dbus-daemon did not come up: %s", m_daemon.readAllStandardError().constData());
            return false;
        }
        m_address = QString::fromUtf8(m_daemon.readLine().trimmed());
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
        m_connection = QDBusConnection::connectToBus(m_address, connectionName);
        return m_connection.isConnected();
    }

    QString address() const { return m_address; }
    QDBusConnection connection() const { return m_connection; }

private:
    inline static const QString connectionName = u"private-session-bus"_qs;

    QTemporaryDir m_directory;
    QProcess m_daemon;
    QString m_address;
    QDBusConnection m_connection{QString()};
};
