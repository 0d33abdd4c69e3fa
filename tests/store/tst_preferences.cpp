#include "BuildInfo.h"
#include "CountingReloader.h"
#include "LogCapture.h"
#include "Preferences.h"
#include "WidgetReloader.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace glinta;
using Key = Preferences::Key;

class TestPreferences : public QObject
{
    Q_OBJECT

    std::unique_ptr<Preferences> open() const
    {
        return std::make_unique<Preferences>(std::make_unique<QSettings>(m_path, QSettings::IniFormat));
    }
    void seed(const QString &key, const QVariant &value) const
    {
        QSettings(m_path, QSettings::IniFormat).setValue(key, value);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_path = m_dir->filePath(u"glinta.conf"_s);
    }

    void unitReading_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<GlucoseUnit>("unit");

        QTest::newRow("absent") << QVariant() << GlucoseUnit::mgPerDl;
        QTest::newRow("mmol/L") << QVariant(u"mmol/L"_s) << GlucoseUnit::mmolPerL;
        QTest::newRow("lower-case l") << QVariant(u"mmol/l"_s) << GlucoseUnit::mgPerDl;
        QTest::newRow("a list") << QVariant(QStringList{u"mmol/L"_s, u"x"_s}) << GlucoseUnit::mgPerDl;
    }

    void unitReading()
    {
        QFETCH(QVariant, stored);
        QFETCH(GlucoseUnit, unit);

        if (stored.isValid())
            seed(u"glucoseUnit"_s, stored);
        auto preferences = open();
        QCOMPARE(preferences->glucoseUnit(), unit);

        // The next assignment always lands in the file at once, as the exact raw value.
        preferences->setGlucoseUnit(GlucoseUnit::mmolPerL);
        QCOMPARE(QSettings(m_path, QSettings::IniFormat).value(u"glucoseUnit"_s).toString(), u"mmol/L"_s);
    }

    void changedOnlyOnRealChange()
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

    void buildChange_data()
    {
        QTest::addColumn<QString>("stored"); // null: never launched before
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("logLine"); // empty: nothing happens

        QTest::newRow("first launch")
            << QString() << u"42"_s << u"Build changed none -> 42; reloading widgets"_s;
        QTest::newRow("same build") << u"42"_s << u"42"_s << QString();
        QTest::newRow("new build") << u"42"_s << u"43"_s << u"Build changed 42 -> 43; reloading widgets"_s;
        QTest::newRow("no build number") << u"42"_s << u""_s << u"Build changed 42 -> ; reloading widgets"_s;
    }

    void buildChange()
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
        QCOMPARE(preferences->lastLaunchedBuild(), current);
        // The next launch of the same build is quiet.
        open()->checkBuildChange({u"1.3.5"_s, current}, widgets);

        QStringList lines;
        for (const LogCapture::Entry &entry : log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s))
            lines.append((entry.type == QtInfoMsg ? u"info: "_s : u"other: "_s) + entry.message);
        QCOMPARE(lines, logLine.isEmpty() ? QStringList() : QStringList{u"info: "_s + logLine});
        QCOMPARE(widgets.reloads, lines.size());
    }

    void installedUpdateBadge_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<bool>("kept");

        QTest::newRow("update installed") << u"1.3.5"_s << false;
        QTest::newRow("still waiting") << u"1.3.4"_s << true;
        QTest::newRow("no running version") << QString() << true;
    }

    void installedUpdateBadge()
    {
        QFETCH(QString, running);
        QFETCH(bool, kept);

        seed(u"availableUpdateVersion"_s, u"1.3.5"_s);
        auto preferences = open();
        QSignalSpy spy(preferences.get(), &Preferences::changed);
        preferences->clearInstalledUpdateBadge({running, u"7"_s});
        QCOMPARE(preferences->availableUpdateVersion().has_value(), kept);
        QCOMPARE(spy.size(), kept ? 0 : 1);
    }

    void noSessionBusIsSaidOnce()
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
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (qgetenv("GLINTA_TEST_CHILD") == "no-bus") {
        WidgetReloader widgets;
        widgets.reloadAllTimelines();
        widgets.reloadAllTimelines();
        return EXIT_SUCCESS;
    }
    TestPreferences test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_preferences.moc"
