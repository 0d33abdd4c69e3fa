#include "update/AppcastItem.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// Three items in an order that is not the versions' order.
QByteArray fixtureFeed()
{
    QFile file(QStringLiteral(GLINTA_TEST_DATA_DIR) + u"/appcast.xml"_s);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray feedWithItems(const QByteArray &items)
{
    return "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>" + items +
           "</channel></rss>";
}

} // namespace

class TestAppcast : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesFeed()
    {
        const QList<AppcastItem> expected{
            {u"Glinta 1.3.4"_s, u"1.3.4"_s, u"1.3.4 (winter)"_s,
             QUrl(u"https://glinta.example.com/download/1.3.4"_s),
             u"<ul><li>Update alerts no longer open behind other windows.</li></ul>"_s, QUrl()},
            // Versions from the enclosure, no link of its own, an atom:link that is not the item's link.
            {u"Glinta 1.3.6"_s, u"1.3.6"_s, u"1.3.6 (spring)"_s,
             QUrl(u"https://glinta.example.com/files/Glinta-1.3.6.zip"_s), QString(),
             QUrl(u"https://glinta.example.com/notes/1.3.6.html"_s)},
            // The element outranks the enclosure's attribute; the build number stands in for the short one.
            {u"Glinta 1.3.5"_s, u"1.3.5"_s, u"1.3.5"_s, QUrl(u"https://glinta.example.com/download/1.3.5"_s),
             u"Chart fixes."_s, QUrl()},
        };
        QCOMPARE(parseAppcast(fixtureFeed()), expected);
    }

    void rejectsWhatIsNoAppcast_data()
    {
        QTest::addColumn<QByteArray>("feed");
        QTest::addColumn<QString>("problem"); // after "not a valid appcast: "; ends in "…": a prefix

        QTest::newRow("empty") << " \n"_ba << u"it is empty."_s;
        QTest::newRow("tags mismatched")
            << "<rss><channel><item></channel></rss>"_ba
            << u"it is not well-formed XML (line 1, column 30: Opening and ending tag mismatch)."_s;
        QTest::newRow("garbage after the feed")
            << feedWithItems({}) + "<rss/>" << u"it is not well-formed XML (line 1, column…"_s;
        // Not well-formed either, as most are.
        QTest::newRow("web page")
            << "<!DOCTYPE html><html><head><title>Parked</title></head><p>Parked.<br>"_ba
            << u"it is a web page, not an RSS feed."_s;
        QTest::newRow("atom feed") << "<feed xmlns=\"http://www.w3.org/2005/Atom\"/>"_ba
                                   << u"its root element is <feed>, not <rss>."_s;
        QTest::newRow("no channel") << "<rss version=\"2.0\"><item/></rss>"_ba << u"it has no channel."_s;
        QTest::newRow("item without version")
            << feedWithItems(
                   "<item><sparkle:version>1.3.4</sparkle:version></item>"
                   "<item><title>Glinta 1.3.6</title><enclosure url=\"https://x.example/g.zip\"/></item>")
            << u"item 2 (\u201CGlinta 1.3.6\u201D) has no version."_s;
        QTest::newRow("untitled item, blank version")
            << feedWithItems("<item><sparkle:version> </sparkle:version></item>")
            << u"item 1 has no version."_s;
        QTest::newRow("over 4 MiB") << feedWithItems(QByteArray(maximumAppcastSize, ' '))
                                    << u"it is larger than 4 MiB."_s;
    }

    void rejectsWhatIsNoAppcast()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QString, problem);

        const QString expected = u"The update feed is not a valid appcast: "_s + problem;
        try {
            parseAppcast(feed);
            QFAIL("parsed");
        } catch (const AppcastError &error) {
            if (expected.endsWith(u'…'))
                QVERIFY2(error.description().startsWith(expected.chopped(1)),
                         qPrintable(error.description()));
            else
                QCOMPARE(error.description(), expected);
        }
    }

    void comparesVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("order"); // of a against b

        QTest::newRow("numbers, not text") << u"9"_s << u"10"_s << -1;
        QTest::newRow("one more part") << u"1.3"_s << u"1.3.1"_s << -1;
        QTest::newRow("equal") << u"1.3.5"_s << u"1.3.5"_s << 0;
        QTest::newRow("alpha before release") << u"1.0a1"_s << u"1.0"_s << -1;
        QTest::newRow("beta 2 after beta 1") << u"1.0b2"_s << u"1.0b1"_s << 1;
        QTest::newRow("beta before a patch") << u"1.0b1"_s << u"1.0.1"_s << -1;
        QTest::newRow("leading zeros") << u"1.05"_s << u"1.5"_s << 0;
        QTest::newRow("past 64 bits") << u"100000000000000000000"_s << u"99999999999999999999"_s << 1;
        QTest::newRow("nothing before anything") << u""_s << u"1"_s << -1;
    }

    void comparesVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, order);

        QCOMPARE(compareVersions(a, b), order);
        QCOMPARE(compareVersions(b, a), -order);
    }

    void findsNewestUpdate_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("offered"); // empty: none

        // The first newer item in feed order is 1.3.4; the newest is in the middle.
        QTest::newRow("several behind") << u"1.3.3"_s << u"1.3.6"_s;
        QTest::newRow("up to date") << u"1.3.6"_s << QString();
        QTest::newRow("no build number") << u""_s << u"1.3.6"_s;
    }

    void findsNewestUpdate()
    {
        QFETCH(QString, running);
        QFETCH(QString, offered);

        const std::optional<AppcastItem> update = newestUpdate(parseAppcast(fixtureFeed()), running);
        QCOMPARE(update ? update->version : QString(), offered);
    }
};

QTEST_GUILESS_MAIN(TestAppcast)

#include "tst_appcast.moc"
