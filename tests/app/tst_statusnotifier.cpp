#include "GlintaProcess.h"
#include "GlucosePanelView.h"
#include "KeychainStore.h"
#include "MenuBarLabel.h"
#include "SharedSnapshotStore.h"
#include "SimulatedService.h"
#include "StatusItem.h"
#include "TaskOutcome.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QStandardPaths>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

const QString itemInterface = u"org.kde.StatusNotifierItem"_s;

// What a tray host needs of a StatusNotifierWatcher, and a record of what the items told it.
class Watcher : public QObject
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
    int toolTipChanges = 0;
    int iconChanges = 0;

public Q_SLOTS:
    // The protocol allows a bus name or an object path; the sender is the item's service either way.
    Q_SCRIPTABLE void RegisterStatusNotifierItem(const QString &serviceOrPath, const QDBusMessage &message)
    {
        const bool isPath = serviceOrPath.startsWith(u'/');
        const QString service = isPath ? message.service() : serviceOrPath;
        items.append(service + (isPath ? serviceOrPath : u"/StatusNotifierItem"_s));
        Q_EMIT StatusNotifierItemRegistered(items.last());
    }
    Q_SCRIPTABLE void RegisterStatusNotifierHost(const QString &) {}
    void toolTipChanged() { ++toolTipChanges; }
    void iconChanged() { ++iconChanges; }

Q_SIGNALS:
    Q_SCRIPTABLE void StatusNotifierItemRegistered(const QString &item);
    Q_SCRIPTABLE void StatusNotifierItemUnregistered(const QString &item);
    Q_SCRIPTABLE void StatusNotifierHostRegistered();
};

// Runs a tool to its end and gives what it printed; empty when it failed or found nothing.
QString runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        return {};
    return QString::fromUtf8(process.readAllStandardOutput());
}

// Widths of the visible windows of `pid` titled "Glinta".
QList<int> visibleGlintaWidths(qint64 pid)
{
    QList<int> widths;
    const QString ids = runTool(u"xdotool"_s, {u"search"_s, u"--all"_s, u"--onlyvisible"_s, u"--pid"_s,
                                               QString::number(pid), u"--name"_s, u"^Glinta$"_s});
    for (const QString &id : ids.split(u'\n', Qt::SkipEmptyParts)) {
        const QString shell = runTool(u"xdotool"_s, {u"getwindowgeometry"_s, u"--shell"_s, id});
        const qsizetype at = shell.indexOf(u"WIDTH="_s);
        if (at >= 0)
            widths.append(QStringView(shell).mid(at + 6).split(u'\n').first().toInt());
    }
    return widths;
}

} // namespace

class TestStatusNotifier : public QObject
{
    Q_OBJECT

    QTemporaryDir m_session;
    // Ended by the QProcess destructors (kill by pid) if cleanupTestCase never gets to them.
    QProcess m_busDaemon;
    QProcess m_keyring;
    QDBusConnection m_bus{QString()};
    Watcher m_watcher;
    sim::SimulatedService m_service;

    // The item the program registered, as "service/path".
    QString itemService() const { return m_watcher.items.value(0).section(u'/', 0, 0); }
    QString itemPath() const { return u'/' + m_watcher.items.value(0).section(u'/', 1); }

    QVariant itemProperty(const QString &name)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(itemService(), itemPath(),
                                                           u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        call << itemInterface << name;
        const QDBusMessage reply = m_bus.call(call, QDBus::Block, 10000);
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    // The title text of the (sa(iiay)ss) tooltip.
    QString toolTipTitle()
    {
        const QVariant value = itemProperty(u"ToolTip"_s);
        if (!value.canConvert<QDBusArgument>())
            return {};
        const auto argument = value.value<QDBusArgument>();
        QString iconName, title, subtitle;
        argument.beginStructure();
        argument >> iconName;
        argument.beginArray();
        while (!argument.atEnd()) {
            argument.beginStructure();
            int width = 0, height = 0;
            QByteArray data;
            argument >> width >> height >> data;
            argument.endStructure();
        }
        argument.endArray();
        argument >> title >> subtitle;
        argument.endStructure();
        return title;
    }

    void activate()
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(itemService(), itemPath(), itemInterface, u"Activate"_s);
        call << 0 << 0;
        const QDBusMessage reply = m_bus.call(call, QDBus::Block, 10000);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
    }

    void startGlinta(GlintaProcess &glinta)
    {
        glinta.useService(m_service.endpoints());
        glinta.environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s,
                                  qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
        glinta.start();
        // A slow machine with sanitizers takes seconds to bring Qt up.
        const bool registered = QTest::qWaitFor(
            [&] { return !m_watcher.items.isEmpty() || glinta.process().state() == QProcess::NotRunning; },
            30000);
        QVERIFY2(
            registered && !m_watcher.items.isEmpty(),
            qPrintable(u"glinta registered no item with the watcher; it printed:\n"_s + glinta.output()));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (run it inside scripts/headless-session.sh)");
        for (const auto tool : {"dbus-daemon", "gnome-keyring-daemon", "xdotool"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
                QSKIP(qPrintable(QString::fromLatin1(tool) + u" is missing; scripts/deps.sh installs it"_s));
        }
        QVERIFY(m_session.isValid());

        // A bus of this test's own: the watcher turns every Qt program on a bus into a StatusNotifierItem,
        // which must not happen to tests running beside it. No service directories, so nothing is
        // activated behind our back.
        QFile config(m_session.filePath(u"bus.conf"_s));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write(uR"(<busconfig><type>session</type><listen>unix:path=%1</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
</busconfig>)"_s.arg(m_session.filePath(u"bus"_s))
                         .toUtf8());
        config.close();
        m_busDaemon.start(u"dbus-daemon"_s,
                          {u"--nofork"_s, u"--nopidfile"_s, u"--config-file="_s + config.fileName(),
                           u"--print-address=1"_s});
        QVERIFY(QTest::qWaitFor([&] { return m_busDaemon.canReadLine(); }, 20000));
        const QByteArray address = m_busDaemon.readLine().trimmed();
        // Before anything in this process opens the session bus, so the keychain below talks to it too.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        m_bus = QDBusConnection::connectToBus(QString::fromUtf8(address), u"sni"_s);
        QVERIFY2(m_bus.isConnected(), qPrintable(m_bus.lastError().message()));

        // And a keyring of its own on that bus, unlocked, with a fresh "login" collection.
        QDir(m_session.path()).mkpath(u"home"_s);
        QDir(m_session.path()).mkpath(u"run"_s);
        QProcessEnvironment keyringEnvironment = QProcessEnvironment::systemEnvironment();
        keyringEnvironment.remove(u"GNOME_KEYRING_CONTROL"_s);
        keyringEnvironment.insert(u"HOME"_s, m_session.filePath(u"home"_s));
        keyringEnvironment.insert(u"XDG_DATA_HOME"_s, m_session.filePath(u"home"_s));
        keyringEnvironment.insert(u"XDG_CONFIG_HOME"_s, m_session.filePath(u"home"_s));
        keyringEnvironment.insert(u"XDG_RUNTIME_DIR"_s, m_session.filePath(u"run"_s));
        m_keyring.setProcessEnvironment(keyringEnvironment);
        m_keyring.start(u"gnome-keyring-daemon"_s,
                        {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
        m_keyring.write(QUuid::createUuid().toByteArray(QUuid::WithoutBraces));
        m_keyring.closeWriteChannel();
        QVERIFY(QTest::qWaitFor(
            [&] { return m_bus.interface()->isServiceRegistered(u"org.freedesktop.secrets"_s).value(); },
            20000));

        QVERIFY(m_bus.registerService(u"org.kde.StatusNotifierWatcher"_s));
        QVERIFY(m_bus.registerObject(u"/StatusNotifierWatcher"_s, &m_watcher,
                                     QDBusConnection::ExportScriptableContents));
        QVERIFY(m_bus.connect({}, u"/StatusNotifierItem"_s, itemInterface, u"NewToolTip"_s, &m_watcher,
                              SLOT(toolTipChanged())));
        QVERIFY(m_bus.connect({}, u"/StatusNotifierItem"_s, itemInterface, u"NewIcon"_s, &m_watcher,
                              SLOT(iconChanged())));
        QVERIFY(m_service.start() != 0);
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(u"sni"_s);
        for (QProcess *process : {&m_keyring, &m_busDaemon}) {
            process->terminate();
            if (!process->waitForFinished(5000))
                process->kill();
        }
    }

    void init()
    {
        m_watcher.items.clear();
        m_watcher.toolTipChanges = 0;
        m_watcher.iconChanges = 0;
    }

    void signedOutItemOpensThePanel()
    {
        GlintaProcess glinta;
        startGlinta(glinta);
        if (QTest::currentTestFailed())
            return;

        // Qt names the item after the application name, not the display name.
        QCOMPARE(itemProperty(u"Title"_s).toString(), u"glinta"_s);
        QCOMPARE(itemProperty(u"Status"_s).toString(), u"Active"_s);
        QCOMPARE(toolTipTitle(), u"Glinta: no glucose data"_s);

        const auto pixmaps = itemProperty(u"IconPixmap"_s).value<QDBusArgument>();
        QStringList sizes;
        pixmaps.beginArray();
        while (!pixmaps.atEnd()) {
            int width = 0, height = 0;
            QByteArray argb; // ARGB32 in network byte order: alpha first
            pixmaps.beginStructure();
            pixmaps >> width >> height >> argb;
            pixmaps.endStructure();
            QCOMPARE(width, height);
            QCOMPARE(argb.size(), qsizetype(width) * height * 4);
            bool inked = false;
            for (qsizetype i = 0; i < argb.size() && !inked; i += 4)
                inked = argb.at(i) != 0;
            QVERIFY2(inked, qPrintable(u"the %1 px icon is blank"_s.arg(width)));
            sizes.append(QString::number(width));
        }
        pixmaps.endArray();
        QVERIFY2(sizes.size() >= 2 && sizes.contains(u"22"_s), qPrintable(sizes.join(u", "_s)));

        const qint64 pid = glinta.process().processId();
        QVERIFY(visibleGlintaWidths(pid).isEmpty());
        activate();
        QVERIFY(QTest::qWaitFor([&] { return !visibleGlintaWidths(pid).isEmpty(); }, 10000));
        const int width = visibleGlintaWidths(pid).value(0);
        // The panel plus the popup's frame.
        QVERIFY2(width >= GlucosePanelView::panelWidth && width <= GlucosePanelView::panelWidth + 8,
                 qPrintable(QString::number(width)));
        activate();
        QVERIFY(QTest::qWaitFor([&] { return visibleGlintaWidths(pid).isEmpty(); }, 10000));
    }

    void signedInToolTipCarriesTheReading()
    {
        const sim::SimAccount account{u"sni-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                          u"@example.com"_s,
                                      u"pw"_s,
                                      u"u-sni"_s,
                                      QString(),
                                      {{u"p-1"_s, u"Ann"_s, {}}}};
        m_service.addAccount(account);
        const KeychainStore keychain;
        QVERIFY(!runToEnd(keychain.savePassword(account.password, account.email)));

        // A slow sign-in keeps the item on "no data" for a while after it registers, so that the change is
        // seen.
        m_service.addFault({u"login"_s, sim::Fault::Kind::delay, 0, 0, {}, {}, 3s, 1, {}});
        GlintaProcess glinta;
        glinta.setPreference(u"libreLinkUpEmail"_s, account.email);
        startGlinta(glinta);
        if (QTest::currentTestFailed())
            return;

        // The snapshot and the tooltip come from the same refresh; a refresh between the two reads only
        // means another look. Signals are counted from the last time the item said it had no data.
        const SharedSnapshotStore snapshots(glinta.snapshotPath().section(u'/', 0, -3));
        QString tip;
        std::optional<GlucoseSnapshot> snapshot;
        bool sawNoData = false;
        const bool matched = QTest::qWaitFor(
            [&] {
                snapshot = snapshots.read();
                tip = toolTipTitle();
                if (tip == u"Glinta: no glucose data"_s) {
                    sawNoData = true;
                    m_watcher.toolTipChanges = m_watcher.iconChanges = 0;
                }
                return snapshot && snapshot->latest &&
                       tip ==
                           StatusItem::toolTip(menuBarTitle(snapshot->latest, snapshot->unit,
                                                            QDateTime::currentDateTimeUtc(), std::nullopt));
            },
            30000);
        QVERIFY2(matched, qPrintable(u"tooltip: "_s + tip + u"\nglinta printed:\n"_s + glinta.output()));
        const QString value = format(snapshot->unit, snapshot->latest->mgPerDl);
        QVERIFY2(tip.startsWith(value + u' ') && tip.contains(u"\nGlucose "_s + value + u" mg/dL"_s),
                 qPrintable(tip));
        // Hosts read again only when told to.
        QVERIFY(sawNoData);
        QTRY_VERIFY(m_watcher.toolTipChanges >= 1 && m_watcher.iconChanges >= 1);

        glinta.stop();
        QVERIFY(!runToEnd(keychain.deletePassword(account.email)));
    }
};

QTEST_MAIN(TestStatusNotifier)
#include "tst_statusnotifier.moc"
