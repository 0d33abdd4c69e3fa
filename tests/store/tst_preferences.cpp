#include "CountingReloader.h"
#include "LogCapture.h"
#include "store/Preferences.h"
#include "support/BuildInfo.h"

#include <QTemporaryDir>
#include <QTest>

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

    // A hand-edited range that is unreadable, or not one the user could pick, reads as the default; only
    // the exact raw value reads as mmol/L.
    void handEdited()
    {
        seed(u"glucoseUnit"_s, u"mmol/L"_s);
        QCOMPARE(open()->glucoseUnit(), GlucoseUnit::mmolPerL);
        seed(u"glucoseUnit"_s, u"mmol/l"_s);
        QCOMPARE(open()->glucoseUnit(), GlucoseUnit::mgPerDl);
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

        const QStringList lines = log.lines(u"GlucoseStore"_s);
        QCOMPARE(lines, logLine.isEmpty() ? QStringList() : QStringList{u"info: "_s + logLine});
        QCOMPARE(widgets.reloads, lines.size());
    }
};

QTEST_GUILESS_MAIN(TestPreferences)

#include "tst_preferences.moc"
