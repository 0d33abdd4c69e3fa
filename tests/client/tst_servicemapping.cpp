#include "LogCapture.h"
#include "TestSupport.h"
#include "client/ServiceMapping.h"

#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// (minutes after 10:00 local time on a winter day, value); a negative minute is a timestamp that won't parse.
using Point = std::pair<int, double>;
using Points = QList<Point>;

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::systemTimeZone());

// As the service writes a time, in the zone the time is in.
QString serviceText(const QDateTime &time)
{
    return QLocale::c().toString(time, u"M/d/yyyy h:mm:ss AP"_s);
}

LLUMeasurement measurementAt(const Point &point)
{
    const QDateTime time = base.addSecs(point.first * 60);
    LLUMeasurement measurement;
    measurement.timestamp = point.first < 0 ? time.toString(Qt::ISODate) : serviceText(time);
    measurement.valueInMgPerDl = point.second;
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
    void graph_data()
    {
        columns<Points, Points, Points, Points>("points", "current", "history", "latest");

        // Two newest points at one instant, or a current reading as new as the newest, are the store's rows.
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
        const auto [points, current] = fetch<Points, Points>("points", "current"); // current: at most one

        LLUGraphData graph;
        for (const Point &point : std::as_const(points))
            graph.graphData.append(measurementAt(point));
        if (!current.isEmpty())
            graph.connection = LLUConnection{u"p"_s, {}, {}, measurementAt(current.first())};

        const LogCapture log;
        const GraphReadings result = readings(graph);
        QTEST(pointsOf(result.history), "history");
        QTEST(pointsOf(result.latest ? QList{*result.latest} : QList<GlucoseReading>()), "latest");
        // Each unreadable one is said once, as an error.
        QStringList expected;
        for (const Point &point : points + current)
            if (point.first < 0)
                expected += u"critical: Could not parse timestamp "_s + measurementAt(point).timestamp;
        QCOMPARE(log.lines(u"GlucoseStore"_s), expected);
    }

    // The sharer's phone writes its own wall-clock time; run in several follower zones (TZ). The UTC text,
    // when it reads, gives the instant; else the phone's text is read in the follower's zone.
    void sharerInAnotherZone_data()
    {
        // factory: "utc": the instant's UTC text
        columns<QByteArray, QDateTime, std::optional<QString>>("sharerZone", "instant", "factory");

        const QDateTime winter(QDate(2024, 1, 15), QTime(14, 50), QTimeZone::utc());
        const std::optional<QString> utc = u"utc"_s;
        for (const char *zone : {"Europe/Berlin", "America/Los_Angeles", "America/New_York", "Asia/Kolkata"})
            QTest::addRow("sharer in %s", zone) << QByteArray(zone) << winter << utc;
        // Twelve or thirteen hours ahead: the phone's date is already the next day.
        QTest::newRow("Auckland") << "Pacific/Auckland"_ba
                                  << QDateTime(QDate(2024, 7, 1), QTime(20, 10), QTimeZone::utc()) << utc;
        // Both are 2:30 on the phone; only the UTC text tells them apart.
        for (const int hour : {0, 1})
            QTest::addRow("clocks go back, %d:30 UTC", hour)
                << "Europe/Berlin"_ba << QDateTime(QDate(2024, 10, 27), QTime(hour, 30), QTimeZone::utc())
                << utc;
        QTest::newRow("absent") << "Europe/Berlin"_ba << winter << std::optional<QString>();
        QTest::newRow("does not parse")
            << "Europe/Berlin"_ba << winter << std::optional(u"2024-01-15T14:50:00Z"_s);
    }
    void sharerInAnotherZone()
    {
        auto [sharerZone, instant, factory] =
            fetch<QByteArray, QDateTime, std::optional<QString>>("sharerZone", "instant", "factory");

        const QDateTime onPhone = instant.toTimeZone(QTimeZone(sharerZone));
        if (factory == u"utc")
            factory = serviceText(instant.toUTC());
        const LogCapture log;
        const std::optional<GlucoseReading> mapped = reading({serviceText(onPhone), factory, 99, {}, {}, {}});
        QVERIFY(mapped && log.lines(u"GlucoseStore"_s).isEmpty());
        const QDateTime readAsLocal(onPhone.date(), onPhone.time(), QTimeZone::systemTimeZone());
        QCOMPARE(mapped->date, factory && !factory->startsWith(u"2024") ? instant : readAsLocal.toUTC());
    }

    // A missing flag reads as false; an empty first name still joins, alone it is no name.
    void fields()
    {
        const auto mapped = reading({u"1/5/2024 9:03:07 AM"_s, std::nullopt, 123.456, 5, true, std::nullopt});
        QVERIFY(mapped && mapped->mgPerDl == 123.456 && mapped->trend == TrendArrow::risingQuickly &&
                mapped->isHigh && !mapped->isLow);

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
