#include "DecodingError.h"
#include "GlucoseReading.h"
#include "GlucoseUnit.h"
#include "JsonDecoding.h"
#include "JsonWriter.h"
#include "TrendArrow.h"

#include <QJsonObject>
#include <QLocale>
#include <QScopeGuard>
#include <QTest>

#include <clocale>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>

using namespace Qt::StringLiterals;

namespace glinta {

char *toString(const GlucoseReading &reading)
{
    const QString trend = reading.trend ? QString::number(rawValue(*reading.trend)) : u"none"_s;
    return QTest::toString(reading.date.toUTC().toString(Qt::ISODateWithMs) + u' ' +
                           QString::number(reading.mgPerDl, 'g', 17) + u" trend=" + trend + u" high=" +
                           QString::number(reading.isHigh) + u" low=" + QString::number(reading.isLow));
}

} // namespace glinta

using namespace glinta;

Q_DECLARE_METATYPE(glinta::GlucoseUnit)
Q_DECLARE_METATYPE(glinta::GlucoseReading)
Q_DECLARE_METATYPE(glinta::DecodingError::Kind)

namespace {

const QString enDash = u"\u2013"_s;

QDateTime utc(int year, int month, int day, int hour, int minute, int second = 0, int msec = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), Qt::UTC);
}

GlucoseReading reading(const QDateTime &date, double mgPerDl, std::optional<TrendArrow> trend = {},
                       bool isHigh = false, bool isLow = false)
{
    return GlucoseReading{date, mgPerDl, trend, isHigh, isLow};
}

QByteArray encode(const GlucoseReading &value)
{
    JsonWriter writer;
    writeJson(writer, value);
    return writer.takeBytes();
}

GlucoseReading decode(const QByteArray &bytes)
{
    const json::Path root("snapshot file"_L1);
    return readingFromJson(json::parse(bytes, root), root);
}

} // namespace

class TestGlucoseValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void trendFromCode_data()
    {
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QString>("symbol"); // empty: no trend
        QTest::addColumn<QString>("spokenName");

        QTest::newRow("0") << qint64(0) << QString() << QString();
        QTest::newRow("6") << qint64(6) << QString() << QString();
        QTest::newRow("-1") << qint64(-1) << QString() << QString();
        // Would alias 1 if the code were narrowed to the enum's 8-bit type before the range check.
        QTest::newRow("257") << qint64(257) << QString() << QString();
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
        if (!trend)
            return;
        QCOMPARE(rawValue(*trend), code);
        QCOMPARE(glinta::symbol(*trend), symbol);
        QCOMPARE(glinta::spokenName(*trend), spokenName);
    }

    void unitFromRawValue_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("parses");
        QTest::addColumn<GlucoseUnit>("unit");

        QTest::newRow("mg/dL") << u"mg/dL"_s << true << GlucoseUnit::mgPerDl;
        QTest::newRow("mmol/L") << u"mmol/L"_s << true << GlucoseUnit::mmolPerL;
        QTest::newRow("MG/DL") << u"MG/DL"_s << false << GlucoseUnit::mgPerDl;
        QTest::newRow("mmol/l") << u"mmol/l"_s << false << GlucoseUnit::mgPerDl;
        QTest::newRow("empty") << QString() << false << GlucoseUnit::mgPerDl;
        QTest::newRow("mmol") << u"mmol"_s << false << GlucoseUnit::mgPerDl;
        QTest::newRow("trailing space") << u"mg/dL "_s << false << GlucoseUnit::mgPerDl;
    }

    void unitFromRawValue()
    {
        QFETCH(QString, text);
        QFETCH(bool, parses);
        QFETCH(GlucoseUnit, unit);

        const std::optional<GlucoseUnit> parsed = glucoseUnitFromRawValue(text);
        QCOMPARE(parsed.has_value(), parses);
        if (parsed)
            QCOMPARE(*parsed, unit);
    }

    void format_data()
    {
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("mgPerDl");
        QTest::addColumn<QString>("expected");

        const auto mg = GlucoseUnit::mgPerDl;
        const auto mmol = GlucoseUnit::mmolPerL;
        const struct
        {
            double value;
            const char16_t *mg;
            const char16_t *mmol;
        } table[] = {{39, u"39", u"2.2"},     {70, u"70", u"3.9"},    {100, u"100", u"5.5"},
                     {141.5, u"142", u"7.9"}, {180, u"180", u"10.0"}, {250, u"250", u"13.9"},
                     {400, u"400", u"22.2"},  {0, u"0", u"0.0"}};
        for (const auto &row : table) {
            const QByteArray name = QByteArray::number(row.value);
            QTest::addRow("%s mg/dL", name.constData()) << mg << row.value << QString::fromUtf16(row.mg);
            QTest::addRow("%s mmol/L", name.constData()) << mmol << row.value << QString::fromUtf16(row.mmol);
        }

        QTest::newRow("142.49") << mg << 142.49 << u"142"_s;
        QTest::newRow("0.5 away from zero") << mg << 0.5 << u"1"_s;
        QTest::newRow("2.5 not to even") << mg << 2.5 << u"3"_s;
        // Largest double below 0.5: adding 0.5 and flooring would give 1.
        QTest::newRow("just below 0.5") << mg << 0.49999999999999994 << u"0"_s;
        QTest::newRow("-0.5") << mg << -0.5 << u"-1"_s;
        QTest::newRow("-1.5") << mg << -1.5 << u"-2"_s;
        QTest::newRow("-0.4 has no sign") << mg << -0.4 << u"0"_s;
        QTest::newRow("no grouping") << mg << 1234567.0 << u"1234567"_s;

        const double inf = std::numeric_limits<double>::infinity();
        for (const auto unit : {mg, mmol}) {
            const char *suffix = unit == mg ? "mg/dL" : "mmol/L";
            QTest::addRow("NaN %s", suffix) << unit << std::numeric_limits<double>::quiet_NaN() << enDash;
            QTest::addRow("+inf %s", suffix) << unit << inf << enDash;
            QTest::addRow("-inf %s", suffix) << unit << -inf << enDash;
            QTest::addRow("1e300 %s", suffix) << unit << 1e300 << enDash;
            QTest::addRow("-1e300 %s", suffix) << unit << -1e300 << enDash;
        }
        QTest::newRow("9.3e18 beyond int64") << mg << 9.3e18 << enDash;
        QTest::newRow("2^63 beyond int64") << mg << 9223372036854775808.0 << enDash;
        QTest::newRow("9.2e18 fits") << mg << 9.2e18 << u"9200000000000000000"_s;
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

    // printf's "%.1f" in the C locale is the reference for every mmol/L figure, ties and all.
    void formatMmolMatchesPrintf()
    {
        for (int tenths = 0; tenths <= 6000; ++tenths) {
            const double mgPerDl = tenths / 10.0;
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "%.1f", mgPerDl / 18.0182);
            const QString actual = glinta::format(GlucoseUnit::mmolPerL, mgPerDl);
            if (actual != QLatin1StringView(buffer))
                QFAIL(qPrintable(u"%1 mg/dL gave %2, printf gave %3"_s.arg(mgPerDl).arg(
                    actual, QLatin1StringView(buffer))));
        }
    }

    void formatIgnoresLocale()
    {
        const std::string cLocale = std::setlocale(LC_ALL, nullptr);
        const auto restore = qScopeGuard([&cLocale] {
            std::setlocale(LC_ALL, cLocale.c_str());
            QLocale::setDefault(QLocale::c());
        });
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        // Missing on minimal systems; the Qt default locale alone still exercises the path.
        if (!std::setlocale(LC_ALL, "de_DE.UTF-8"))
            qInfo("de_DE.UTF-8 is not installed; only the Qt default locale is German");
        QCOMPARE(QLocale().decimalPoint(), u","_s);

        QCOMPARE(glinta::format(GlucoseUnit::mmolPerL, 100), u"5.5"_s);
        QCOMPARE(glinta::format(GlucoseUnit::mmolPerL, 180), u"10.0"_s);
        QCOMPARE(glinta::format(GlucoseUnit::mgPerDl, 1234567.0), u"1234567"_s);
    }

    void jsonRoundTrip_data()
    {
        QTest::addColumn<GlucoseReading>("reading");

        QTest::newRow("no trend") << reading(utc(2024, 3, 10, 8, 15), 98.0);
        QTest::newRow("falling quickly, low")
            << reading(utc(2024, 3, 10, 8, 20), 54.0, TrendArrow::fallingQuickly, false, true);
        QTest::newRow("rising quickly, high")
            << reading(utc(2024, 3, 10, 8, 25), 260.0, TrendArrow::risingQuickly, true, false);
        QTest::newRow("milliseconds")
            << reading(utc(2024, 3, 10, 8, 15, 42, 123), 123.456, TrendArrow::steady);
        QTest::newRow("just before reference date") << reading(utc(2000, 12, 31, 23, 59, 59, 999), 100.0);
        // 1.001 * 1000 lands just below 1001, so truncating to milliseconds would lose one.
        QTest::newRow("1.001 s after reference") << reading(utc(2001, 1, 1, 0, 0, 1, 1), 100.0);
        QTest::newRow("inexact double")
            << reading(utc(2030, 6, 1, 12, 0, 0, 1), 0.1 + 0.2, TrendArrow::falling);
    }

    void jsonRoundTrip()
    {
        QFETCH(GlucoseReading, reading);

        const QByteArray bytes = encode(reading);
        const QJsonObject object = json::parse(bytes, json::Path("snapshot file"_L1)).toObject();
        QCOMPARE(object.contains("trend"_L1), reading.trend.has_value());
        QCOMPARE(decode(bytes), reading);
    }

    void writtenText_data()
    {
        QTest::addColumn<GlucoseReading>("reading");
        QTest::addColumn<QByteArray>("text");

        QTest::newRow("with trend")
            << reading(utc(2001, 1, 1, 1, 0), 142.5, TrendArrow::steady, false, true)
            << R"({"date":3600,"mgPerDl":142.5,"trend":3,"isHigh":false,"isLow":true})"_ba;
        QTest::newRow("without trend") << reading(utc(2001, 1, 1, 0, 0), 70.0, {}, true, false)
                                       << R"({"date":0,"mgPerDl":70,"isHigh":true,"isLow":false})"_ba;
    }

    void writtenText()
    {
        QFETCH(GlucoseReading, reading);
        QFETCH(QByteArray, text);

        QCOMPARE(encode(reading), text);
    }

    void decodingFails_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<DecodingError::Kind>("kind");
        QTest::addColumn<QString>("member");

        const auto missing = DecodingError::Kind::missingMember;
        const auto wrong = DecodingError::Kind::wrongValue;
        QTest::newRow("no date") << R"({"mgPerDl":100,"isHigh":false,"isLow":false})"_ba << missing
                                 << u"date"_s;
        QTest::newRow("no mgPerDl") << R"({"date":0,"isHigh":false,"isLow":false})"_ba << missing
                                    << u"mgPerDl"_s;
        QTest::newRow("no isHigh") << R"({"date":0,"mgPerDl":100,"isLow":false})"_ba << missing
                                   << u"isHigh"_s;
        QTest::newRow("no isLow") << R"({"date":0,"mgPerDl":100,"isHigh":false})"_ba << missing << u"isLow"_s;
        for (const char *code : {"0", "6", "-1", "2.5"}) {
            QTest::addRow("trend %s", code) << R"({"date":0,"mgPerDl":100,"trend":)" + QByteArray(code) +
                                                   R"(,"isHigh":false,"isLow":false})"
                                            << wrong << u"trend"_s;
        }
        QTest::newRow("mgPerDl as text")
            << R"({"date":0,"mgPerDl":"100","isHigh":false,"isLow":false})"_ba << wrong << u"mgPerDl"_s;
        QTest::newRow("isLow as number")
            << R"({"date":0,"mgPerDl":100,"isHigh":false,"isLow":0})"_ba << wrong << u"isLow"_s;
        QTest::newRow("date out of range")
            << R"({"date":1e300,"mgPerDl":100,"isHigh":false,"isLow":false})"_ba << wrong << u"date"_s;
    }

    void decodingFails()
    {
        QFETCH(QByteArray, json);
        QFETCH(DecodingError::Kind, kind);
        QFETCH(QString, member);

        try {
            const GlucoseReading decoded = decode(json);
            QFAIL(qPrintable(u"decoded as "_s + QString::fromLatin1(QTest::toString(decoded))));
        } catch (const DecodingError &error) {
            QCOMPARE(error.kind(), kind);
            QCOMPARE(error.path(), member);
            QVERIFY2(error.description().contains(u'"' + member + u'"'), qPrintable(error.description()));
            QVERIFY2(error.description().contains(u"snapshot file"_s), qPrintable(error.description()));
        }
    }
};

QTEST_GUILESS_MAIN(TestGlucoseValues)
#include "tst_glucosevalues.moc"
