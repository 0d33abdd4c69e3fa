#include "RelativeTime.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

class TestRelativeTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text_data()
    {
        QTest::addColumn<qint64>("seconds");
        QTest::addColumn<QString>("text");

        QTest::newRow("now") << 0LL << u"0 sec"_s;
        QTest::newRow("last second of the first minute") << 59LL << u"59 sec"_s;
        QTest::newRow("a whole minute drops zero seconds") << 60LL << u"1 min"_s;
        QTest::newRow("minutes and seconds") << 252LL << u"4 min, 12 sec"_s;
        QTest::newRow("last second of the first hour") << 3599LL << u"59 min, 59 sec"_s;
        QTest::newRow("a whole hour") << 3600LL << u"1 hr"_s;
        QTest::newRow("hours and minutes, seconds dropped") << 3959LL << u"1 hr, 5 min"_s;
        QTest::newRow("a whole day") << 86400LL << u"1 day"_s;
        QTest::newRow("a day and an hour") << 90000LL << u"1 day, 1 hr"_s;
        QTest::newRow("days in the plural, minutes dropped") << 183599LL << u"2 days, 2 hr"_s;
        QTest::newRow("a clock behind the phone") << -42LL << u"0 sec"_s;
    }

    void text()
    {
        QFETCH(qint64, seconds);
        QFETCH(QString, text);
        QCOMPARE(relativeTimeText(std::chrono::seconds(seconds)), text);
    }
};

QTEST_GUILESS_MAIN(TestRelativeTime)
#include "tst_relativetime.moc"
