#include "LogCapture.h"
#include "ManualClock.h"
#include "TestSupport.h"
#include "store/Preferences.h"
#include "update/AppcastItem.h"
#include "update/AppcastUpdater.h"

#include <QHttpServer>
#include <QHttpServerResponse>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTcpServer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using std::chrono::milliseconds;

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

// Records what the updater shows, a line each, and holds the reply to the last update it offered.
class RecordingDriver : public UserDriver
{
public:
    void showUpdateFound(const AppcastItem &update, const UpdateState &state,
                         std::function<void(UpdateChoice)> reply) override
    {
        shown << update.version + (state.userInitiated ? u" asked"_s : u" scheduled"_s);
        this->reply = std::move(reply);
    }
    void showUpdateNotFound() override { shown << u"up to date"_s; }
    void showUpdaterError(const QString &message) override { shown << message; }
    void showCheckingForUpdates() override { ++checkingShown; }

    QStringList shown;
    std::function<void(UpdateChoice)> reply;
    int checkingShown = 0;
};

} // namespace

class TestAppcastUpdater : public QObject
{
    Q_OBJECT

    QHttpServer m_server;
    quint16 m_port = 0;
    quint16 m_closedPort = 0;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<ManualClock> m_clock;
    std::unique_ptr<QNetworkAccessManager> m_network;
    RecordingDriver m_driver;

    // A path on the test server; "closed" names a port nobody listens on.
    QUrl address(const QString &where) const
    {
        return QUrl(where == u"closed" ? u"http://127.0.0.1:%1/appcast.xml"_s.arg(m_closedPort)
                                       : u"http://127.0.0.1:%1%2"_s.arg(m_port).arg(where));
    }

    QString settingsPath() const { return m_dir->filePath(u"glinta.conf"_s); }
    // What the file holds under the update framework's own key.
    QVariant stored(const QString &key) const
    {
        return QSettings(settingsPath(), QSettings::IniFormat).value(key);
    }

    std::unique_ptr<AppcastUpdater> makeUpdater(const QUrl &feed, const QString &running = u"1.3.5"_s)
    {
        return std::make_unique<AppcastUpdater>(m_network.get(), feed,
                                                BuildInfo{running, running, feed.toString()},
                                                m_preferences.get(), m_clock.get(), &m_driver);
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QByteArray xml = fixtureFeed();
        QVERIFY(!xml.isEmpty());
        m_server.route(u"/appcast.xml"_s, [xml] { return QHttpServerResponse("application/rss+xml", xml); });
        m_server.route(u"/moved"_s, [] {
            QHttpServerResponse response(QHttpServerResponse::StatusCode::Found);
            response.setHeader("Location", "/appcast.xml");
            return response;
        });
        m_server.route(u"/huge.xml"_s, [] { return QByteArray(5 * 1024 * 1024, 'x'); });
        m_port = m_server.listen(QHostAddress::LocalHost);
        QVERIFY(m_port != 0);

        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        m_closedPort = closed.serverPort();
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_preferences =
            std::make_unique<Preferences>(std::make_unique<QSettings>(settingsPath(), QSettings::IniFormat));
        m_clock = std::make_unique<ManualClock>();
        m_network = std::make_unique<QNetworkAccessManager>();
        m_driver = RecordingDriver();
    }

    void userCheck_data()
    {
        // choice: the user's answer to an offer
        columns<QString, QString, QString, UpdateChoice>("where", "running", "shown", "choice");

        const QString failed = u"Glinta could not check for updates: the update "_s;
        const UpdateChoice later = UpdateChoice::remindLater;
        QTest::newRow("installed") << u"/appcast.xml"_s << u"1.3.5"_s << u"1.3.6 asked"_s
                                   << UpdateChoice::install;
        QTest::newRow("skipped") << u"/appcast.xml"_s << u"1.3.5"_s << u"1.3.6 asked"_s << UpdateChoice::skip;
        QTest::newRow("through a redirect, later") << u"/moved"_s << u"1.3.5"_s << u"1.3.6 asked"_s << later;
        QTest::newRow("nothing newer") << u"/appcast.xml"_s << u"1.3.6"_s << u"up to date"_s << later;
        QTest::newRow("unreachable") << u"closed"_s << u"1.3.5"_s
                                     << failed + u"server could not be reached (Connection refused)."_s
                                     << later;
        QTest::newRow("not found") << u"/gone.xml"_s << u"1.3.5"_s
                                   << failed + u"server answered with HTTP status 404."_s << later;
        QTest::newRow("over 4 MiB") << u"/huge.xml"_s << u"1.3.5"_s
                                    << failed + u"feed is larger than 4 MiB."_s << later;
    }

    void userCheck()
    {
        const auto [where, running, shown, choice] =
            fetch<QString, QString, QString, UpdateChoice>("where", "running", "shown", "choice");
        auto updater = makeUpdater(address(where), running);
        QSignalSpy canCheckChanged(updater.get(), &Updater::canCheckForUpdatesChanged);
        QSignalSpy install(updater.get(), &AppcastUpdater::installRequested);
        updater->checkForUpdates();
        updater->checkForUpdates(); // ignored while one runs
        QCOMPARE(m_driver.checkingShown, 1);

        QTRY_COMPARE(m_driver.shown, QStringList{shown});
        QCOMPARE(stored(u"SULastCheckTime"_s), QVariant(u"2024-01-15T10:00:00Z"_s));
        if (m_driver.reply) {
            // Busy until the user answers; a second answer is ignored.
            QVERIFY(!updater->canCheckForUpdates());
            m_driver.reply(choice);
            m_driver.reply(UpdateChoice::install);
        }
        QVERIFY(updater->canCheckForUpdates());
        QCOMPARE(canCheckChanged.size(), 2);
        const QUrl page(u"https://glinta.example.com/files/Glinta-1.3.6.zip"_s);
        QCOMPARE(QList<QVariantList>(install),
                 choice == UpdateChoice::install ? QList<QVariantList>{{page}} : QList<QVariantList>());
        QCOMPARE(stored(u"SUSkippedVersion"_s).toString(),
                 choice == UpdateChoice::skip ? u"1.3.6"_s : QString());
    }

    void firstScheduledCheck_data()
    {
        // As stored; null: never. The clock reads 2024-01-15 10:00 UTC.
        columns<QString, milliseconds>("lastCheck", "firstDelay");

        const milliseconds soon = 1min;
        QTest::newRow("never checked") << QString() << soon;
        QTest::newRow("two hours ago, with an offset") << u"2024-01-15T09:00:00+01:00"_s << milliseconds(22h);
        QTest::newRow("half a minute short of a day") << u"2024-01-14T10:00:30Z"_s << soon;
        QTest::newRow("two days ago") << u"2024-01-13T10:00:00Z"_s << soon;
        QTest::newRow("in the future") << u"2024-01-15T13:00:00Z"_s << soon;
        QTest::newRow("unreadable") << u"yesterday"_s << soon;
    }

    void firstScheduledCheck()
    {
        const auto [lastCheck, firstDelay] = fetch<QString, milliseconds>("lastCheck", "firstDelay");
        if (!lastCheck.isNull())
            QSettings(settingsPath(), QSettings::IniFormat).setValue(u"SULastCheckTime"_s, lastCheck);
        auto updater = makeUpdater(address(u"/appcast.xml"_s));
        updater->start();
        updater->start();
        QCOMPARE(m_clock->sleepDurations(), (QList<milliseconds>{firstDelay}));
    }

    void scheduledCheck_data()
    {
        columns<QString, QString, bool>("where", "skipped", "offered");

        QTest::newRow("older version skipped") << u"/appcast.xml"_s << u"1.3.5"_s << true;
        QTest::newRow("this version skipped") << u"/appcast.xml"_s << u"1.3.6"_s << false;
        QTest::newRow("failed") << u"/gone.xml"_s << QString() << false;
    }

    void scheduledCheck()
    {
        const auto [where, skipped, offered] = fetch<QString, QString, bool>("where", "skipped", "offered");
        if (!skipped.isEmpty())
            m_preferences->setSkippedVersion(skipped);
        LogCapture log;
        auto updater = makeUpdater(address(where));
        updater->start();

        // The first a minute after the start, then daily; nothing shown but the offer.
        QStringList expected;
        for (const milliseconds wait : {milliseconds(1min), milliseconds(24h)}) {
            m_clock->advance(wait);
            QTRY_COMPARE(m_preferences->lastUpdateCheckTime().value_or(QDateTime()), m_clock->now());
            QTRY_VERIFY(updater->canCheckForUpdates() != offered);
            if (offered)
                expected << u"1.3.6 scheduled"_s;
            QCOMPARE(m_driver.shown, expected);
            if (offered)
                m_driver.reply(UpdateChoice::remindLater);
        }
        QCOMPARE(m_driver.checkingShown, 0);

        // A failure the user did not ask about is only logged.
        QCOMPARE(
            log.lines(u"Updates"_s).last().startsWith(u"warning: Update check failed: The update server"_s),
            where != u"/appcast.xml");

        // Asking shows even the version the daily check keeps quiet about.
        if (where == u"/appcast.xml") {
            m_driver.shown.clear();
            updater->checkForUpdates();
            QTRY_COMPARE(m_driver.shown, QStringList{u"1.3.6 asked"_s});
        }
    }

    // No feed, or one that is no web address: nothing to check, nothing scheduled.
    void noFeed()
    {
        for (const QString &feed : {QString(), u"ftp://127.0.0.1/appcast.xml"_s, u"https:///appcast.xml"_s}) {
            auto updater = makeUpdater(QUrl(feed));
            QVERIFY2(!updater->canCheckForUpdates(), qPrintable(feed));
            updater->checkForUpdates();
            updater->start();
        }
        QCOMPARE(m_driver.checkingShown, 0);
        QVERIFY(m_clock->sleepDurations().isEmpty());
    }

    // Destroyed during a check, or before the user answers: nothing is shown or written afterwards.
    void destroyedMidway()
    {
        auto updater = makeUpdater(address(u"/appcast.xml"_s));
        updater->start();
        updater->checkForUpdates();
        updater.reset();
        QCOMPARE(m_clock->pendingSleeps(), 0);
        QVERIFY(!QTest::qWaitFor(
            [this] { return !m_driver.shown.isEmpty() || m_preferences->lastUpdateCheckTime(); }, 200));

        updater = makeUpdater(address(u"/appcast.xml"_s));
        updater->checkForUpdates();
        QTRY_VERIFY(m_driver.reply);
        updater.reset();
        m_driver.reply(UpdateChoice::skip);
        QVERIFY(!m_preferences->skippedVersion());
    }

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
        // problem: after "not a valid appcast: "; ends in "…": a prefix
        columns<QByteArray, QString>("feed", "problem");

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
        const auto [feed, problem] = fetch<QByteArray, QString>("feed", "problem");

        const QString expected = u"The update feed is not a valid appcast: "_s + problem;
        const QString error = errorOf([&] { parseAppcast(feed); });
        QCOMPARE(expected.endsWith(u'…') ? error.left(expected.size() - 1) + u'…' : error, expected);
    }

    void comparesVersions_data()
    {
        // order: of a against b
        columns<QString, QString, int>("a", "b", "order");

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
        const auto [a, b, order] = fetch<QString, QString, int>("a", "b", "order");

        QCOMPARE(compareVersions(a, b), order);
        QCOMPARE(compareVersions(b, a), -order);
    }

    void findsNewestUpdate_data()
    {
        // offered: empty: none
        columns<QString, QString>("running", "offered");

        // The first newer item in feed order is 1.3.4; the newest is in the middle.
        QTest::newRow("several behind") << u"1.3.3"_s << u"1.3.6"_s;
        QTest::newRow("up to date") << u"1.3.6"_s << QString();
        QTest::newRow("no build number") << u""_s << u"1.3.6"_s;
    }

    void findsNewestUpdate()
    {
        const auto [running, offered] = fetch<QString, QString>("running", "offered");

        const std::optional<AppcastItem> update = newestUpdate(parseAppcast(fixtureFeed()), running);
        QCOMPARE(update ? update->version : QString(), offered);
    }
};

QTEST_GUILESS_MAIN(TestAppcastUpdater)

#include "tst_appcastupdater.moc"
