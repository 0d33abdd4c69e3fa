#include "LogCapture.h"
#include "ManualClock.h"
#include "store/Preferences.h"
#include "update/AppcastUpdater.h"

#include <QFile>
#include <QHttpServer>
#include <QHttpServerResponse>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using std::chrono::milliseconds;

namespace {

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
        QFile feed(QStringLiteral(GLINTA_TEST_DATA_DIR) + u"/appcast.xml"_s);
        QVERIFY(feed.open(QIODevice::ReadOnly));
        m_server.route(u"/appcast.xml"_s,
                       [xml = feed.readAll()] { return QHttpServerResponse("application/rss+xml", xml); });
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
        m_clock = std::make_unique<ManualClock>(ManualClock::Mode::manual);
        m_network = std::make_unique<QNetworkAccessManager>();
        m_driver = RecordingDriver();
    }

    void userCheck_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<UpdateChoice>("choice"); // the user's answer to an offer

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
        QFETCH(QString, where);
        QFETCH(QString, running);
        QFETCH(QString, shown);
        QFETCH(UpdateChoice, choice);
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
        QTest::addColumn<QString>("lastCheck");
        QTest::addColumn<milliseconds>("firstDelay");

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
        QFETCH(QString, lastCheck);
        QFETCH(milliseconds, firstDelay);
        if (!lastCheck.isNull())
            QSettings(settingsPath(), QSettings::IniFormat).setValue(u"SULastCheckTime"_s, lastCheck);
        auto updater = makeUpdater(address(u"/appcast.xml"_s));
        updater->start();
        updater->start();
        QCOMPARE(m_clock->sleepDurations(), (QList<milliseconds>{firstDelay}));
    }

    void scheduledCheck_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("skipped");
        QTest::addColumn<bool>("offered");

        QTest::newRow("older version skipped") << u"/appcast.xml"_s << u"1.3.5"_s << true;
        QTest::newRow("this version skipped") << u"/appcast.xml"_s << u"1.3.6"_s << false;
        QTest::newRow("failed") << u"/gone.xml"_s << QString() << false;
    }

    void scheduledCheck()
    {
        QFETCH(QString, where);
        QFETCH(QString, skipped);
        QFETCH(bool, offered);
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

    void noFeed_data()
    {
        QTest::addColumn<QUrl>("feed");

        QTest::newRow("empty") << QUrl();
        QTest::newRow("not the web") << QUrl(u"ftp://127.0.0.1/appcast.xml"_s);
        QTest::newRow("no host") << QUrl(u"https:///appcast.xml"_s);
    }

    void noFeed()
    {
        QFETCH(QUrl, feed);
        auto updater = makeUpdater(feed);
        QVERIFY(!updater->canCheckForUpdates());
        updater->checkForUpdates();
        updater->start();
        QCOMPARE(m_driver.checkingShown, 0);
        QCOMPARE(m_clock->sleepCount(), 0);
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
};

QTEST_GUILESS_MAIN(TestAppcastUpdater)

#include "tst_appcastupdater.moc"
