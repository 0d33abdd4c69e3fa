#include "GlucoseChartSeries.h"
#include "GlucoseReading.h"
#include "GlucoseStatistics.h"
#include "GlucoseUnit.h"

#include <QTest>

#include <initializer_list>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString enDash = u"\u2013"_s;
const auto mg = GlucoseUnit::mgPerDl;
const auto mmol = GlucoseUnit::mmolPerL;

// Every time in these tests is an offset in seconds from 10:00.
QDateTime at(qint64 seconds)
{
    return QDateTime(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC).addSecs(seconds);
}

QList<GlucoseReading> timed(std::initializer_list<std::pair<qint64, double>> points)
{
    QList<GlucoseReading> history;
    for (const auto &[seconds, value] : points)
        history.append(GlucoseReading{at(seconds), value, {}, false, false});
    return history;
}

// Readings five minutes apart, as the sensor reports them.
QList<GlucoseReading> values(std::initializer_list<double> mgPerDl)
{
    QList<GlucoseReading> history;
    for (const double value : mgPerDl)
        history.append(GlucoseReading{at(300 * history.size()), value, {}, false, false});
    return history;
}

GlucoseChartSegment segment(qsizetype id, bool below, std::initializer_list<std::pair<qint64, double>> points)
{
    GlucoseChartSegment result{id, below, {}};
    for (const auto &[seconds, value] : points)
        result.points.append(GlucoseChartPoint{at(seconds), value});
    return result;
}

} // namespace

class TestGlucoseStatistics : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void texts_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<QString>("average");
        QTest::addColumn<QString>("inRange");
        QTest::addColumn<QString>("count");

        const double nan = std::numeric_limits<double>::quiet_NaN();
        QTest::newRow("empty") << QList<GlucoseReading>() << mg << enDash << enDash << u"0"_s;
        QTest::newRow("one of 65") << values({65}) << mg << u"65"_s << u"0%"_s << u"1"_s;
        QTest::newRow("bounds inclusive") << values({70, 180}) << mg << u"125"_s << u"100%"_s << u"2"_s;
        QTest::newRow("just outside") << values({69.9, 180.1}) << mg << u"125"_s << u"0%"_s << u"2"_s;
        QTest::newRow("two of three") << values({100, 100, 50}) << mg << u"83"_s << u"67%"_s << u"3"_s;
        QTest::newRow("one of three") << values({100, 50, 250}) << mg << u"133"_s << u"33%"_s << u"3"_s;
        QTest::newRow("one of eight, 12.5")
            << values({100, 50, 50, 50, 50, 50, 50, 50}) << mg << u"56"_s << u"13%"_s << u"8"_s;
        QTest::newRow("NaN is out of range") << values({100, nan}) << mg << enDash << u"50%"_s << u"2"_s;
        // 100.5 from the stored values; rounding each reading first would give 100.
        QTest::newRow("fractions kept")
            << values({100.25, 100.25, 101}) << mg << u"101"_s << u"100%"_s << u"3"_s;
        // 100.25 is 5.56 mmol/L; rounded to mg/dL first it would be 5.5.
        QTest::newRow("mmol/L") << values({100, 100.5}) << mmol << u"5.6"_s << u"100%"_s << u"2"_s;
        // The chart leaves the repeated and the earlier date out; the statistics do not.
        QTest::newRow("dates not increasing")
            << timed({{0, 100}, {0, 110}, {-60, 120}, {300, 130}}) << mg << u"115"_s << u"100%"_s << u"4"_s;
    }

    void texts()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(GlucoseUnit, unit);

        QTEST(averageText(history, unit), "average");
        QTEST(inRangeText(history), "inRange");
        QTEST(readingCountText(history), "count");
    }

    void yDomain_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("lower");
        QTest::addColumn<double>("upper");

        QTest::newRow("empty") << QList<GlucoseReading>() << mg << 40.0 << 220.0;
        QTest::newRow("all low") << values({45, 39}) << mg << 40.0 << 220.0;
        const double nan = std::numeric_limits<double>::quiet_NaN();
        QTest::newRow("highest 250, NaN never the top")
            << values({nan, 100, 250, 120, nan}) << mg << 40.0 << 270.0;
        QTest::newRow("highest 250 mmol/L") << values({250}) << mmol << 40 / 18.0182 << 270 / 18.0182;
    }

    void yDomain()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(GlucoseUnit, unit);

        const GlucoseChartDomain domain = chartYDomain(history, unit);
        QTEST(domain.lower, "lower");
        QTEST(domain.upper, "upper");
    }

    void segments_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("readings");
        QTest::addColumn<double>("redLine");
        QTest::addColumn<QList<GlucoseChartSegment>>("expected");

        QTest::newRow("empty") << QList<GlucoseReading>() << 70.0 << QList<GlucoseChartSegment>();
        QTest::newRow("one of 65") << values({65}) << 70.0 << QList{segment(0, true, {{0, 65}})};
        QTest::newRow("60 at 10:00, 80 at 10:10")
            << timed({{0, 60}, {600, 80}}) << 70.0
            << QList{segment(0, true, {{0, 60}, {300, 70}}), segment(1, false, {{300, 70}, {600, 80}})};
        QTest::newRow("75, 65, 75") << values({75, 65, 75}) << 70.0
                                    << QList{segment(0, false, {{0, 75}, {150, 70}}),
                                             segment(1, true, {{150, 70}, {300, 65}, {450, 70}}),
                                             segment(2, false, {{450, 70}, {600, 75}})};
        QTest::newRow("72 then 70") << values({72, 70}) << 70.0
                                    << QList{segment(0, false, {{0, 72}, {300, 70}})};
        QTest::newRow("65 then 70") << values({65, 70}) << 70.0
                                    << QList{segment(0, true, {{0, 65}, {300, 70}}),
                                             segment(1, false, {{300, 70}})};
        // The crossing falls on the first reading's date and is not repeated there.
        QTest::newRow("70 then 65") << values({70, 65}) << 70.0
                                    << QList{segment(0, false, {{0, 70}}),
                                             segment(1, true, {{0, 70}, {300, 65}})};
        QTest::newRow("repeated and earlier dates left out")
            << timed({{0, 100}, {0, 110}, {-60, 115}, {300, 120}}) << 70.0
            << QList{segment(0, false, {{0, 100}, {300, 120}})};
        // Crossings a half and two thirds of the way along.
        QTest::newRow("red line of 100") << values({90, 110, 95}) << 100.0
                                         << QList{segment(0, true, {{0, 90}, {150, 100}}),
                                                  segment(1, false, {{150, 100}, {300, 110}, {500, 100}}),
                                                  segment(2, true, {{500, 100}, {600, 95}})};
    }

    void segments()
    {
        QFETCH(QList<GlucoseReading>, readings);
        QFETCH(double, redLine);

        QTEST(chartSegments(readings, redLine), "expected");
    }
};

QTEST_GUILESS_MAIN(TestGlucoseStatistics)
#include "tst_glucosestatistics.moc"
