#include "ServiceTimestamp.h"

#include <QTest>

#include <ctime>
#include <initializer_list>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace glinta;

// Registered once per zone (TZ), with the expectations for every zone in each row.
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
    // In UTC, Berlin, New York and Lord Howe; "none" where the text names no instant, empty: nowhere.
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char *name, const char16_t *text,
                        std::initializer_list<const char *> expected = {}) {
        QStringList list;
        for (const char *instant : expected)
            list.append(QString::fromLatin1(instant));
        QTest::newRow(name) << QString::fromUtf16(text) << list;
    };
    row("afternoon", u"1/15/2024 3:45:12 PM",
        {"2024-01-15T15:45:12Z", "2024-01-15T14:45:12Z", "2024-01-15T20:45:12Z", "2024-01-15T04:45:12Z"});
    row("lowercase meridiem", u"1/5/2024 9:03:07 am",
        {"2024-01-05T09:03:07Z", "2024-01-05T08:03:07Z", "2024-01-05T14:03:07Z", "2024-01-04T22:03:07Z"});
    row("leading zeros accepted", u"01/05/2024 09:03:07 AM",
        {"2024-01-05T09:03:07Z", "2024-01-05T08:03:07Z", "2024-01-05T14:03:07Z", "2024-01-04T22:03:07Z"});
    row("midnight is 12 AM", u"12/31/2023 12:00:00 AM",
        {"2023-12-31T00:00:00Z", "2023-12-30T23:00:00Z", "2023-12-31T05:00:00Z", "2023-12-30T13:00:00Z"});
    row("noon is 12 PM", u"7/4/2024 12:30:00 PM",
        {"2024-07-04T12:30:00Z", "2024-07-04T10:30:00Z", "2024-07-04T16:30:00Z", "2024-07-04T02:00:00Z"});
    row("leap day", u"2/29/2024 1:00:00 AM",
        {"2024-02-29T01:00:00Z", "2024-02-29T00:00:00Z", "2024-02-29T06:00:00Z", "2024-02-28T14:00:00Z"});

    // Daylight-saving gaps give nothing; repeated hours give the earlier instant.
    row("Berlin gap", u"3/31/2024 2:30:00 AM",
        {"2024-03-31T02:30:00Z", "none", "2024-03-31T06:30:00Z", "2024-03-30T15:30:00Z"});
    row("Berlin repeated hour", u"10/27/2024 2:30:00 AM",
        {"2024-10-27T02:30:00Z", "2024-10-27T00:30:00Z", "2024-10-27T06:30:00Z", "2024-10-26T15:30:00Z"});
    row("New York gap", u"3/10/2024 2:30:00 AM",
        {"2024-03-10T02:30:00Z", "2024-03-10T01:30:00Z", "none", "2024-03-09T15:30:00Z"});
    row("New York repeated hour", u"11/3/2024 1:30:00 AM",
        {"2024-11-03T01:30:00Z", "2024-11-03T00:30:00Z", "2024-11-03T05:30:00Z", "2024-11-02T14:30:00Z"});
    row("Lord Howe half-hour gap", u"10/6/2024 2:15:00 AM",
        {"2024-10-06T02:15:00Z", "2024-10-06T00:15:00Z", "2024-10-06T06:15:00Z", "none"});
    row("Lord Howe repeated half hour", u"4/7/2024 1:45:00 AM",
        {"2024-04-07T01:45:00Z", "2024-04-06T23:45:00Z", "2024-04-07T05:45:00Z", "2024-04-06T14:45:00Z"});

    row("no February 29 in 2023", u"2/29/2023 1:00:00 AM");
    row("minute 60", u"1/5/2024 9:60:07 AM");
    row("hour zero", u"1/5/2024 0:03:07 AM");
    row("24-hour clock", u"1/5/2024 13:03:07 PM");
    row("year zero", u"1/5/0000 9:03:07 AM");
    row("empty", u"");
    row("ISO 8601", u"2024-01-05T09:03:07Z");
    row("one-digit minute", u"1/5/2024 9:3:07 AM");
    row("two-digit year", u"1/5/24 9:03:07 AM");
    row("three-digit month", u"001/5/2024 9:03:07 AM");
    row("non-ASCII digits", u"\u0661/5/2024 9:03:07 AM");
    row("no meridiem", u"1/5/2024 9:03:07");
    row("unknown meridiem", u"1/5/2024 9:03:07 XM");
    row("trailing text", u"1/5/2024 9:03:07 AM +0100");
}

void TestServiceTimestamp::parse()
{
    QFETCH(QString, text);
    QFETCH(QStringList, expected);

    const qsizetype zone =
        QList<QByteArray>{"UTC", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe"}.indexOf(m_zone);
    if (zone < 0)
        QSKIP("no expectations for this TZ");
    const auto parsed = parseServiceTimestamp(text);
    QCOMPARE(parsed ? parsed->toString(Qt::ISODate) : u"none"_s, expected.value(zone, u"none"_s));
    QVERIFY(!parsed || parsed->timeSpec() == Qt::UTC);
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
