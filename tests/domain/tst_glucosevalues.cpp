#include "TestSupport.h"
#include "domain/GlucoseChartSeries.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseStatistics.h"
#include "domain/GlucoseUnit.h"
#include "domain/RelativeTime.h"
#include "domain/TrendArrow.h"
#include "support/DecodingError.h"
#include "support/JsonDecoding.h"
#include "support/JsonWriter.h"

#include <QJsonObject>
#include <QLocale>

#include <clocale>
#include <cstdio>
#include <limits>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString enDash = u"\u2013"_s;
const auto [mg, mmol] = allGlucoseUnits;
const double NaN = std::numeric_limits<double>::quiet_NaN();

// Every time in these tests is an offset in seconds from the snapshot file's reference date.
QDateTime at(double seconds)
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).addMSecs(qRound64(seconds * 1000));
}

GlucoseReading reading(double seconds, double mgPerDl, std::optional<TrendArrow> trend = {},
                       bool isHigh = false, bool isLow = false)
{
    return GlucoseReading{at(seconds), mgPerDl, trend, isHigh, isLow};
}

// Readings five minutes apart, as the sensor reports them.
QList<GlucoseReading> values(std::initializer_list<double> mgPerDl)
{
    QList<GlucoseReading> history;
    for (const double value : mgPerDl)
        history.append(reading(300.0 * history.size(), value));
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

class TestGlucoseValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Every figure is written with a point whatever the locale, so all tests run under a German one.
    void initTestCase()
    {
        std::setlocale(LC_ALL, "de_DE.UTF-8"); // may be missing; the Qt default locale alone still counts
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    }

    // 257 would alias 1 if narrowed before the range check.
    void trendFromCode()
    {
        QStringList symbols, spoken;
        for (const qint64 code : {0, 1, 2, 3, 4, 5, 6, 257}) {
            const std::optional<TrendArrow> trend = trendArrowFromRawValue(code);
            QCOMPARE(trend.has_value(), code >= 1 && code <= 5);
            if (trend) {
                QCOMPARE(rawValue(*trend), code);
                symbols.append(symbol(*trend));
                spoken.append(spokenName(*trend));
            }
        }
        QCOMPARE(symbols.join(QString()), u"\u2193\u2198\u2192\u2197\u2191"_s);
        QCOMPARE(spoken.join(u'|'), u"falling quickly|falling|steady|rising|rising quickly"_s);
    }

    void format_data()
    {
        columns<GlucoseUnit, double, QString>("unit", "mgPerDl", "expected");

        // Finite mmol/L figures are checked against printf below.
        QTest::newRow("2.5 not to even") << mg << 2.5 << u"3"_s;
        // Largest double below 0.5: adding 0.5 and flooring would give 1.
        QTest::newRow("just below 0.5") << mg << 0.49999999999999994 << u"0"_s;
        QTest::newRow("-0.5") << mg << -0.5 << u"-1"_s;
        QTest::newRow("-0.4 has no sign") << mg << -0.4 << u"0"_s;
        QTest::newRow("no grouping") << mg << 1234567.0 << u"1234567"_s;

        QTest::newRow("NaN mg/dL") << mg << NaN << enDash;
        QTest::newRow("1e300 mmol/L") << mmol << 1e300 << enDash;
        QTest::newRow("-1e300 mg/dL") << mg << -1e300 << enDash;
        QTest::newRow("2^63 beyond int64") << mg << 9223372036854775808.0 << enDash;
        QTest::newRow("largest below 2^63") << mg << 9223372036854774784.0 << u"9223372036854774784"_s;
        QTest::newRow("-2^63 fits") << mg << -9223372036854775808.0 << u"-9223372036854775808"_s;
    }

    void format()
    {
        const auto [unit, mgPerDl] = fetch<GlucoseUnit, double>("unit", "mgPerDl");
        QTEST(glinta::format(unit, mgPerDl), "expected");
    }

    // printf's "%.1f" is the reference for every mmol/L figure, ties and all; only its decimal comma is not.
    void formatMmolMatchesPrintf()
    {
        for (int tenths = 0; tenths <= 6000; ++tenths) {
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "%.1f", tenths / 10.0 / 18.0182);
            const QString actual = glinta::format(mmol, tenths / 10.0);
            const QString expected = QString::fromLatin1(buffer).replace(u',', u'.');
            QVERIFY2(actual == expected, qPrintable(u"%1 tenths: "_s.arg(tenths) + actual));
        }
    }

    void jsonRoundTrip_data()
    {
        QTest::addColumn<GlucoseReading>("reading");

        // The exact text, with and without a trend, is the snapshot file's (tst_sharedsnapshotstore).
        QTest::newRow("just before reference date") << reading(-0.001, 100.0, TrendArrow::rising, true);
        // 1.001 * 1000 lands just below 1001, so truncating to milliseconds would lose one.
        QTest::newRow("1.001 s after reference") << reading(1.001, 100.0);
        QTest::newRow("inexact double") << reading(0, 0.1 + 0.2, {}, false, true);
    }

    void jsonRoundTrip()
    {
        QFETCH(GlucoseReading, reading);
        JsonWriter writer;
        writeJson(writer, reading);
        const json::Path root("snapshot file"_L1);
        QCOMPARE(readingFromJson(json::parse(writer.takeBytes(), root), root), reading);
    }

    void decodingFails_data()
    {
        // value: undefined leaves the member out
        columns<QString, QJsonValue, QString>("member", "value", "message");

        for (const auto &[key, expected] : {std::pair{"date", "a number"},
                                            {"mgPerDl", "a number"},
                                            {"isHigh", "true or false"},
                                            {"isLow", "true or false"}})
            QTest::addRow("no %s", key)
                << QString::fromLatin1(key) << QJsonValue(QJsonValue::Undefined)
                << u"The snapshot file is missing \"history[0].%1\" (expected %2)."_s.arg(
                       QLatin1StringView(key), QLatin1StringView(expected));
        const QString trend =
            u"The snapshot file has the number %1 for \"history[0].trend\" (expected a trend from 1 to 5)."_s;
        QTest::newRow("trend 0") << u"trend"_s << QJsonValue(0) << trend.arg(0);
        QTest::newRow("trend 6") << u"trend"_s << QJsonValue(6) << trend.arg(6);
        QTest::newRow("date out of range")
            << u"date"_s << QJsonValue(1e20)
            << u"The snapshot file has the number 1e+20 for \"history[0].date\" (expected a date)."_s;
    }

    void decodingFails()
    {
        const auto [member, value] = fetch<QString, QJsonValue>("member", "value");

        QJsonObject object{{"date"_L1, 0}, {"mgPerDl"_L1, 100}, {"isHigh"_L1, false}, {"isLow"_L1, false}};
        object.insert(member, value); // undefined removes it
        const json::Path root("snapshot file"_L1), history = root.member("history"_L1),
                                                   element = history.element(0); // each refers to its parent
        QTEST(errorOf([&] { readingFromJson(object, element); }), "message");
    }

    // The statistics row and the chart's top, from the history as the store keeps it.
    void figures_data()
    {
        // top: mg/dL; the bottom is always 40
        columns<QList<GlucoseReading>, GlucoseUnit, QString, QString, QString, double>(
            "history", "unit", "average", "inRange", "count", "top");

        QTest::newRow("empty") << QList<GlucoseReading>() << mg << enDash << enDash << u"0"_s << 220.0;
        QTest::newRow("bounds inclusive")
            << values({70, 180}) << mg << u"125"_s << u"100%"_s << u"2"_s << 220.0;
        QTest::newRow("just outside")
            << values({69.9, 180.1}) << mg << u"125"_s << u"0%"_s << u"2"_s << 220.0;
        QTest::newRow("one of eight, 12.5")
            << values({100, 50, 50, 50, 50, 50, 50, 50}) << mg << u"56"_s << u"13%"_s << u"8"_s << 220.0;
        QTest::newRow("one of three")
            << values({100, 50, 250}) << mg << u"133"_s << u"33%"_s << u"3"_s << 270.0;
        // A NaN counts as a reading out of range, and never becomes the top, first or last.
        QTest::newRow("NaN") << values({NaN, 100, 250, 120, NaN}) << mg << enDash << u"40%"_s << u"5"_s
                             << 270.0;
        // 100.5 from the stored values; rounding each reading first would give 100.
        QTest::newRow("fractions kept")
            << values({100.25, 100.25, 101}) << mg << u"101"_s << u"100%"_s << u"3"_s << 220.0;
        // 100.25 is 5.56 mmol/L; rounded to mg/dL first it would be 5.5.
        QTest::newRow("mmol/L") << values({100, 100.5}) << mmol << u"5.6"_s << u"100%"_s << u"2"_s << 220.0;
    }

    void figures()
    {
        const auto [history, unit] = fetch<QList<GlucoseReading>, GlucoseUnit>("history", "unit");
        QTEST(averageText(history, unit), "average");
        QTEST(inRangeText(history, {}), "inRange");
        QTEST(readingCountText(history), "count");
        QCOMPARE(chartYDomain(history, mg).lower, 40.0);
        QTEST(chartYDomain(history, mg).upper, "top");
    }

    void segments_data()
    {
        columns<QList<GlucoseReading>, double, QList<GlucoseChartSegment>>("readings", "redLine", "expected");

        QTest::newRow("empty") << QList<GlucoseReading>() << 70.0 << QList<GlucoseChartSegment>();
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
            << QList{reading(0, 100), reading(0, 110), reading(-60, 115), reading(300, 120)} << 70.0
            << QList{segment(0, false, {{0, 100}, {300, 120}})};
        // Crossings a half and two thirds of the way along.
        QTest::newRow("red line of 100") << values({90, 110, 95}) << 100.0
                                         << QList{segment(0, true, {{0, 90}, {150, 100}}),
                                                  segment(1, false, {{150, 100}, {300, 110}, {500, 100}}),
                                                  segment(2, true, {{500, 100}, {600, 95}})};
    }

    void segments()
    {
        const auto [readings, redLine] = fetch<QList<GlucoseReading>, double>("readings", "redLine");
        QTEST(chartSegments(readings, redLine), "expected");
    }

    void relativeTime_data()
    {
        columns<qint64, QString>("seconds", "text");

        QTest::newRow("last second of the first minute") << 59LL << u"59 sec"_s;
        QTest::newRow("a whole minute drops zero seconds") << 60LL << u"1 min"_s;
        QTest::newRow("last second of the first hour") << 3599LL << u"59 min, 59 sec"_s;
        QTest::newRow("a whole hour") << 3600LL << u"1 hr"_s;
        QTest::newRow("hours and minutes, seconds dropped") << 3959LL << u"1 hr, 5 min"_s;
        QTest::newRow("a whole day") << 86400LL << u"1 day"_s;
        QTest::newRow("days in the plural, minutes dropped") << 183599LL << u"2 days, 2 hr"_s;
        QTest::newRow("a clock behind the phone") << -42LL << u"0 sec"_s;
    }

    void relativeTime()
    {
        QFETCH(qint64, seconds);
        QTEST(relativeTimeText(std::chrono::seconds(seconds)), "text");
    }
};

QTEST_GUILESS_MAIN(TestGlucoseValues)
#include "tst_glucosevalues.moc"
