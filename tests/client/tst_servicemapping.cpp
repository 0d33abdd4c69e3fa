#include "LogCapture.h"
#include "ServiceMapping.h"

#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// (minutes after 10:00 local time on a winter day, value); the value tells readings at the same instant
// apart. A negative minute stands for a timestamp the parser cannot read.
using Point = std::pair<int, double>;
using Points = QList<Point>;

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::systemTimeZone());

LLUMeasurement measurementAt(const Point &point)
{
    const QDateTime time = base.addSecs(point.first * 60);
    return {point.first < 0 ? time.toString(Qt::ISODate)
                            : QLocale::c().toString(time, u"M/d/yyyy h:mm:ss AP"_s),
            point.second,
            {},
            {},
            {}};
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
    void measurement()
    {
        // Dates and times are the graph's rows; a missing flag reads as false, an unknown trend code as none.
        const QString timestamp = u"1/5/2024 9:03:07 AM"_s;
        const auto mapped = reading({timestamp, 123.456, 5, true, std::nullopt});
        QVERIFY(mapped && mapped->mgPerDl == 123.456 && mapped->trend == TrendArrow::risingQuickly &&
                mapped->isHigh && !mapped->isLow);
        const auto unknown = reading({timestamp, 1.0, 6, std::nullopt, true});
        QVERIFY(unknown && !unknown->trend && !unknown->isHigh && unknown->isLow);
    }

    void graph_data()
    {
        QTest::addColumn<Points>("points");
        QTest::addColumn<Points>("current");
        QTest::addColumn<Points>("history");
        QTest::addColumn<Points>("latest");

        // A current reading as new as the newest point, and two newest points at one instant, are the store's
        // rows (tests/store).
        using P = Points;
        QTest::newRow("nothing") << P{} << P{} << P{} << P{};
        QTest::newRow("sorted") << P{{30, 3}, {0, 1}, {15, 2}} << P{} << P{{0, 1}, {15, 2}, {30, 3}}
                                << P{{30, 3}};
        QTest::newRow("current newer")
            << P{{0, 1}, {15, 2}} << P{{20, 9}} << P{{0, 1}, {15, 2}, {20, 9}} << P{{20, 9}};
        QTest::newRow("current as new")
            << P{{0, 1}, {15, 2}} << P{{15, 9}} << P{{0, 1}, {15, 2}} << P{{15, 9}};
        QTest::newRow("current older") << P{{0, 1}, {15, 2}} << P{{5, 9}} << P{{0, 1}, {15, 2}} << P{{5, 9}};
        QTest::newRow("only current") << P{} << P{{0, 9}} << P{{0, 9}} << P{{0, 9}};
        // The history keeps the first of two points at one instant; of two newest, the later is the latest.
        QTest::newRow("duplicates keep the first")
            << P{{15, 2}, {0, 1}, {15, 3}, {0, 4}} << P{} << P{{0, 1}, {15, 2}} << P{{15, 3}};
        QTest::newRow("unreadable timestamps dropped")
            << P{{-5, 1}, {5, 2}} << P{{-1, 9}} << P{{5, 2}} << P{{5, 2}};
    }

    void graph()
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

        const LogCapture log;
        const GraphReadings result = readings(graph);
        QCOMPARE(pointsOf(result.history), history);
        QCOMPARE(pointsOf(result.latest ? QList{*result.latest} : QList<GlucoseReading>()), latest);
        // Each unreadable one is said once, as an error.
        QStringList expected, said;
        for (const Point &point : points + current)
            if (point.first < 0)
                expected += u"Could not parse timestamp "_s + measurementAt(point).timestamp;
        for (const LogCapture::Entry &entry : log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s))
            said += (entry.type == QtCriticalMsg ? u""_s : u"not an error: "_s) + entry.message;
        QCOMPARE(said, expected);
    }

    // An empty first name still joins; alone it is no name.
    void displayName()
    {
        using Name = std::optional<QString>;
        const auto name = [](const Name &first, const Name &last) {
            LLUGraphData graph;
            graph.connection = LLUConnection{u"p"_s, first, last, {}};
            return readings(graph).displayName;
        };
        QCOMPARE(name(u"Ann"_s, u"Lee"_s), Name(u"Ann Lee"_s));
        QCOMPARE(name({}, u"Lee"_s), Name(u"Lee"_s));
        QCOMPARE(name(u""_s, u"Lee"_s), Name(u" Lee"_s));
        QCOMPARE(name(u""_s, {}), Name());
    }
};

QTEST_GUILESS_MAIN(TestServiceMapping)
#include "tst_servicemapping.moc"
