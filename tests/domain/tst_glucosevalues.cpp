#include "DecodingError.h"
#include "GlucoseReading.h"
#include "GlucoseUnit.h"
#include "JsonDecoding.h"
#include "JsonWriter.h"
#include "TrendArrow.h"

#include <QJsonObject>
#include <QLocale>
#include <QTest>

#include <clocale>
#include <cstdio>
#include <limits>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString enDash = u"\u2013"_s;
const auto mg = GlucoseUnit::mgPerDl;
const auto mmol = GlucoseUnit::mmolPerL;

GlucoseReading reading(QDate day, QTime time, double mgPerDl, std::optional<TrendArrow> trend = {},
                       bool isHigh = false, bool isLow = false)
{
    return GlucoseReading{QDateTime(day, time, Qt::UTC), mgPerDl, trend, isHigh, isLow};
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
        QCOMPARE(QLocale().decimalPoint(), u","_s);
    }

    void trendFromCode_data()
    {
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QString>("symbol"); // empty: no trend
        QTest::addColumn<QString>("spokenName");

        for (const qint64 code : {0, 6, -1, 257}) // 257 would alias 1 if narrowed before the range check
            QTest::addRow("%lld", static_cast<long long>(code)) << code << QString() << QString();
        QTest::newRow("1") << qint64(1) << u"\u2193"_s << u"falling quickly"_s;
        QTest::newRow("2") << qint64(2) << u"\u2198"_s << u"falling"_s;
        QTest::newRow("3") << qint64(3) << u"\u2192"_s << u"steady"_s;
        QTest::newRow("4") << qint64(4) << u"\u2197"_s << u"rising"_s;
        QTest::newRow("5") << qint64(5) << u"\u2191"_s << u"rising quickly"_s;
    }

    void trendFromCode()
    {
        QFETCH(qint64, code);
        QFETCH(QString, symbol);
        QFETCH(QString, spokenName);

        const std::optional<TrendArrow> trend = trendArrowFromRawValue(code);
        QCOMPARE(trend.has_value(), !symbol.isEmpty());
        if (trend) {
            QCOMPARE(rawValue(*trend), code);
            QCOMPARE(glinta::symbol(*trend), symbol);
            QCOMPARE(glinta::spokenName(*trend), spokenName);
        }
    }

    void unitFromRawValue()
    {
        QCOMPARE(glucoseUnitFromRawValue(u"mg/dL"), std::optional(mg));
        QCOMPARE(glucoseUnitFromRawValue(u"mmol/L"), std::optional(mmol));
        for (const QString &text : {u"mmol/l"_s, QString(), u"mg/dL "_s})
            QCOMPARE(glucoseUnitFromRawValue(text), std::optional<GlucoseUnit>());
    }

    void format_data()
    {
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("mgPerDl");
        QTest::addColumn<QString>("expected");

        // Finite mmol/L figures are checked against printf below.
        QTest::newRow("2.5 not to even") << mg << 2.5 << u"3"_s;
        // Largest double below 0.5: adding 0.5 and flooring would give 1.
        QTest::newRow("just below 0.5") << mg << 0.49999999999999994 << u"0"_s;
        QTest::newRow("-0.5") << mg << -0.5 << u"-1"_s;
        QTest::newRow("-0.4 has no sign") << mg << -0.4 << u"0"_s;
        QTest::newRow("no grouping") << mg << 1234567.0 << u"1234567"_s;

        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("NaN mg/dL") << mg << std::numeric_limits<double>::quiet_NaN() << enDash;
        QTest::newRow("NaN mmol/L") << mmol << std::numeric_limits<double>::quiet_NaN() << enDash;
        QTest::newRow("+inf mg/dL") << mg << inf << enDash;
        QTest::newRow("-inf mmol/L") << mmol << -inf << enDash;
        QTest::newRow("1e300 mmol/L") << mmol << 1e300 << enDash;
        QTest::newRow("-1e300 mg/dL") << mg << -1e300 << enDash;
        QTest::newRow("2^63 beyond int64") << mg << 9223372036854775808.0 << enDash;
        QTest::newRow("largest below 2^63") << mg << 9223372036854774784.0 << u"9223372036854774784"_s;
        QTest::newRow("-2^63 fits") << mg << -9223372036854775808.0 << u"-9223372036854775808"_s;
    }

    void format()
    {
        QFETCH(GlucoseUnit, unit);
        QFETCH(double, mgPerDl);
        QFETCH(QString, expected);

        QCOMPARE(glinta::format(unit, mgPerDl), expected);
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
        const QDate reference(2001, 1, 1);
        QTest::newRow("just before reference date")
            << reading(QDate(2000, 12, 31), QTime(23, 59, 59, 999), 100.0, TrendArrow::rising, true);
        // 1.001 * 1000 lands just below 1001, so truncating to milliseconds would lose one.
        QTest::newRow("1.001 s after reference") << reading(reference, QTime(0, 0, 1, 1), 100.0);
        QTest::newRow("inexact double") << reading(reference, QTime(0, 0), 0.1 + 0.2, {}, false, true);
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
        QTest::addColumn<QString>("member");
        QTest::addColumn<QJsonValue>("value"); // undefined: left out
        QTest::addColumn<QString>("message");

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
        QFETCH(QString, member);
        QFETCH(QJsonValue, value);

        QJsonObject object{{"date"_L1, 0}, {"mgPerDl"_L1, 100}, {"isHigh"_L1, false}, {"isLow"_L1, false}};
        if (value.isUndefined())
            object.remove(member);
        else
            object.insert(member, value);
        const json::Path root("snapshot file"_L1), history = root.member("history"_L1),
                                                   at = history.element(0);
        try {
            readingFromJson(object, at);
            QFAIL("decoded");
        } catch (const DecodingError &error) {
            QTEST(error.description(), "message");
        }
    }
};

QTEST_GUILESS_MAIN(TestGlucoseValues)
#include "tst_glucosevalues.moc"
