#include "ServiceTimestamp.h"

#include <QMap>
#include <QTest>

#include <ctime>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace glinta;

// Registered once per zone (TZ); each row gives the expected instant in every zone, "none" where the
// text names no instant there.
class TestServiceTimestamp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void concurrentFirstUse();
    void parse_data();
    void parse();
    void zoneIsCapturedOnce();

private:
    QByteArray m_zone = qgetenv("TZ");
};

void TestServiceTimestamp::concurrentFirstUse()
{
    // Must stay the first test: it is the first parse in the process.
    constexpr int threadCount = 8;
    std::vector<std::optional<QDateTime>> results(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back([&results, i] { results[i] = parseServiceTimestamp(u"1/5/2024 9:03:07 AM"); });
    for (std::thread &thread : threads)
        thread.join();
    for (const auto &result : results) {
        QVERIFY(result);
        QCOMPARE(*result, results.front().value());
    }
}

void TestServiceTimestamp::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("utc");
    QTest::addColumn<QString>("berlin");
    QTest::addColumn<QString>("newYork");
    QTest::addColumn<QString>("lordHowe");

    const auto row = [](const char *name, const char16_t *text, const char *utc, const char *berlin,
                        const char *newYork, const char *lordHowe) {
        QTest::newRow(name) << QString::fromUtf16(text) << QString::fromLatin1(utc)
                            << QString::fromLatin1(berlin) << QString::fromLatin1(newYork)
                            << QString::fromLatin1(lordHowe);
    };
    const auto nowhere = [&row](const char *name, const char16_t *text) {
        row(name, text, "none", "none", "none", "none");
    };

    row("afternoon", u"1/15/2024 3:45:12 PM", "2024-01-15T15:45:12Z", "2024-01-15T14:45:12Z",
        "2024-01-15T20:45:12Z", "2024-01-15T04:45:12Z");
    row("morning", u"1/5/2024 9:03:07 AM", "2024-01-05T09:03:07Z", "2024-01-05T08:03:07Z",
        "2024-01-05T14:03:07Z", "2024-01-04T22:03:07Z");
    row("lowercase meridiem", u"1/5/2024 9:03:07 am", "2024-01-05T09:03:07Z", "2024-01-05T08:03:07Z",
        "2024-01-05T14:03:07Z", "2024-01-04T22:03:07Z");
    row("midnight is 12 AM", u"12/31/2023 12:00:00 AM", "2023-12-31T00:00:00Z", "2023-12-30T23:00:00Z",
        "2023-12-31T05:00:00Z", "2023-12-30T13:00:00Z");
    row("noon is 12 PM", u"7/4/2024 12:30:00 PM", "2024-07-04T12:30:00Z", "2024-07-04T10:30:00Z",
        "2024-07-04T16:30:00Z", "2024-07-04T02:00:00Z");
    row("leading zeros accepted", u"01/05/2024 09:03:07 AM", "2024-01-05T09:03:07Z", "2024-01-05T08:03:07Z",
        "2024-01-05T14:03:07Z", "2024-01-04T22:03:07Z");
    row("leap day", u"2/29/2024 1:00:00 AM", "2024-02-29T01:00:00Z", "2024-02-29T00:00:00Z",
        "2024-02-29T06:00:00Z", "2024-02-28T14:00:00Z");

    // Daylight-saving gaps give nothing; repeated hours give the earlier instant.
    row("Berlin gap", u"3/31/2024 2:30:00 AM", "2024-03-31T02:30:00Z", "none", "2024-03-31T06:30:00Z",
        "2024-03-30T15:30:00Z");
    row("Berlin repeated hour", u"10/27/2024 2:30:00 AM", "2024-10-27T02:30:00Z", "2024-10-27T00:30:00Z",
        "2024-10-27T06:30:00Z", "2024-10-26T15:30:00Z");
    row("New York gap", u"3/10/2024 2:30:00 AM", "2024-03-10T02:30:00Z", "2024-03-10T01:30:00Z", "none",
        "2024-03-09T15:30:00Z");
    row("New York repeated hour", u"11/3/2024 1:30:00 AM", "2024-11-03T01:30:00Z", "2024-11-03T00:30:00Z",
        "2024-11-03T05:30:00Z", "2024-11-02T14:30:00Z");
    row("Lord Howe half-hour gap", u"10/6/2024 2:15:00 AM", "2024-10-06T02:15:00Z", "2024-10-06T00:15:00Z",
        "2024-10-06T06:15:00Z", "none");
    row("Lord Howe repeated half hour", u"4/7/2024 1:45:00 AM", "2024-04-07T01:45:00Z",
        "2024-04-06T23:45:00Z", "2024-04-07T05:45:00Z", "2024-04-06T14:45:00Z");

    nowhere("every field out of range", u"13/45/2024 25:61:61 PM");
    nowhere("no February 29 in 2023", u"2/29/2023 1:00:00 AM");
    nowhere("day 31 of April", u"4/31/2024 1:00:00 AM");
    nowhere("ISO 8601", u"2024-01-05T09:03:07Z");
    nowhere("empty", u"");
    nowhere("hour zero", u"1/5/2024 0:03:07 AM");
    nowhere("24-hour clock", u"1/5/2024 13:03:07 PM");
    nowhere("minute 60", u"1/5/2024 9:60:07 AM");
    nowhere("one-digit minute", u"1/5/2024 9:3:07 AM");
    nowhere("two-digit year", u"1/5/24 9:03:07 AM");
    nowhere("five-digit year", u"1/5/20245 9:03:07 AM");
    nowhere("year zero", u"1/5/0000 9:03:07 AM");
    nowhere("no meridiem", u"1/5/2024 9:03:07");
    nowhere("unknown meridiem", u"1/5/2024 9:03:07 XM");
    nowhere("trailing space", u"1/5/2024 9:03:07 AM ");
    nowhere("leading space", u" 1/5/2024 9:03:07 AM");
    nowhere("double space", u"1/5/2024  9:03:07 AM");
    nowhere("three-digit month", u"001/5/2024 9:03:07 AM");
    nowhere("non-ASCII digits", u"\u0661/5/2024 9:03:07 AM");
    nowhere("offset suffix", u"1/5/2024 9:03:07 AM +0100");
}

void TestServiceTimestamp::parse()
{
    QFETCH(QString, text);

    QFETCH(QString, utc);
    QFETCH(QString, berlin);
    QFETCH(QString, newYork);
    QFETCH(QString, lordHowe);
    const QMap<QByteArray, QString> byZone{{"UTC", utc},
                                           {"Europe/Berlin", berlin},
                                           {"America/New_York", newYork},
                                           {"Australia/Lord_Howe", lordHowe}};
    if (!byZone.contains(m_zone))
        QSKIP("no expectations for this TZ");
    const QString expected = byZone.value(m_zone);

    const auto parsed = parseServiceTimestamp(text);
    if (expected == u"none") {
        QVERIFY2(!parsed, qPrintable(parsed ? parsed->toString(Qt::ISODate) : QString()));
    } else {
        QVERIFY(parsed);
        QCOMPARE(parsed->timeSpec(), Qt::UTC);
        QCOMPARE(parsed->toString(Qt::ISODate), expected);
    }
}

void TestServiceTimestamp::zoneIsCapturedOnce()
{
    const QByteArray captured = serviceTimeZone().id();
    const auto before = parseServiceTimestamp(u"7/4/2024 12:30:00 PM");

    // A zone change after the first parse does not reach the parser.
    qputenv("TZ", "Asia/Kathmandu");
    tzset();
    const auto after = parseServiceTimestamp(u"7/4/2024 12:30:00 PM");
    qputenv("TZ", m_zone);
    tzset();

    QCOMPARE(serviceTimeZone().id(), captured);
    QVERIFY(before && after);
    QCOMPARE(*after, *before);
}

QTEST_GUILESS_MAIN(TestServiceTimestamp)
#include "tst_servicetimestamp.moc"
