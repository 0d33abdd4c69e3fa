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

Q_DECLARE_METATYPE(glinta::GlucoseUnit)
Q_DECLARE_METATYPE(QList<glinta::GlucoseReading>)
Q_DECLARE_METATYPE(QList<glinta::GlucoseChartSegment>)

namespace {

const QString enDash = u"\u2013"_s;
const auto mg = GlucoseUnit::mgPerDl;
const auto mmol = GlucoseUnit::mmolPerL;

// Every time in these tests is an offset in seconds from 10:00.
QDateTime at(qint64 seconds)
{
    return QDateTime(QDate(2024, 5, 1), QTime(10, 0), Qt::UTC).addSecs(seconds);
}

// Readings five minutes apart, as the sensor reports them.
QList<GlucoseReading> values(std::initializer_list<double> mgPerDl)
{
    QList<GlucoseReading> history;
    qint64 seconds = 0;
    for (const double value : mgPerDl) {
        history.append(GlucoseReading{at(seconds), value, {}, false, false});
        seconds += 300;
    }
    return history;
}

QList<GlucoseReading> timed(std::initializer_list<std::pair<qint64, double>> points)
{
    QList<GlucoseReading> history;
    for (const auto &[seconds, value] : points)
        history.append(GlucoseReading{at(seconds), value, {}, false, false});
    return history;
}

GlucoseChartSegment segment(qsizetype id, bool below, std::initializer_list<std::pair<qint64, double>> points)
{
    GlucoseChartSegment result{id, below, {}};
    for (const auto &[seconds, value] : points)
        result.points.append(GlucoseChartPoint{at(seconds), value});
    return result;
}

// Whole lists, so a failure shows where the two runs part even when their lengths differ.
QString describe(const QList<GlucoseChartSegment> &segments)
{
    QString text;
    for (const GlucoseChartSegment &segment : segments) {
        text +=
            u"\n  #"_s + QString::number(segment.id) + (segment.isBelowRedLine ? u" below:"_s : u" above:"_s);
        for (const GlucoseChartPoint &point : segment.points) {
            text += u' ' + point.date.toUTC().toString(u"HH:mm:ss.zzz"_s) + u'=' +
                    QString::number(point.mgPerDl, 'g', 17);
        }
    }
    return text.isEmpty() ? u" none"_s : text;
}

} // namespace

class TestGlucoseStatistics : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void average_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<QString>("expected");

        QTest::newRow("empty mg/dL") << QList<GlucoseReading>() << mg << enDash;
        QTest::newRow("empty mmol/L") << QList<GlucoseReading>() << mmol << enDash;
        QTest::newRow("one of 65") << values({65}) << mg << u"65"_s;
        QTest::newRow("100 and 110 mg/dL") << values({100, 110}) << mg << u"105"_s;
        // 5.827...: converted after averaging, not rounded to mg/dL first.
        QTest::newRow("100 and 110 mmol/L") << values({100, 110}) << mmol << u"5.8"_s;
        QTest::newRow("mean of a half rounds up") << values({141, 142}) << mg << u"142"_s;
        QTest::newRow("mean uses every reading") << values({60, 60, 60, 200}) << mg << u"95"_s;
        // 100.5 from the stored values; rounding each reading first would give 100.
        QTest::newRow("fractions kept") << values({100.25, 100.25, 101}) << mg << u"101"_s;
    }

    void average()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(GlucoseUnit, unit);
        QFETCH(QString, expected);

        QCOMPARE(averageText(history, unit), expected);
    }

    void inRange_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<QString>("expected");

        QTest::newRow("empty") << QList<GlucoseReading>() << enDash;
        QTest::newRow("one of 65") << values({65}) << u"0%"_s;
        QTest::newRow("bounds inclusive") << values({70, 180}) << u"100%"_s;
        QTest::newRow("69.9") << values({69.9}) << u"0%"_s;
        QTest::newRow("180.1") << values({180.1}) << u"0%"_s;
        QTest::newRow("two of three") << values({100, 100, 50}) << u"67%"_s;
        QTest::newRow("one of three") << values({100, 50, 250}) << u"33%"_s;
        QTest::newRow("one of eight, 12.5") << values({100, 50, 50, 50, 50, 50, 50, 50}) << u"13%"_s;
        QTest::newRow("five of eight, 62.5") << values({100, 100, 100, 100, 100, 50, 50, 50}) << u"63%"_s;
        QTest::newRow("NaN is out of range")
            << values({100, std::numeric_limits<double>::quiet_NaN()}) << u"50%"_s;
    }

    void inRange()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(QString, expected);

        QCOMPARE(inRangeText(history), expected);
    }

    void readingCount_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<QString>("expected");

        QTest::newRow("empty") << QList<GlucoseReading>() << u"0"_s;
        QTest::newRow("one") << values({65}) << u"1"_s;
        // The chart leaves the repeated and the earlier date out; the count does not.
        QTest::newRow("dates not increasing")
            << timed({{0, 100}, {0, 110}, {-60, 120}, {300, 130}}) << u"4"_s;
        QTest::newRow("144") << QList<GlucoseReading>(144, values({100}).constFirst()) << u"144"_s;
    }

    void readingCount()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(QString, expected);

        QCOMPARE(readingCountText(history), expected);
    }

    void yDomain_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("lower");
        QTest::addColumn<double>("upper");

        QTest::newRow("empty mg/dL") << QList<GlucoseReading>() << mg << 40.0 << 220.0;
        QTest::newRow("empty mmol/L") << QList<GlucoseReading>() << mmol << 40 / 18.0182 << 220 / 18.0182;
        QTest::newRow("highest 250") << values({100, 250, 120}) << mg << 40.0 << 270.0;
        QTest::newRow("highest 250 mmol/L") << values({250}) << mmol << 40 / 18.0182 << 270 / 18.0182;
        QTest::newRow("highest 180") << values({180}) << mg << 40.0 << 220.0;
        QTest::newRow("highest 200.5") << values({200.5}) << mg << 40.0 << 220.5;
        QTest::newRow("all low") << values({45, 39}) << mg << 40.0 << 220.0;
    }

    void yDomain()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(GlucoseUnit, unit);
        QFETCH(double, lower);
        QFETCH(double, upper);

        const GlucoseChartDomain domain = chartYDomain(history, unit);
        QCOMPARE(domain.lower, lower);
        QCOMPARE(domain.upper, upper);
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
        QTest::newRow("80 then 60") << values({80, 60}) << 70.0
                                    << QList{segment(0, false, {{0, 80}, {150, 70}}),
                                             segment(1, true, {{150, 70}, {300, 60}})};
        QTest::newRow("75, 65, 75") << values({75, 65, 75}) << 70.0
                                    << QList{segment(0, false, {{0, 75}, {150, 70}}),
                                             segment(1, true, {{150, 70}, {300, 65}, {450, 70}}),
                                             segment(2, false, {{450, 70}, {600, 75}})};
        QTest::newRow("a third of the way")
            << timed({{0, 60}, {90, 90}}) << 70.0
            << QList{segment(0, true, {{0, 60}, {30, 70}}), segment(1, false, {{30, 70}, {90, 90}})};
        QTest::newRow("72 then 70") << values({72, 70}) << 70.0
                                    << QList{segment(0, false, {{0, 72}, {300, 70}})};
        QTest::newRow("65 then 70") << values({65, 70}) << 70.0
                                    << QList{segment(0, true, {{0, 65}, {300, 70}}),
                                             segment(1, false, {{300, 70}})};
        // The crossing falls on the first reading's date and is not repeated there.
        QTest::newRow("70 then 65") << values({70, 65}) << 70.0
                                    << QList{segment(0, false, {{0, 70}}),
                                             segment(1, true, {{0, 70}, {300, 65}})};
        QTest::newRow("no crossing below")
            << values({60, 50, 65}) << 70.0 << QList{segment(0, true, {{0, 60}, {300, 50}, {600, 65}})};
        QTest::newRow("repeated date left out") << timed({{0, 100}, {0, 110}, {300, 120}}) << 70.0
                                                << QList{segment(0, false, {{0, 100}, {300, 120}})};
        QTest::newRow("earlier date left out") << timed({{0, 100}, {-60, 110}, {300, 120}}) << 70.0
                                               << QList{segment(0, false, {{0, 100}, {300, 120}})};
        QTest::newRow("crossing at a repeated date")
            << timed({{0, 80}, {0, 60}, {300, 50}}) << 70.0
            << QList{segment(0, false, {{0, 80}}), segment(1, true, {{0, 70}, {300, 50}})};
        QTest::newRow("red line of 100") << values({90, 110, 95}) << 100.0
                                         << QList{segment(0, true, {{0, 90}, {150, 100}}),
                                                  segment(1, false, {{150, 100}, {300, 110}, {500, 100}}),
                                                  segment(2, true, {{500, 100}, {600, 95}})};
    }

    void segments()
    {
        QFETCH(QList<GlucoseReading>, readings);
        QFETCH(double, redLine);
        QFETCH(QList<GlucoseChartSegment>, expected);

        const QList<GlucoseChartSegment> actual = chartSegments(readings, redLine);
        QVERIFY2(actual == expected,
                 qPrintable(u"\nactual:"_s + describe(actual) + u"\nexpected:"_s + describe(expected)));
    }
};

QTEST_GUILESS_MAIN(TestGlucoseStatistics)
#include "tst_glucosestatistics.moc"
