#include "StatusLine.h"

#include <QBuffer>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QDateTime shownAt(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
const QString warning = u" \u26A0\uFE0E"_s;

// An entry whose newest reading is `age` seconds old at the moment it is shown.
GlucoseEntry entryWith(double mgPerDl, std::optional<TrendArrow> trend, double age, bool isHigh = false,
                       bool isLow = false, GlucoseUnit unit = GlucoseUnit::mgPerDl, double targetLow = 70)
{
    const GlucoseReading latest{shownAt.addMSecs(qint64(-age * 1000)), mgPerDl, trend, isHigh, isLow};
    return {shownAt, GlucoseSnapshot{latest, {latest}, unit, u"Ana"_s, targetLow, 180, shownAt}};
}

} // namespace

class StatusLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lines_data()
    {
        QTest::addColumn<GlucoseEntry>("entry");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("classes");
        QTest::addColumn<QString>("tooltip");
        const auto steady = TrendArrow::steady;
        QTest::newRow("low") << entryWith(65, TrendArrow::falling, 300) << u"65 ↘"_s << u"low"_s
                             << u"Glucose 65 mg/dL, falling"_s;
        QTest::newRow("low by the service's flag") << entryWith(110, steady, 60, false, true) << u"110 →"_s
                                                   << u"low"_s << u"Glucose 110 mg/dL, steady"_s;
        QTest::newRow("low by the snapshot's own range")
            << entryWith(75, std::nullopt, 60, false, false, GlucoseUnit::mgPerDl, 80) << u"75"_s << u"low"_s
            << u"Glucose 75 mg/dL"_s;
        QTest::newRow("high") << entryWith(250, TrendArrow::risingQuickly, 60, true) << u"250 ↑"_s
                              << u"high"_s << u"Glucose 250 mg/dL, rising quickly"_s;
        QTest::newRow("high by value")
            << entryWith(181, std::nullopt, 60) << u"181"_s << u"high"_s << u"Glucose 181 mg/dL"_s;
        QTest::newRow("in range at 70")
            << entryWith(70, steady, 60) << u"70 →"_s << u"in-range"_s << u"Glucose 70 mg/dL, steady"_s;
        QTest::newRow("in range at 180, 900 s old") << entryWith(180, TrendArrow::rising, 900) << u"180 ↗"_s
                                                    << u"in-range"_s << u"Glucose 180 mg/dL, rising"_s;
        QTest::newRow("in range, mmol/L") << entryWith(100, steady, 60, false, false, GlucoseUnit::mmolPerL)
                                          << u"5.5 →"_s << u"in-range"_s << u"Glucose 5.5 mmol/L, steady"_s;
        QTest::newRow("stale and in range")
            << entryWith(124, steady, 900.001) << u"124 →"_s + warning << u"in-range\",\"stale"_s
            << u"Glucose 124 mg/dL, steady, data is stale"_s;
        QTest::newRow("stale and low")
            << entryWith(54, TrendArrow::fallingQuickly, 3600, false, true) << u"54 ↓"_s + warning
            << u"low\",\"stale"_s << u"Glucose 54 mg/dL, falling quickly, data is stale"_s;
        QTest::newRow("no snapshot") << GlucoseEntry{shownAt, std::nullopt} << u"–"_s << u"none"_s
                                     << u"Glinta: no glucose data"_s;
        GlucoseEntry withoutLatest = entryWith(124, std::nullopt, 60);
        withoutLatest.snapshot->latest.reset();
        QTest::newRow("snapshot without a reading")
            << withoutLatest << u"–"_s << u"none"_s << u"Glinta: no glucose data"_s;
    }

    void lines()
    {
        QFETCH(GlucoseEntry, entry);
        QFETCH(QString, plain);
        QFETCH(QString, classes);
        QFETCH(QString, tooltip);
        QCOMPARE(statusLine(entry, StatusLineFormat::plain), plain);
        QCOMPARE(statusLine(entry, StatusLineFormat::waybar),
                 uR"({"class":["%1"],"text":"%2","tooltip":"%3"})"_s.arg(classes, plain, tooltip));
    }

    void printsChangesAndOnceAMinute()
    {
        QBuffer output;
        QVERIFY(output.open(QIODevice::WriteOnly));
        StatusLinePrinter printer(&output, StatusLineFormat::plain);
        const auto at = [](GlucoseEntry entry, int seconds) {
            entry.date = entry.date.addSecs(seconds);
            return entry;
        };
        const GlucoseEntry first = entryWith(124, TrendArrow::steady, 60);
        printer.show(first);
        printer.show(at(first, 10));                                 // a reload with nothing new
        printer.show(at(entryWith(130, TrendArrow::rising, 0), 20)); // new data
        printer.show(at(entryWith(130, TrendArrow::rising, 0), 79)); // the minute tick after it
        printer.show(at(GlucoseEntry{shownAt, std::nullopt}, 85));   // signed out
        QCOMPARE(QString::fromUtf8(output.data()), u"124 →\n130 ↗\n130 ↗\n–\n"_s);
    }
};

QTEST_GUILESS_MAIN(StatusLineTest)
#include "tst_statusline.moc"