#include "TestSupport.h"
#include "client/ServiceTimestamp.h"

using namespace Qt::StringLiterals;
using namespace glinta;

// Registered once per zone (TZ). Away from the zone's clock changes, the local time a text names has one
// instant, which QDateTime can tell; at the changes the rows name the instant themselves.
class TestServiceTimestamp : public QObject
{
    Q_OBJECT

    QByteArray m_zone = qgetenv("TZ");

private Q_SLOTS:
    void parse_data()
    {
        // wall: local time named, or empty; zone: where it falls in a clock change; there: the instant then.
        columns<QString, QString, QByteArray, QString>("text", "wall", "zone", "there");

        const auto row = [](const char *name, const char16_t *text, const char *wall = "",
                            const char *zone = "", const char *there = "") {
            QTest::newRow(name) << QString::fromUtf16(text) << QString::fromLatin1(wall) << QByteArray(zone)
                                << QString::fromLatin1(there);
        };
        row("lowercase afternoon", u"1/5/2024 9:03:07 pm", "2024-01-05T21:03:07");
        row("leading zeros accepted", u"01/05/2024 09:03:07 AM", "2024-01-05T09:03:07");
        row("midnight is 12 AM", u"12/31/2023 12:00:00 AM", "2023-12-31T00:00:00");
        row("noon is 12 PM", u"7/4/2024 12:30:00 PM", "2024-07-04T12:30:00");
        row("leap day", u"2/29/2024 1:00:00 AM", "2024-02-29T01:00:00");

        // Daylight-saving gaps give nothing; repeated hours give the earlier instant.
        const char *berlin = "Europe/Berlin", *lordHowe = "Australia/Lord_Howe";
        row("Berlin gap", u"3/31/2024 2:30:00 AM", "2024-03-31T02:30:00", berlin, "none");
        row("Berlin repeated hour", u"10/27/2024 2:30:00 AM", "2024-10-27T02:30:00", berlin,
            "2024-10-27T00:30:00Z");
        row("Lord Howe half-hour gap", u"10/6/2024 2:15:00 AM", "2024-10-06T02:15:00", lordHowe, "none");
        row("Lord Howe repeated half hour", u"4/7/2024 1:45:00 AM", "2024-04-07T01:45:00", lordHowe,
            "2024-04-06T14:45:00Z");

        row("no February 29 in 2023", u"2/29/2023 1:00:00 AM");
        row("minute 60", u"1/5/2024 9:60:07 AM");
        row("hour zero", u"1/5/2024 0:03:07 AM");
        row("24-hour clock", u"1/5/2024 13:03:07 PM");
        row("year zero", u"1/5/0000 9:03:07 AM");
        row("one-digit minute", u"1/5/2024 9:3:07 AM");
        row("two-digit year", u"1/5/24 9:03:07 AM");
        row("three-digit month", u"001/5/2024 9:03:07 AM");
        row("non-ASCII digits", u"\u0661/5/2024 9:03:07 AM");
        row("no meridiem", u"1/5/2024 9:03:07");
        row("unknown meridiem", u"1/5/2024 9:03:07 XM");
        row("trailing text", u"1/5/2024 9:03:07 AM +0100");
    }

    void parse()
    {
        const auto [text, wall, zone, there] =
            fetch<QString, QString, QByteArray, QString>("text", "wall", "zone", "there");

        if (!QList<QByteArray>{"UTC", "Europe/Berlin", "Australia/Lord_Howe"}.contains(m_zone))
            QSKIP("the rows' clock changes are only known in the zones the test is registered for");
        const QString expected = zone == m_zone ? there
                                 : wall.isEmpty()
                                     ? u"none"_s
                                     : QDateTime::fromString(wall, Qt::ISODate).toUTC().toString(Qt::ISODate);
        const auto parsed = parseServiceTimestamp(text);
        QCOMPARE(parsed ? parsed->toString(Qt::ISODate) : u"none"_s, expected);
        QVERIFY(!parsed || parsed->timeSpec() == Qt::UTC);
    }
};

QTEST_GUILESS_MAIN(TestServiceTimestamp)
#include "tst_servicetimestamp.moc"
