// The real program in an X session, clicked with xdotool, under an XEmbed tray (trayer) and under a
// StatusNotifierItem host (Plasma, AppIndicator, waybar); leaves a screenshot as an artefact.
#include "FakeStatusNotifierWatcher.h"
#include "GlintaProcess.h"
#include "PrivateSessionBus.h"
#include "SimulatedService.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QScreen>
#include <QStandardPaths>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace {

enum class Shown
{
    trayIcon,
    panel,
};

QStringList xdotool(const QStringList &arguments)
{
    QProcess tool;
    tool.start(u"xdotool"_s, arguments);
    tool.waitForFinished(10000);
    return QString::fromUtf8(tool.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

// Where the program shows its tray icon (a small square) or its panel (as wide as the panel), if it does.
std::optional<QRect> findWindow(GlintaProcess &glinta, Shown what)
{
    for (const QString &id :
         xdotool({u"search"_s, u"--all"_s, u"--onlyvisible"_s, u"--pid"_s,
                  QString::number(glinta.process().processId()), u"--classname"_s, u"^glinta$"_s})) {
        QHash<QString, int> shell; // X=…, Y=…, WIDTH=…, HEIGHT=…, on the screen
        for (const QString &line : xdotool({u"getwindowgeometry"_s, u"--shell"_s, id}))
            shell.insert(line.section(u'=', 0, 0), line.section(u'=', 1).toInt());
        const QRect r(shell[u"X"_s], shell[u"Y"_s], shell[u"WIDTH"_s], shell[u"HEIGHT"_s]);
        if (what == Shown::panel ? r.width() >= 330 && r.width() <= 360 && r.height() > 100
                                 : r.width() == r.height() && r.width() > 8 && r.width() <= 64)
            return r;
    }
    return std::nullopt;
}

} // namespace

class TestDesktopSession : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            qputenv("QT_QPA_PLATFORM", "xcb");
    }

private Q_SLOTS:
    // Signed out, so nothing needs the keyring (signed in: the drills, tst_glintaapp; the icon: tst_panel).
    void clickOpensThePanelAndASecondLaunchRaisesIt()
    {
        if (QGuiApplication::platformName() != u"xcb"_s || !QSystemTrayIcon::isSystemTrayAvailable())
            QSKIP("needs an X display with a tray (./test.sh provides one)");
        if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
            QSKIP("needs xdotool");
        glinta::sim::SimulatedService service;
        QVERIFY(service.start() != 0);
        GlintaProcess glinta;
        glinta.useService(service.endpoints());
        glinta.start();

        std::optional<QRect> icon;
        QTRY_VERIFY2_WITH_TIMEOUT((icon = findWindow(glinta, Shown::trayIcon)).has_value(),
                                  qPrintable(glinta.output()), 20000);
        xdotool({u"mousemove"_s, QString::number(icon->center().x()), QString::number(icon->center().y()),
                 u"click"_s, u"1"_s});
        std::optional<QRect> panel;
        QTRY_VERIFY_WITH_TIMEOUT((panel = findWindow(glinta, Shown::panel)).has_value(), 10000);
        QVERIFY(QGuiApplication::primaryScreen()->geometry().contains(*panel));
        QTest::qWait(300);
        const QString artefact = QStringLiteral(GLINTA_ARTIFACT_DIR) + u"/desktop-session.png"_s;
        QVERIFY(QGuiApplication::primaryScreen()->grabWindow(0).save(artefact, "PNG"));

        // A second launch of the same profile brings the running one's panel forward and ends.
        xdotool({u"key"_s, u"Escape"_s});
        QTRY_VERIFY_WITH_TIMEOUT(!findWindow(glinta, Shown::panel), 10000);
        GlintaProcess second;
        second.environment = glinta.environment;
        second.start();
        QVERIFY(second.process().waitForFinished(10000));
        QCOMPARE(second.process().exitCode(), 0);
        QVERIFY(second.output().contains(u"Glinta is already running"_s));
        QTRY_VERIFY_WITH_TIMEOUT(findWindow(glinta, Shown::panel).has_value(), 10000);

        // Ended like a session ends it: cleanly, and nothing left in the runtime directory.
        glinta.process().terminate();
        QVERIFY(glinta.process().waitForFinished(10000));
        QCOMPARE(glinta.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(glinta.process().exitCode(), 0);
        const QDir runtime(glinta.environment.value(u"XDG_RUNTIME_DIR"_s));
        QCOMPARE(runtime.entryList({u"glinta-*"_s}, QDir::AllEntries | QDir::System), QStringList());
    }

    // On a bus of the test's own (the watcher takes in every Qt program on its bus), Activate toggles the
    // panel, which has no tray geometry to go under. Last, since the bus becomes the process's.
    void statusNotifierItem()
    {
        if (QGuiApplication::platformName() != u"xcb"_s ||
            QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
            QSKIP("needs an X display and xdotool (./test.sh provides them)");
        PrivateSessionBus bus;
        FakeStatusNotifierWatcher watcher;
        QVERIFY(bus.start() && bus.connection().registerService(u"org.kde.StatusNotifierWatcher"_s));
        QVERIFY(bus.connection().registerObject(u"/StatusNotifierWatcher"_s, &watcher,
                                                QDBusConnection::ExportScriptableContents));
        glinta::sim::SimulatedService service;
        QVERIFY(service.start() != 0);
        GlintaProcess glinta;
        glinta.useService(service.endpoints());
        glinta.environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
        glinta.start();
        QTRY_VERIFY2_WITH_TIMEOUT(!watcher.items.isEmpty(), qPrintable(glinta.output()), 30000);
        // Glinta's own item, not Qt's, which has no label.
        QDBusMessage id = QDBusMessage::createMethodCall(watcher.items[0].section(u'/', 0, 0),
                                                         u'/' + watcher.items[0].section(u'/', 1),
                                                         u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        id << u"org.kde.StatusNotifierItem"_s << u"Id"_s;
        QCOMPARE(bus.connection().call(id).arguments().value(0).value<QDBusVariant>().variant(), u"glinta"_s);
        QDBusMessage activate = QDBusMessage::createMethodCall(
            watcher.items[0].section(u'/', 0, 0), u'/' + watcher.items[0].section(u'/', 1),
            u"org.kde.StatusNotifierItem"_s, u"Activate"_s);
        activate << 0 << 0;
        for (const bool shown : {true, false}) {
            const QDBusMessage reply = bus.connection().call(activate, QDBus::Block, 10000);
            QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
            QTRY_COMPARE_WITH_TIMEOUT(findWindow(glinta, Shown::panel).has_value(), shown, 10000);
        }
    }
};

QTEST_MAIN(TestDesktopSession)
#include "tst_desktopsession.moc"
