#include "TestSupport.h"
#include "snapshot/GlucoseSnapshot.h"
#include "store/AlertEngine.h"
#include "store/AlertMonitor.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(glinta::AlertSettings)

class TestAlertEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A script is looks at the engine, "|" between: the minute, "@" the reading's minute if not then, "=" its
    // value and "↓"/"↘" its trend, or "!" for a blind loop with no reading; then what the engine says.
    void evaluate_data()
    {
        // snoozeLowUntil: minute; negative: no snooze
        columns<QString, AlertSettings, int>("script", "settings", "snoozeLowUntil");

        const auto row = [](const char *name, const QString &script, const AlertSettings &settings = {},
                            int snoozeLowUntil = -1) {
            QTest::newRow(name) << script << settings << snoozeLowUntil;
        };
        // Not before the repeat interval, even across episodes, once a reading at most; the line ends it.
        row("low", u"0=69.9 +low | 5=62 | 15@5=62 +low | 20=62 | 25=70 -low | 28=62 | 30=62 +low"_s);
        row("urgent low speaks for low",
            u"0=54.9 +urgentLow | 3=50 | 5=50 +urgentLow | 10@5=50 | 12=55 -urgentLow +low"_s);
        AlertSettings mmol;
        mmol.unit = GlucoseUnit::mmolPerL;
        row("urgent line at 3.0 mmol/L", u"0=54.1 +low | 5=54 +urgentLow -low"_s, mmol);
        row("fast trend once an episode; low below the urgent line when urgent is off",
            u"0=40↓ +low +fallingFast | 5=40↓ | 10=40↘ -fallingFast | 15=40↓ +low +fallingFast"_s,
            {{}, {}, {{AlertKind::fallingFast, true}, {AlertKind::urgentLow, false}}});
        row("own range", u"0=75 +low | 5=180.5 -low | 10=250.5 +high | 70=251 +high"_s, {{80, 250}, {}, {}});
        row("snoozed", u"0=62 | 15=62 | 20=62 +low"_s, {}, 20);
        // A stale reading raises nothing but this, every half hour until a reading comes.
        row("no readings",
            u"20@0=40 | 21@0=40 +noReadings | 50@0=40 | 51@0=40 +noReadings | 52=100 -noReadings"_s);
        row("signed out", u"0! +signedOut | 60! | 61=100 -signedOut"_s);
    }

    void evaluate()
    {
        const auto [script, settings, snoozeLowUntil] =
            fetch<QString, AlertSettings, int>("script", "settings", "snoozeLowUntil");

        const QDateTime start(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
        const auto at = [&start](const QString &minute) { return start.addSecs(minute.toInt() * 60); };
        static const QRegularExpression look(u"^(\\d+)(?:@(\\d+))?(?:=([\\d.]+)(↓|↘)?|(!))$"_s);

        AlertState state;
        if (snoozeLowUntil >= 0)
            state.snoozedUntil.insert(AlertKind::low, at(QString::number(snoozeLowUntil)));
        for (const QString &step : script.split(u'|')) {
            QStringList expected = step.simplified().split(u' ');
            const QRegularExpressionMatch parts = look.match(expected.takeFirst());
            QVERIFY2(parts.hasMatch(), qPrintable(step));
            std::optional<GlucoseReading> latest;
            if (!parts.hasCaptured(5)) {
                const std::optional<TrendArrow> trend =
                    parts.captured(4).isEmpty()
                        ? std::nullopt
                        : std::optional(parts.captured(4) == u"↓" ? TrendArrow::fallingQuickly
                                                                  : TrendArrow::falling);
                latest = GlucoseReading{at(parts.hasCaptured(2) ? parts.captured(2) : parts.captured(1)),
                                        parts.captured(3).toDouble(), trend, false, false};
            }
            QStringList said;
            for (const AlertAction &action :
                 AlertEngine::evaluate(latest, at(parts.captured(1)), parts.hasCaptured(5), settings, state))
                said.append((action.type == AlertAction::Type::raise ? u"+"_s : u"-"_s) +
                            alertKindName(action.kind));
            QCOMPARE(said.join(u' '), expected.join(u' '));
        }
    }

    // Alert memory outlives a restart: no repeat before its interval, a snooze closes it, bad memory resets.
    void monitorRemembers()
    {
        const QTemporaryDir dir;
        Preferences preferences(
            std::make_unique<QSettings>(dir.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        GlucoseSnapshot snapshot;
        snapshot.latest = GlucoseReading{QDateTime::currentDateTimeUtc(), 62, {}, false, false};
        const auto store = GlucoseStore::fromSnapshot(snapshot);
        const auto raisedOnStart = [&] {
            AlertMonitor monitor(store.get(), &preferences);
            QSignalSpy raised(&monitor, &AlertMonitor::raised);
            monitor.start();
            return raised.count();
        };
        QCOMPARE(raisedOnStart(), 1);
        QCOMPARE(store->activeAlert(), AlertKind::low);
        QCOMPARE(raisedOnStart(), 0);
        preferences.setAlertState(u"{\"low\": 5"_s);
        QCOMPARE(raisedOnStart(), 1);

        AlertMonitor monitor(store.get(), &preferences);
        monitor.start();
        QSignalSpy closed(&monitor, &AlertMonitor::closed);
        monitor.snooze(AlertKind::low, 30min);
        QCOMPARE(closed.count(), 1);
        QVERIFY(!monitor.isActive(AlertKind::low));
        QCOMPARE(store->activeAlert(), std::nullopt);

        // A range the reading falls out of raises at once.
        snapshot.latest->mgPerDl = 150;
        const auto inRange = GlucoseStore::fromSnapshot(snapshot);
        AlertMonitor rangeMonitor(inRange.get(), &preferences);
        QSignalSpy raised(&rangeMonitor, &AlertMonitor::raised);
        rangeMonitor.start();
        preferences.setTargetRange({70, 140});
        QCOMPARE(raised.count(), 1);
        QCOMPARE(inRange->activeAlert(), AlertKind::high);
    }

    // What the notification and the panel say.
    void texts_data()
    {
        // value: negative: no reading
        columns<AlertKind, GlucoseUnit, double, QString, int, QString, QString>(
            "kind", "unit", "value", "name", "ageSeconds", "title", "body");

        const auto mg = GlucoseUnit::mgPerDl;
        QTest::newRow("low") << AlertKind::low << mg << 62.0 << u"Ann Lee"_s << 150 << u"Low: 62 ↘"_s
                             << u"Ann Lee · 2 min ago"_s;
        QTest::newRow("urgent, mmol/L, clock behind")
            << AlertKind::urgentLow << GlucoseUnit::mmolPerL << 51.0 << u"Ann Lee"_s << -30
            << u"Urgent low: 2.8 ↘"_s << u"Ann Lee · just now"_s;
        QTest::newRow("no name") << AlertKind::high << mg << 250.0 << QString() << 59 << u"High: 250 ↘"_s
                                 << u"just now"_s;
        QTest::newRow("no readings") << AlertKind::noReadings << mg << 100.0 << u"Ann Lee"_s << 3900
                                     << u"No new readings"_s << u"Ann Lee · last reading 1 hr, 5 min ago"_s;
        QTest::newRow("signed out, no reading")
            << AlertKind::signedOut << mg << -1.0 << u"Ann Lee"_s << 0 << u"Signed out by LibreLinkUp"_s
            << u"Ann Lee · Sign in again to see new readings"_s;
    }

    void texts()
    {
        const auto [kind, unit, value, name, ageSeconds] =
            fetch<AlertKind, GlucoseUnit, double, QString, int>("kind", "unit", "value", "name",
                                                                "ageSeconds");

        const QDateTime now = QDateTime::currentDateTimeUtc();
        std::optional<GlucoseReading> latest;
        if (value >= 0)
            latest = GlucoseReading{now.addSecs(-ageSeconds), value, TrendArrow::falling, false, false};
        QTEST(alertTitle(kind, latest, unit), "title");
        QTEST(alertBody(kind, latest, name.isEmpty() ? std::nullopt : std::optional(name), now), "body");
    }
};

QTEST_GUILESS_MAIN(TestAlertEngine)
#include "tst_alertengine.moc"
