#include "BuildInfo.h"
#include "LogCapture.h"
#include "Preferences.h"
#include "WidgetReloader.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace glinta;
using Key = Preferences::Key;

namespace {

class CountingReloader : public WidgetReloader
{
public:
    void reloadAllTimelines() override { ++reloads; }
    int reloads = 0;
};

// Receives the widgets' reload signal from the session bus.
class ReloadListener : public QObject
{
    Q_OBJECT
public:
    int received = 0;
public Q_SLOTS:
    void reload() { ++received; }
};

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void unitReading_data();
    void unitReading();
    void changedOnlyOnRealChange();
    void survivesRestart();
    void buildChange_data();
    void buildChange();
    void installedUpdateBadge_data();
    void installedUpdateBadge();
    void reloadReachesSessionBus();
    void noSessionBusIsSaidOnce();

private:
    std::unique_ptr<Preferences> open() const
    {
        return std::make_unique<Preferences>(std::make_unique<QSettings>(m_path, QSettings::IniFormat));
    }
    void seed(const QString &key, const QVariant &value) const
    {
        QSettings settings(m_path, QSettings::IniFormat);
        settings.setValue(key, value);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

void TestPreferences::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_path = m_dir->filePath(u"glinta.conf"_s);
}

void TestPreferences::unitReading_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<GlucoseUnit>("unit");

    QTest::newRow("absent") << QVariant() << GlucoseUnit::mgPerDl;
    QTest::newRow("mg/dL") << QVariant(u"mg/dL"_s) << GlucoseUnit::mgPerDl;
    QTest::newRow("mmol/L") << QVariant(u"mmol/L"_s) << GlucoseUnit::mmolPerL;
    QTest::newRow("lower-case l") << QVariant(u"mmol/l"_s) << GlucoseUnit::mgPerDl;
    QTest::newRow("padded") << QVariant(u" mmol/L"_s) << GlucoseUnit::mgPerDl;
    QTest::newRow("a list") << QVariant(QStringList{u"mmol/L"_s, u"x"_s}) << GlucoseUnit::mgPerDl;
}

void TestPreferences::unitReading()
{
    QFETCH(QVariant, stored);
    QFETCH(GlucoseUnit, unit);

    if (stored.isValid())
        seed(u"glucoseUnit"_s, stored);
    auto preferences = open();
    QCOMPARE(preferences->glucoseUnit(), unit);

    // The next assignment always lands as the exact raw value.
    preferences->setGlucoseUnit(GlucoseUnit::mmolPerL);
    QCOMPARE(QSettings(m_path, QSettings::IniFormat).value(u"glucoseUnit"_s).toString(), u"mmol/L"_s);
}

void TestPreferences::changedOnlyOnRealChange()
{
    auto preferences = open();
    QSignalSpy spy(preferences.get(), &Preferences::changed);

    preferences->setLibreLinkUpEmail(u"ann@example.com"_s);
    preferences->setLibreLinkUpEmail(u"ann@example.com"_s);
    preferences->setGlucoseUnit(GlucoseUnit::mgPerDl); // absent reads as mg/dL, but the key is new
    preferences->setGlucoseUnit(GlucoseUnit::mgPerDl);
    preferences->removeAvailableUpdateVersion(); // nothing to remove
    preferences->setAvailableUpdateVersion(u"1.4.0"_s);
    preferences->removeAvailableUpdateVersion();
    preferences->removeLibreLinkUpEmail();

    QList<Key> keys;
    for (const QList<QVariant> &arguments : std::as_const(spy))
        keys.append(arguments.at(0).value<Key>());
    QCOMPARE(keys, (QList<Key>{Key::libreLinkUpEmail, Key::glucoseUnit, Key::availableUpdateVersion,
                               Key::availableUpdateVersion, Key::libreLinkUpEmail}));
    // Signing out forgets the account, not the unit.
    QVERIFY(!preferences->libreLinkUpEmail());
    QCOMPARE(preferences->glucoseUnit(), GlucoseUnit::mgPerDl);
}

void TestPreferences::survivesRestart()
{
    seed(u"RenderImages"_s, u"true"_s);
    {
        auto preferences = open();
        QVERIFY(preferences->renderImages());
        preferences->setLibreLinkUpEmail(u"j\u00f6rg, jr.@example.com"_s);
        preferences->setGlucoseUnit(GlucoseUnit::mmolPerL);
    }
    auto reopened = open();
    QCOMPARE(reopened->libreLinkUpEmail(), u"j\u00f6rg, jr.@example.com"_s);
    QCOMPARE(reopened->glucoseUnit(), GlucoseUnit::mmolPerL);
    QVERIFY(!reopened->availableUpdateVersion());

    seed(u"RenderImages"_s, u"false"_s);
    QVERIFY(!open()->renderImages());
}

void TestPreferences::buildChange_data()
{
    QTest::addColumn<QString>("stored"); // null: never launched before
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("logLine"); // empty: nothing happens

    QTest::newRow("first launch") << QString() << u"42"_s << u"Build changed none -> 42; reloading widgets"_s;
    QTest::newRow("same build") << u"42"_s << u"42"_s << QString();
    QTest::newRow("newer build") << u"42"_s << u"43"_s << u"Build changed 42 -> 43; reloading widgets"_s;
    QTest::newRow("downgrade") << u"43"_s << u"42"_s << u"Build changed 43 -> 42; reloading widgets"_s;
    QTest::newRow("no build number") << u"42"_s << u""_s << u"Build changed 42 -> ; reloading widgets"_s;
}

void TestPreferences::buildChange()
{
    QFETCH(QString, stored);
    QFETCH(QString, current);
    QFETCH(QString, logLine);

    if (!stored.isNull())
        seed(u"lastLaunchedBuild"_s, stored);
    LogCapture log;
    CountingReloader widgets;
    auto preferences = open();
    preferences->checkBuildChange({u"1.3.5"_s, current}, widgets);

    const auto lines = log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s);
    QCOMPARE(widgets.reloads, logLine.isEmpty() ? 0 : 1);
    QCOMPARE(lines.size(), logLine.isEmpty() ? 0 : 1);
    if (!logLine.isEmpty()) {
        QCOMPARE(lines[0].type, QtInfoMsg);
        QCOMPARE(lines[0].message, logLine);
    }
    QCOMPARE(preferences->lastLaunchedBuild(), current);

    // The next launch of the same build is quiet.
    open()->checkBuildChange({u"1.3.5"_s, current}, widgets);
    QCOMPARE(widgets.reloads, logLine.isEmpty() ? 0 : 1);
}

void TestPreferences::installedUpdateBadge_data()
{
    QTest::addColumn<QString>("waiting");
    QTest::addColumn<QString>("running");
    QTest::addColumn<bool>("kept");

    QTest::newRow("update installed") << u"1.3.5"_s << u"1.3.5"_s << false;
    QTest::newRow("still waiting") << u"1.4.0"_s << u"1.3.5"_s << true;
    QTest::newRow("older waiting") << u"1.3.4"_s << u"1.3.5"_s << true;
    QTest::newRow("no running version") << u"1.3.5"_s << QString() << true;
}

void TestPreferences::installedUpdateBadge()
{
    QFETCH(QString, waiting);
    QFETCH(QString, running);
    QFETCH(bool, kept);

    seed(u"availableUpdateVersion"_s, waiting);
    auto preferences = open();
    QSignalSpy spy(preferences.get(), &Preferences::changed);
    preferences->clearInstalledUpdateBadge({running, u"7"_s});
    QCOMPARE(preferences->availableUpdateVersion().has_value(), kept);
    QCOMPARE(spy.size(), kept ? 0 : 1);
    QCOMPARE(QSettings(m_path, QSettings::IniFormat).contains(u"availableUpdateVersion"_s), kept);
}

void TestPreferences::reloadReachesSessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        QSKIP("no session bus in this environment");
    ReloadListener listener;
    QVERIFY(bus.connect(QString(), QString(WidgetReloader::objectPath),
                        QString(WidgetReloader::interfaceName), QString(WidgetReloader::signalName),
                        &listener, SLOT(reload())));
    WidgetReloader widgets;
    widgets.reloadAllTimelines();
    QTRY_COMPARE(listener.received, 1);
}

void TestPreferences::noSessionBusIsSaidOnce()
{
    // The session bus is chosen once per process, so ask a child without one.
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path="_s + m_dir->filePath(u"no-bus"_s));
    environment.insert(u"GLINTA_TEST_CHILD"_s, u"no-bus"_s);
    environment.insert(u"QT_LOGGING_RULES"_s, u"com.nordvik.glinta.*=true"_s);
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {});
    QVERIFY(child.waitForFinished(30000));
    QCOMPARE(child.exitCode(), 0);
    const QString output = QString::fromUtf8(child.readAllStandardError());
    QCOMPARE(output.count(u"No session bus, so no widget can be told to reload"_s), 1);
}

int main(int argc, char *argv[])
{
    if (qgetenv("GLINTA_TEST_CHILD") == "no-bus") {
        QCoreApplication app(argc, argv);
        WidgetReloader widgets;
        widgets.reloadAllTimelines();
        widgets.reloadAllTimelines();
        return EXIT_SUCCESS;
    }
    QCoreApplication app(argc, argv);
    TestPreferences test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_preferences.moc"
