#include "LogCapture.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "app/GlintaApp.h"
#include "app/SingleInstance.h"
#include "app/StatusItem.h"
#include "menubar/WindowRegistry.h"
#include "persistence/KeychainStore.h"
#include "store/GlucoseStore.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

class TestGlintaApp : public QObject
{
    Q_OBJECT

    // An account of this run's own, so the session's keyring never holds anything but test items.
    const QString m_email =
        u"app-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces) + u"@example.com"_s;
    sim::SimAccount m_account{m_email, u"pw"_s, u"u-1"_s, QString(), {{u"p-1"_s, u"Ann"_s, {}}}};
    sim::SimulatedService m_service;

    std::unique_ptr<GlintaApp> makeApp(const QTemporaryDir &dir, const QString &savedEmail)
    {
        GlintaApp::Environment environment;
        environment.endpoints = m_service.endpoints();
        environment.settings =
            std::make_unique<QSettings>(dir.filePath(u"glinta.conf"_s), QSettings::IniFormat);
        environment.settings->setValue(u"lastLaunchedBuild"_s, u"1"_s);
        if (!savedEmail.isEmpty())
            environment.settings->setValue(u"libreLinkUpEmail"_s, savedEmail);
        environment.snapshotParent = dir.path();
        environment.build = BuildInfo{u"1.3.5"_s, u"1"_s};
        return std::make_unique<GlintaApp>(std::move(environment));
    }

    static bool anyWindowVisible()
    {
        const auto windows = QApplication::topLevelWidgets();
        return std::any_of(windows.begin(), windows.end(), [](QWidget *w) { return w->isVisible(); });
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_service.addAccount(m_account);
        QVERIFY(m_service.start() != 0);
    }

    void init() { m_service.resetCounters(); }

    void launchSignedOutStaysQuiet()
    {
        QTemporaryDir dir;
        auto app = makeApp(dir, {});
        app->start();
        QVERIFY(!QTest::qWaitFor([this] { return m_service.requestCount(u"login"_s) > 0; }, 300));
        QCOMPARE(app->store()->status(), GlucoseStore::Status::loggedOut());
        QCOMPARE(app->statusItem()->trayIcon()->toolTip(), u"Glinta: no glucose data"_s);
        QVERIFY(!anyWindowVisible());
        // Hosts that want pictures up front (StatusNotifierItem) are offered the usual tray size.
        QVERIFY(app->statusItem()->trayIcon()->icon().availableSizes().contains(QSize(22, 22)));
        // A click on the icon, or a host's Activate, opens the panel; the next one closes it.
        app->statusItem()->togglePanel();
        QVERIFY(app->statusItem()->panelWindow()->isVisible());
        app->statusItem()->togglePanel();
        QVERIFY(!app->statusItem()->panelWindow()->isVisible());
        QWidget *login = app->windows()->open(u"login"_s);
        QCOMPARE(login->windowTitle(), u"Sign In to Glinta"_s);
        QCOMPARE(app->windows()->open(u"login"_s), login); // one window, brought forward again
    }

    void launchWithSavedEmailRefreshesAtOnce()
    {
        const KeychainStore keychain;
        QVERIFY(!runToEnd(keychain.savePassword(m_account.password, m_account.email)));
        QTemporaryDir dir;
        auto app = makeApp(dir, m_account.email);
        app->start();
        QTRY_VERIFY_WITH_TIMEOUT(app->store()->latest().has_value(), 10000);
        QCOMPARE(m_service.requestCount(u"login"_s), 1);
        QVERIFY(!anyWindowVisible());
        // The tray's only text: the title, then what a screen reader says.
        const QString value = format(app->store()->unit(), app->store()->latest()->mgPerDl);
        const QString tip = app->statusItem()->trayIcon()->toolTip();
        QVERIFY2(tip.startsWith(value + u' ') && tip.contains(u"\nGlucose "_s + value + u" mg/dL"_s),
                 qPrintable(tip));
        app.reset();
        QVERIFY(!runToEnd(keychain.deletePassword(m_account.email)));
    }

    void withoutTrayThePanelBecomesAWindow()
    {
        if (QSystemTrayIcon::isSystemTrayAvailable())
            QSKIP("a tray is available here; this covers a desktop without one");
        LogCapture log;
        QTemporaryDir dir;
        auto app = makeApp(dir, {});
        QSignalSpy quit(app.get(), &GlintaApp::quitRequested);
        QSignalSpy shown(app->statusItem(), &StatusItem::firstShown);
        app->statusItem()->show(200ms);
        QTRY_VERIFY(app->statusItem()->panelWindow()->isVisible());
        QVERIFY(app->statusItem()->usesFallbackWindow());
        const QStringList lines = log.lines(u"App"_s);
        QVERIFY2(lines.size() == 1 && lines[0].startsWith(u"info: No system tray appeared"_s),
                 qPrintable(lines.join(u'\n')));
        // The launch task hangs on this: once per launch, however often the item is shown.
        app->statusItem()->show(0ms);
        QCOMPARE(shown.size(), 1);
        // With no tray, closing the only window is quitting.
        app->statusItem()->panelWindow()->close();
        QCOMPARE(quit.size(), 1);
    }

    void oneInstancePerProfile()
    {
        QTemporaryDir runtime, profile, otherProfile, crashedProfile;
        SingleInstance first(profile.path(), runtime.path());
        QVERIFY(first.claim());
        SingleInstance second(profile.path() + u"/."_s, runtime.path());
        QVERIFY(!second.claim());
        SingleInstance elsewhere(otherProfile.path(), runtime.path());
        QVERIFY(elsewhere.claim());

        // Nobody listens for a profile that nobody holds.
        SingleInstance lonely(crashedProfile.path(), runtime.path());
        QSignalSpy failed(&lonely, &SingleInstance::delivered);
        lonely.notifyRunning();
        QTRY_COMPARE(failed.value(0).value(0), QVariant(false));

        // A holder that crashed leaves its lock behind, naming a process that is gone.
        QFile stale(lonely.socketPath().replace(u".socket"_s, u".lock"_s));
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write("999999999\nglinta\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        stale.close();
        QVERIFY(lonely.claim());
    }
};

QTEST_MAIN(TestGlintaApp)
#include "tst_glintaapp.moc"
