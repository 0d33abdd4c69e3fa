#include "CountingReloader.h"
#include "LogCapture.h"
#include "snapshot/WidgetReloader.h"
#include "store/Preferences.h"
#include "support/BuildInfo.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>
#include <tuple>

using namespace Qt::StringLiterals;
using namespace glinta;

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
        m_path = m_dir->filePath(u"glinta.conf"_s);
    }

    // Only the exact raw value reads as mmol/L.
    void unitReading()
    {
        seed(u"glucoseUnit"_s, u"mmol/L"_s);
        QCOMPARE(open()->glucoseUnit(), GlucoseUnit::mmolPerL);
        seed(u"glucoseUnit"_s, u"mmol/l"_s);
        QCOMPARE(open()->glucoseUnit(), GlucoseUnit::mgPerDl);
    }

    // A hand-edited range that is unreadable, or not one the user could pick, reads as the default.
    void targetRangeReading()
    {
        const QList<std::tuple<const char *, const char *, TargetRange>> rows{
            {"80", "250.5", {80, 250.5}}, {"eighty", "250", {}}, {"115", "120", {}}, {"nan", "250", {}}};
        for (const auto &[low, high, read] : rows) {
            seed(u"targetLowMgPerDl"_s, QString::fromLatin1(low));
            seed(u"targetHighMgPerDl"_s, QString::fromLatin1(high));
            QCOMPARE(open()->targetRange(), read);
        }
    }

    // The switches survive a restart; the signed-out alert cannot be turned off.
    void alertSwitches()
    {
        auto preferences = open();
        QVERIFY(!preferences->alertSettings().isEnabled(AlertKind::risingFast));
        preferences->setAlertEnabled(AlertKind::risingFast, true);
        preferences->setAlertEnabled(AlertKind::urgentLow, false);
        preferences->setAlertEnabled(AlertKind::signedOut, false);
        preferences->setAlertSound(false);
        const AlertSettings settings = open()->alertSettings();
        QVERIFY(settings.isEnabled(AlertKind::risingFast));
        QVERIFY(!settings.isEnabled(AlertKind::urgentLow));
        QVERIFY(settings.isEnabled(AlertKind::low));
        QVERIFY(settings.isEnabled(AlertKind::signedOut));
        QVERIFY(!open()->alertSound());
    }

    // At launch a new build reloads the widgets, and running the version a badge waited for clears it.
    void launch_data()
    {
        QTest::addColumn<QString>("stored");  // the last launch's build; null: never launched before
        QTest::addColumn<QString>("version"); // running; a badge for 1.3.5 is up
        QTest::addColumn<QString>("build");
        QTest::addColumn<QString>("logLine"); // empty: nothing reloads
        QTest::addColumn<bool>("badgeKept");

        QTest::newRow("first launch")
            << QString() << u"1.3.4"_s << u"42"_s << u"Build changed none -> 42; reloading widgets"_s << true;
        QTest::newRow("same build") << u"42"_s << u"1.3.4"_s << u"42"_s << QString() << true;
        QTest::newRow("update installed")
            << u"42"_s << u"1.3.5"_s << u"43"_s << u"Build changed 42 -> 43; reloading widgets"_s << false;
        QTest::newRow("no running version") << u"42"_s << QString() << u"42"_s << QString() << true;
    }

    void launch()
    {
        QFETCH(QString, stored);
        QFETCH(QString, version);
        QFETCH(QString, build);
        QFETCH(QString, logLine);

        if (!stored.isNull())
            seed(u"lastLaunchedBuild"_s, stored);
        seed(u"availableUpdateVersion"_s, u"1.3.5"_s);
        LogCapture log;
        CountingReloader widgets;
        auto preferences = open();
        preferences->checkBuildChange({version, build}, widgets);
        preferences->clearInstalledUpdateBadge({version, build});
        QCOMPARE(preferences->lastLaunchedBuild(), build);
        QTEST(preferences->availableUpdateVersion().has_value(), "badgeKept");

        QStringList lines;
        for (const LogCapture::Entry &entry : log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s))
            lines.append((entry.type == QtInfoMsg ? u"info: "_s : u"other: "_s) + entry.message);
        QCOMPARE(lines, logLine.isEmpty() ? QStringList() : QStringList{u"info: "_s + logLine});
        QCOMPARE(widgets.reloads, lines.size());
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
