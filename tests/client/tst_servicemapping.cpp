#include "LogCapture.h"
#include "ServiceMapping.h"

#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// Points are written as (minutes after 10:00 local time on a winter day, value); the value tells
// readings at the same instant apart.
struct Point
{
    int minute;
    double value;

    friend bool operator==(const Point &, const Point &) = default;
};

char *toString(const Point &point)
{
    return qstrdup(qPrintable(QString::number(point.minute) + u'@' + QString::number(point.value)));
}
using Points = QList<Point>;

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::systemTimeZone());

LLUMeasurement measurementAt(const Point &point)
{
    LLUMeasurement measurement;
    measurement.timestamp = QLocale::c().toString(base.addSecs(point.minute * 60), u"M/d/yyyy h:mm:ss AP"_s);
    measurement.valueInMgPerDl = point.value;
    return measurement;
}

Points pointsOf(const QList<GlucoseReading> &readings)
{
    Points points;
    for (const GlucoseReading &reading : readings)
        points.append({static_cast<int>(base.secsTo(reading.date) / 60), reading.mgPerDl});
    return points;
}

} // namespace

class TestServiceMapping : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void measurement_data();
    void measurement();
    void unparsableTimestampIsDroppedAndLogged();
    void graph_data();
    void graph();
    void displayName_data();
    void displayName();
};

void TestServiceMapping::measurement_data()
{
    QTest::addColumn<std::optional<qint64>>("code");
    QTest::addColumn<std::optional<bool>>("high");
    QTest::addColumn<std::optional<TrendArrow>>("trend");
    QTest::addColumn<bool>("isHigh");

    QTest::newRow("steady, high") << std::optional<qint64>(3) << std::optional<bool>(true)
                                  << std::optional(TrendArrow::steady) << true;
    QTest::newRow("falling quickly") << std::optional<qint64>(1) << std::optional<bool>(false)
                                     << std::optional(TrendArrow::fallingQuickly) << false;
    QTest::newRow("rising quickly") << std::optional<qint64>(5) << std::optional<bool>()
                                    << std::optional(TrendArrow::risingQuickly) << false;
    QTest::newRow("code 0") << std::optional<qint64>(0) << std::optional<bool>()
                            << std::optional<TrendArrow>() << false;
    QTest::newRow("code 6") << std::optional<qint64>(6) << std::optional<bool>()
                            << std::optional<TrendArrow>() << false;
    QTest::newRow("code -1") << std::optional<qint64>(-1) << std::optional<bool>()
                             << std::optional<TrendArrow>() << false;
    QTest::newRow("huge code") << std::optional<qint64>(std::numeric_limits<qint64>::min())
                               << std::optional<bool>() << std::optional<TrendArrow>() << false;
    QTest::newRow("no code") << std::optional<qint64>() << std::optional<bool>()
                             << std::optional<TrendArrow>() << false;
}

void TestServiceMapping::measurement()
{
    QFETCH(std::optional<qint64>, code);
    QFETCH(std::optional<bool>, high);
    QFETCH(std::optional<TrendArrow>, trend);
    QFETCH(bool, isHigh);

    LLUMeasurement measurement;
    measurement.timestamp = u"1/5/2024 9:03:07 AM"_s;
    measurement.valueInMgPerDl = 123.456;
    measurement.trendArrow = code;
    measurement.isHigh = high;
    measurement.isLow = true;

    const auto mapped = reading(measurement);
    QVERIFY(mapped);
    QCOMPARE(mapped->date, QDateTime(QDate(2024, 1, 5), QTime(9, 3, 7), QTimeZone::systemTimeZone()));
    QCOMPARE(mapped->mgPerDl, 123.456);
    QCOMPARE(mapped->trend, trend);
    QCOMPARE(mapped->isHigh, isHigh);
    QCOMPARE(mapped->isLow, true);
}

void TestServiceMapping::unparsableTimestampIsDroppedAndLogged()
{
    LogCapture log;
    LLUGraphData graph;
    graph.graphData = {measurementAt({0, 100}), measurementAt({5, 110})};
    graph.graphData[0].timestamp = u"2024-01-05T09:03:07Z"_s;

    const GraphReadings result = readings(graph);
    QCOMPARE(pointsOf(result.history), (Points{{5, 110}}));

    const auto lines = log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines[0].type, QtCriticalMsg);
    QCOMPARE(lines[0].message, u"Could not parse timestamp 2024-01-05T09:03:07Z"_s);
}

void TestServiceMapping::graph_data()
{
    QTest::addColumn<Points>("points");
    QTest::addColumn<std::optional<Point>>("current");
    QTest::addColumn<Points>("history");
    QTest::addColumn<std::optional<Point>>("latest");

    const std::optional<Point> none;
    QTest::newRow("nothing") << Points{} << none << Points{} << none;
    QTest::newRow("out of order comes back sorted")
        << Points{{30, 3}, {0, 1}, {15, 2}} << none << Points{{0, 1}, {15, 2}, {30, 3}}
        << std::optional<Point>({30, 3});
    QTest::newRow("current newer extends history")
        << Points{{0, 1}, {15, 2}} << std::optional<Point>({20, 9}) << Points{{0, 1}, {15, 2}, {20, 9}}
        << std::optional<Point>({20, 9});
    QTest::newRow("current as new as newest point")
        << Points{{0, 1}, {15, 2}} << std::optional<Point>({15, 9}) << Points{{0, 1}, {15, 2}}
        << std::optional<Point>({15, 9});
    QTest::newRow("current older than newest point")
        << Points{{0, 1}, {15, 2}} << std::optional<Point>({5, 9}) << Points{{0, 1}, {15, 2}}
        << std::optional<Point>({5, 9});
    QTest::newRow("only current") << Points{} << std::optional<Point>({0, 9}) << Points{{0, 9}}
                                  << std::optional<Point>({0, 9});
    QTest::newRow("duplicates keep the first after sorting")
        << Points{{15, 2}, {0, 1}, {15, 3}, {0, 4}} << none << Points{{0, 1}, {15, 2}}
        << std::optional<Point>({15, 3});
    QTest::newRow("newest pair: latest is the later in service order")
        << Points{{0, 1}, {15, 5}, {15, 6}} << none << Points{{0, 1}, {15, 5}}
        << std::optional<Point>({15, 6});
}

void TestServiceMapping::graph()
{
    QFETCH(Points, points);
    QFETCH(std::optional<Point>, current);
    QFETCH(Points, history);
    QFETCH(std::optional<Point>, latest);

    LLUGraphData graph;
    for (const Point &point : std::as_const(points))
        graph.graphData.append(measurementAt(point));
    if (current) {
        LLUConnection connection;
        connection.patientId = u"p"_s;
        connection.glucoseMeasurement = measurementAt(*current);
        graph.connection = connection;
    }

    const GraphReadings result = readings(graph);
    QCOMPARE(pointsOf(result.history), history);
    QCOMPARE(result.latest.has_value(), latest.has_value());
    if (latest)
        QCOMPARE(pointsOf({*result.latest}), Points{*latest});
    for (const GlucoseReading &reading : result.history)
        QCOMPARE(reading.date.timeSpec(), Qt::UTC);
}

void TestServiceMapping::displayName_data()
{
    QTest::addColumn<std::optional<QString>>("first");
    QTest::addColumn<std::optional<QString>>("last");
    QTest::addColumn<std::optional<QString>>("expected");

    using Name = std::optional<QString>;
    QTest::newRow("both") << Name(u"Ann"_s) << Name(u"Lee"_s) << Name(u"Ann Lee"_s);
    QTest::newRow("first only") << Name(u"Ann"_s) << Name() << Name(u"Ann"_s);
    QTest::newRow("last only") << Name() << Name(u"Lee"_s) << Name(u"Lee"_s);
    QTest::newRow("neither") << Name() << Name() << Name();
    QTest::newRow("empty first still joins") << Name(u""_s) << Name(u"Lee"_s) << Name(u" Lee"_s);
    QTest::newRow("empty first alone") << Name(u""_s) << Name() << Name();
    QTest::newRow("two empty names") << Name(u""_s) << Name(u""_s) << Name(u" "_s);
}

void TestServiceMapping::displayName()
{
    QFETCH(std::optional<QString>, first);
    QFETCH(std::optional<QString>, last);
    QFETCH(std::optional<QString>, expected);

    LLUConnection connection;
    connection.firstName = first;
    connection.lastName = last;
    QCOMPARE(glinta::displayName(connection), expected);

    // The graph carries the name through, and has none without a connection.
    LLUGraphData graph;
    graph.connection = connection;
    QCOMPARE(readings(graph).displayName, expected);
    QCOMPARE(readings(LLUGraphData{}).displayName, std::optional<QString>());
}

QTEST_GUILESS_MAIN(TestServiceMapping)
#include "tst_servicemapping.moc"
