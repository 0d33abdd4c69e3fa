#include "LogCapture.h"
#include "ServiceMapping.h"

#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// (minutes after 10:00 local time on a winter day, value); the value tells readings at the same instant
// apart.
using Point = std::pair<int, double>;
using Points = QList<Point>;

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::systemTimeZone());

LLUMeasurement measurementAt(const Point &point)
{
    const QDateTime time = base.addSecs(point.first * 60);
    return {QLocale::c().toString(time, u"M/d/yyyy h:mm:ss AP"_s), point.second, {}, {}, {}};
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
    void measurement();
    void unparsableTimestampIsDroppedAndLogged();
    void graph_data();
    void graph();
    void displayName_data();
    void displayName();
};

void TestServiceMapping::measurement()
{
    const QString timestamp = u"1/5/2024 9:03:07 AM"_s;
    auto mapped = reading({timestamp, 123.456, 5, true, std::nullopt});
    QVERIFY(mapped);
    QCOMPARE(mapped->date, QDateTime(QDate(2024, 1, 5), QTime(9, 3, 7), QTimeZone::systemTimeZone()));
    QCOMPARE(mapped->mgPerDl, 123.456);
    QCOMPARE(mapped->trend, TrendArrow::risingQuickly);
    QVERIFY(mapped->isHigh && !mapped->isLow);

    // An unknown trend code gives no trend; a missing flag reads as false.
    mapped = reading({timestamp, 1.0, 6, std::nullopt, true});
    QVERIFY(mapped);
    QCOMPARE(mapped->trend, std::nullopt);
    QVERIFY(!mapped->isHigh && mapped->isLow);
}

void TestServiceMapping::unparsableTimestampIsDroppedAndLogged()
{
    const LogCapture log;
    LLUGraphData graph;
    graph.graphData = {measurementAt({0, 100}), measurementAt({5, 110})};
    graph.graphData[0].timestamp = u"2024-01-05T09:03:07Z"_s;

    QCOMPARE(pointsOf(readings(graph).history), (Points{{5, 110}}));
    const auto lines = log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines[0].type, QtCriticalMsg);
    QCOMPARE(lines[0].message, u"Could not parse timestamp 2024-01-05T09:03:07Z"_s);
}

void TestServiceMapping::graph_data()
{
    QTest::addColumn<Points>("points");
    QTest::addColumn<Points>("current");
    QTest::addColumn<Points>("history");
    QTest::addColumn<Points>("latest");

    using P = Points;
    QTest::newRow("nothing") << P{} << P{} << P{} << P{};
    QTest::newRow("sorted") << P{{30, 3}, {0, 1}, {15, 2}} << P{} << P{{0, 1}, {15, 2}, {30, 3}}
                            << P{{30, 3}};
    QTest::newRow("current newer") << P{{0, 1}, {15, 2}} << P{{20, 9}} << P{{0, 1}, {15, 2}, {20, 9}}
                                   << P{{20, 9}};
    QTest::newRow("current as new") << P{{0, 1}, {15, 2}} << P{{15, 9}} << P{{0, 1}, {15, 2}} << P{{15, 9}};
    QTest::newRow("current older") << P{{0, 1}, {15, 2}} << P{{5, 9}} << P{{0, 1}, {15, 2}} << P{{5, 9}};
    QTest::newRow("only current") << P{} << P{{0, 9}} << P{{0, 9}} << P{{0, 9}};
    QTest::newRow("duplicates keep the first")
        << P{{15, 2}, {0, 1}, {15, 3}, {0, 4}} << P{} << P{{0, 1}, {15, 2}} << P{{15, 3}};
    // Of two newest points at one instant, the later in the service's order.
    QTest::newRow("latest before duplicates go")
        << P{{0, 1}, {15, 5}, {15, 6}} << P{} << P{{0, 1}, {15, 5}} << P{{15, 6}};
}

void TestServiceMapping::graph()
{
    QFETCH(Points, points);
    QFETCH(Points, current); // at most one
    QFETCH(Points, history);
    QFETCH(Points, latest); // at most one

    LLUGraphData graph;
    for (const Point &point : std::as_const(points))
        graph.graphData.append(measurementAt(point));
    if (!current.isEmpty())
        graph.connection = LLUConnection{u"p"_s, {}, {}, measurementAt(current.first())};

    const GraphReadings result = readings(graph);
    QCOMPARE(pointsOf(result.history), history);
    QCOMPARE(pointsOf(result.latest ? QList{*result.latest} : QList<GlucoseReading>()), latest);
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

    LLUGraphData graph;
    graph.connection = LLUConnection{u"p"_s, first, last, {}};
    QCOMPARE(glinta::displayName(*graph.connection), expected);
    QCOMPARE(readings(graph).displayName, expected);
}

QTEST_GUILESS_MAIN(TestServiceMapping)
#include "tst_servicemapping.moc"
