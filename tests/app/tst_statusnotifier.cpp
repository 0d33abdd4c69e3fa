#include "GlintaProcess.h"
#include "PrivateSessionBus.h"
#include "SimulatedService.h"
#include "menubar/GlucosePanelView.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
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

    // The watcher turns every Qt program on its bus into a StatusNotifierItem, which must not happen to
    // tests running beside this one.
    PrivateSessionBus m_bus;
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
        const QDBusMessage reply = m_bus.connection().call(call, QDBus::Block, 10000);
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
        const QDBusMessage reply = m_bus.connection().call(call, QDBus::Block, 10000);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs an X display (run it inside scripts/headless-session.sh)");
        for (const auto tool : {"dbus-daemon", "xdotool"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
                QSKIP(qPrintable(QString::fromLatin1(tool) + u" is missing; scripts/deps.sh installs it"_s));
        }
        QVERIFY(m_bus.start());
        QVERIFY(m_bus.connection().registerService(u"org.kde.StatusNotifierWatcher"_s));
        QVERIFY(m_bus.connection().registerObject(u"/StatusNotifierWatcher"_s, &m_watcher,
                                                  QDBusConnection::ExportScriptableContents));
        QVERIFY(m_service.start() != 0);
    }

    // Signed out, so that nothing needs a keyring; the reading's tooltip is StatusItem's own (tst_glintaapp).
    void itemShowsAndOpensThePanel()
    {
        GlintaProcess glinta;
        glinta.useService(m_service.endpoints());
        glinta.environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
        glinta.start();
        // A slow machine with sanitizers takes seconds to bring Qt up.
        QVERIFY2(
            QTest::qWaitFor([&] { return !m_watcher.items.isEmpty(); }, 30000),
            qPrintable(u"glinta registered no item with the watcher; it printed:\n"_s + glinta.output()));
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

        // Activate toggles the panel (plus the popup's frame).
        const qint64 pid = glinta.process().processId();
        QVERIFY(visibleGlintaWidths(pid).isEmpty());
        activate();
        QVERIFY(QTest::qWaitFor([&] { return !visibleGlintaWidths(pid).isEmpty(); }, 10000));
        const int width = visibleGlintaWidths(pid).value(0);
        QVERIFY2(width >= GlucosePanelView::panelWidth && width <= GlucosePanelView::panelWidth + 8,
                 qPrintable(QString::number(width)));
        activate();
        QVERIFY(QTest::qWaitFor([&] { return visibleGlintaWidths(pid).isEmpty(); }, 10000));
    }
};

QTEST_MAIN(TestStatusNotifier)
#include "tst_statusnotifier.moc"
