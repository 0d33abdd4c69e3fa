#include "GlucoseSnapshot.h"
#include "GlucoseStore.h"
#include "KeychainStore.h"
#include "LibreLinkUpClient.h"
#include "LogCapture.h"
#include "ManualClock.h"
#include "Preferences.h"
#include "SharedSnapshotStore.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "WidgetReloader.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using glinta::sim::SimulatedService;
using Status = GlucoseStore::Status;
using Durations = QList<std::chrono::milliseconds>;

Q_DECLARE_METATYPE(glinta::sim::Fault)

namespace {

const sim::SimAccount demo = SimulatedService::demoAccount();
const sim::SimAccount bob{u"bob@example.com"_s, u"pw"_s, u"b0b"_s, QString(), {{u"p-0002"_s, u"Bob"_s, {}}}};
const QDateTime start(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
const QString rejected = u"LibreLinkUp rejected the email or password."_s;
const QString expired = u"info: Session expired; signing in again"_s;
const QString locked = u"Keychain error: The keyring is locked."_s;

QString show(const Status &status)
{
    static const QStringList names{u"failed: "_s, u"loggedOut"_s, u"connecting"_s, u"active"_s};
    return names.at(int(status.kind)) + status.message;
}

// Wall-clock time where the test runs, as the phone stamped it, and the value.
QString show(const GlucoseReading &reading)
{
    return reading.date.toLocalTime().toString(u"hh:mm"_s) + u' ' + QString::number(reading.mgPerDl);
}

QCoro::Task<bool> done(QCoro::Task<void> task)
{
    co_await std::move(task);
    co_return true;
}

bool finish(QCoro::Task<void> task)
{
    return !run(done(std::move(task))).error;
}

// Answers one request.
Fault fault(const QString &path, Fault::Kind kind, int status = 0)
{
    Fault made;
    made.path = path;
    made.kind = kind;
    made.count = 1;
    made.httpStatus = status;
    made.apiStatus = status;
    return made;
}

class CountingReloader : public WidgetReloader
{
public:
    void reloadAllTimelines() override { ++reloads; }
    int reloads = 0;
};

// The session's real keyring under a service name of this test's own, locked on demand.
class TestKeychain : public KeychainStore
{
public:
    TestKeychain()
        : KeychainStore(u"com.nordvik.glinta.test."_s + QUuid::createUuid().toString(QUuid::WithoutBraces),
                        10s)
    {}
    QCoro::Task<void> savePassword(QString password, QString account) const override
    {
        if (lockSaving)
            throw KeychainError::locked();
        co_await KeychainStore::savePassword(std::move(password), std::move(account));
    }
    QCoro::Task<void> deletePassword(QString account) const override
    {
        if (lockDeleting)
            throw KeychainError::locked();
        co_await KeychainStore::deletePassword(std::move(account));
    }
    bool lockSaving = false;
    bool lockDeleting = false;
};

// A started store over a simulated service whose phone clock keeps pace with the store's manual clock.
struct Rig
{
    explicit Rig(const std::optional<QString> &savedEmail = std::nullopt, const QString &snapshotParent = {})
    {
        service->addAccount(demo);
        service->addAccount(bob);
        service->start();
        service->setNow(start);
        client = std::make_unique<LibreLinkUpClient>(&network, service->endpoints(), 1s);
        {
            QSettings seed(settingsPath, QSettings::IniFormat);
            seed.setValue(u"lastLaunchedBuild"_s, u"1"_s); // the same build again: no widget reload
            if (savedEmail)
                seed.setValue(u"libreLinkUpEmail"_s, *savedEmail);
        }
        preferences =
            std::make_unique<Preferences>(std::make_unique<QSettings>(settingsPath, QSettings::IniFormat));
        snapshots =
            std::make_unique<SharedSnapshotStore>(snapshotParent.isEmpty() ? dir.path() : snapshotParent);
        store = std::make_unique<GlucoseStore>(
            GlucoseStore::Services{client.get(), &keychain, snapshots.get(), preferences.get(), &widgets,
                                   &clock, BuildInfo{u"1.3.5"_s, u"1"_s}});
        QObject::connect(store.get(), &GlucoseStore::statusChanged,
                         [this] { trail.append(show(store->status())); });
        store->start();
    }
    ~Rig()
    {
        store.reset();
        QTest::qWait(20); // what the store had in flight ends before the network goes
        for (const QString &account : {demo.email, bob.email})
            finish(keychain.KeychainStore::deletePassword(account));
    }

    void pass(std::chrono::seconds time)
    {
        clock.advance(time);
        if (service)
            service->advance(time);
    }
    // The tick and the poll loop both in their pause.
    bool idle() const { return clock.pendingSleeps() == 2; }
    bool signedIn()
    {
        return finish(store->signIn(demo.email, demo.password)) &&
               QTest::qWaitFor([this] { return store->status() == Status::active() && idle(); });
    }
    int requests(const QString &path) const { return service->requestCount(path); }
    int allRequests() const
    {
        return requests(u"login"_s) + requests(u"connections"_s) + requests(u"graph"_s);
    }
    QStringList log() const
    {
        QStringList lines;
        for (const LogCapture::Entry &entry : capture.inCategory(u"com.nordvik.glinta.GlucoseStore"_s))
            lines.append((entry.type == QtInfoMsg ? u"info: "_s : u"error: "_s) + entry.message);
        return lines;
    }
    bool hasPassword()
    {
        const auto outcome = run(keychain.readPassword(demo.email));
        return outcome.value && outcome.value->has_value();
    }
    QVariant preference(const QString &key) const
    {
        return QSettings(settingsPath, QSettings::IniFormat).value(key);
    }
    QString snapshotPath() const
    {
        return dir.filePath(SharedSnapshotStore::containerIdentifier + u'/' + SharedSnapshotStore::fileName);
    }

    LogCapture capture;
    QTemporaryDir dir;
    QString settingsPath = dir.filePath(u"glinta.conf"_s);
    std::unique_ptr<SimulatedService> service = std::make_unique<SimulatedService>();
    QNetworkAccessManager network;
    std::unique_ptr<LibreLinkUpClient> client;
    TestKeychain keychain;
    std::unique_ptr<SharedSnapshotStore> snapshots;
    std::unique_ptr<Preferences> preferences;
    CountingReloader widgets;
    ManualClock clock{ManualClock::Mode::manual, start};
    std::unique_ptr<GlucoseStore> store;
    QStringList trail;
};

// Long enough for a cycle that should not happen to show itself.
void quiet()
{
    QTest::qWait(150);
}

QByteArray measurement(const QString &stamp, int value)
{
    return u"{\"Timestamp\":\"%1\",\"ValueInMgPerDl\":%2,\"TrendArrow\":3}"_s.arg(stamp).arg(value).toUtf8();
}

} // namespace

class TestGlucoseStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void launchWithoutEmail();
    void signInSucceeds();
    void savedEmailWithoutPassword_data();
    void savedEmailWithoutPassword();
    void graphShapes_data();
    void graphShapes();
    void signOutDuringFetch_data();
    void signOutDuringFetch();
    void sessionRenewal_data();
    void sessionRenewal();
    void failedCycleRetriesAfterOnePause_data();
    void failedCycleRetriesAfterOnePause();
    void networkOutage();
    void systemSleep();
    void signInWhileLoopRuns();
    void unitAlwaysRepublishes_data();
    void unitAlwaysRepublishes();
    void persistenceFailures();
    void equalAssignmentsNotifyNobody();
};

void TestGlucoseStore::launchWithoutEmail()
{
    Rig rig;
    QSignalSpy ticks(rig.store.get(), &GlucoseStore::nowChanged);
    for (int minute = 1; minute <= 3; ++minute) {
        rig.pass(60s);
        QTRY_COMPARE(rig.store->now(), start.addSecs(60 * minute));
    }
    QCOMPARE(ticks.count(), 3);
    QCOMPARE(show(rig.store->status()), u"loggedOut"_s);
    QCOMPARE(rig.service->connectionCount(), 0);
    QCOMPARE(rig.clock.sleepDurations(), Durations(4, 60s)); // the tick's alone
    QVERIFY(rig.log().isEmpty());

    // A Refresh while signed out finds no credentials; only a sign-in clears the flag again.
    QVERIFY(finish(rig.store->refresh()));
    QVERIFY(rig.store->credentialFailure());
    QCOMPARE(rig.service->connectionCount(), 0);
    QVERIFY(rig.trail.isEmpty());
    QVERIFY(rig.signedIn());
    QVERIFY(!rig.store->credentialFailure());
}

void TestGlucoseStore::signInSucceeds()
{
    Rig rig;
    QVERIFY(rig.signedIn());
    const GlucoseStore &store = *rig.store;
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"active"_s}));
    QVERIFY(run(rig.keychain.readPassword(demo.email)).value == std::optional(std::optional(demo.password)));
    QCOMPARE(rig.preference(u"libreLinkUpEmail"_s).toString(), demo.email);
    QCOMPARE(store.savedEmail(), std::optional(demo.email));

    QVERIFY(store.latest());
    QCOMPARE(store.latest()->date, start);
    QCOMPARE(store.latest()->mgPerDl, SimulatedService::glucoseAt(start));
    // Twelve hours every 15 minutes, the newest as old as the current reading.
    QCOMPARE(store.history().size(), 48);
    QCOMPARE(store.history().constLast().date, start);
    QCOMPARE(store.connectionName(), std::optional(u"Ann Lee"_s));
    QCOMPARE(store.lastUpdated(), std::optional(start));

    const std::optional<GlucoseSnapshot> snapshot = rig.snapshots->read();
    QVERIFY(snapshot && snapshot->latest == store.latest() && snapshot->history == store.history() &&
            snapshot->connectionName == store.connectionName() && snapshot->updatedAt == start);
    QCOMPARE(rig.widgets.reloads, 1);

    // The sign-in's session serves the first cycle; the region redirect costs a second login request.
    QCOMPARE(rig.requests(u"login"_s), 2);
    QCOMPARE(rig.requests(u"connections"_s), 1);
    QCOMPARE(rig.requests(u"graph"_s), 1);
    QCOMPARE(rig.clock.sleepDurations(), Durations(2, 60s));
    QVERIFY(rig.log().isEmpty());
}

void TestGlucoseStore::savedEmailWithoutPassword_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("lockSaving");
    QTest::addColumn<QString>("text");
    QTest::newRow("wrong password") << u"Correct horse"_s << false << rejected;
    QTest::newRow("keyring locked") << demo.password << true << locked;
}

void TestGlucoseStore::savedEmailWithoutPassword()
{
    QFETCH(QString, password);
    QFETCH(bool, lockSaving);
    QFETCH(QString, text);

    const QString previous = u"old@example.com"_s;
    Rig rig(previous);
    QTRY_VERIFY(rig.store->credentialFailure());
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"loggedOut"_s}));
    rig.pass(5min);
    quiet();
    QCOMPARE(rig.clock.pendingSleeps(), 1); // the tick only: the loop has ended
    QCOMPARE(rig.service->connectionCount(), 0);

    // The panel offers sign-in again, which fails too.
    rig.trail.clear();
    rig.keychain.lockSaving = lockSaving;
    QVERIFY(finish(rig.store->signIn(demo.email, password)));
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"failed: "_s + text}));
    QCOMPARE(rig.log(), QStringList{u"error: Login failed: "_s + text});
    QCOMPARE(rig.store->savedEmail(), std::optional(previous));
    QCOMPARE(rig.preference(u"libreLinkUpEmail"_s).toString(), previous);
    QVERIFY(!rig.hasPassword());
    QVERIFY(rig.store->credentialFailure());
    QCOMPARE(rig.clock.pendingSleeps(), 1); // no loop was started
    QCOMPARE(rig.requests(u"graph"_s), 0);
    QCOMPARE(rig.widgets.reloads, 0);
}

void TestGlucoseStore::graphShapes_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("history");
    QTest::addColumn<QString>("latest");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("log");

    const auto m = [](const char *time, int value) -> QByteArray {
        return measurement(u"1/15/2024 "_s + QLatin1StringView(time), value);
    };
    const auto body = [](const QByteArray &connection, const QList<QByteArray> &points) -> QByteArray {
        return "{\"status\":0,\"data\":{" +
               (connection.isEmpty() ? QByteArray()
                                     : "\"connection\":{\"patientId\":\"p-0001\"," + connection + "},") +
               "\"graphData\":[" + points.join(',') + "]}}";
    };
    const QByteArray annLee = R"("firstName":"Ann","lastName":"Lee","glucoseMeasurement":)";
    const QList<QByteArray> two{m("10:00:00 AM", 100), m("10:05:00 AM", 110)};
    const QStringList twoShown{u"10:00 100"_s, u"10:05 110"_s};

    QTest::newRow("two points at 10:05 and a current one")
        << body(annLee + m("10:05:00 AM", 112), two + QList{m("10:05:00 AM", 111)}) << twoShown
        << u"10:05 112"_s << u"Ann Lee"_s << QStringList();
    QTest::newRow("current older than the graph") << body(annLee + m("9:58:00 AM", 97), two) << twoShown
                                                  << u"09:58 97"_s << u"Ann Lee"_s << QStringList();
    QTest::newRow("no connection keeps the name")
        << body({}, two) << twoShown << u"10:05 110"_s << u"Ann Lee"_s << QStringList();
    QTest::newRow("renamed") << body(R"("firstName":"Annie","glucoseMeasurement":)" + m("10:06:00 AM", 120),
                                     two)
                             << (twoShown + QStringList{u"10:06 120"_s}) << u"10:06 120"_s << u"Annie"_s
                             << QStringList();
    QTest::newRow("unreadable timestamp")
        << body({}, {measurement(u"2024-01-15T10:00:00Z"_s, 100), m("10:05:00 AM", 110)})
        << QStringList{u"10:05 110"_s} << u"10:05 110"_s << u"Ann Lee"_s
        << QStringList{u"error: Could not parse timestamp 2024-01-15T10:00:00Z"_s};
}

void TestGlucoseStore::graphShapes()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, history);
    QFETCH(QString, latest);
    QFETCH(QString, name);
    QFETCH(QStringList, log);

    Rig rig;
    Fault raw = fault(u"graph"_s, Fault::Kind::rawBody);
    raw.body = body;
    rig.service->addFault(raw);
    QVERIFY(rig.signedIn());
    QStringList shown;
    for (const GlucoseReading &reading : rig.store->history())
        shown.append(show(reading));
    QCOMPARE(shown, history);
    QVERIFY(rig.store->latest());
    QCOMPARE(show(*rig.store->latest()), latest);
    QCOMPARE(rig.store->connectionName(), std::optional(name));
    QCOMPARE(rig.log(), log);
}

void TestGlucoseStore::signOutDuringFetch_data()
{
    QTest::addColumn<QString>("stage");
    QTest::newRow("graph") << u"graph"_s;
    QTest::newRow("connections") << u"connections"_s;
}

void TestGlucoseStore::signOutDuringFetch()
{
    QFETCH(QString, stage);
    Rig rig;
    GlucoseStore &store = *rig.store;
    // An empty list keeps the patient unknown, so the next cycles ask for the list again.
    if (stage == u"connections")
        rig.service->addFault(fault(stage, Fault::Kind::emptyConnections));
    QVERIFY(finish(store.signIn(demo.email, demo.password)));
    QTRY_VERIFY(rig.idle());
    store.setUnit(GlucoseUnit::mmolPerL);

    // The loop's next cycle hangs; a Refresh button cycle, which sign-out does not cancel, answers late.
    rig.service->addFault(fault(stage, Fault::Kind::neverReply));
    rig.pass(60s);
    QTRY_COMPARE(rig.requests(stage), 2);
    Fault late = fault(stage, Fault::Kind::delay);
    late.delay = 300ms;
    rig.service->addFault(late);
    QCoro::Task<void> refresh = store.refresh();
    QTRY_COMPARE(rig.requests(stage), 3);

    const int reloads = rig.widgets.reloads;
    const qsizetype logged = rig.log().size();
    rig.trail.clear();
    store.signOut();
    QVERIFY(finish(std::move(refresh)));
    QCOMPARE(rig.trail, QStringList{u"loggedOut"_s});
    QVERIFY(!store.latest());
    QVERIFY(store.history().isEmpty());
    QVERIFY2(!store.connectionName(), "the late answer brought the signed-out account's name back");
    QVERIFY(!store.lastUpdated());
    QVERIFY(!store.savedEmail());
    QVERIFY(!rig.preference(u"libreLinkUpEmail"_s).isValid());
    QVERIFY(!QFile::exists(rig.snapshotPath()));
    QCOMPARE(rig.widgets.reloads, reloads + 1);
    QTRY_VERIFY(!rig.hasPassword());
    QCOMPARE(store.unit(), GlucoseUnit::mmolPerL);
    QCOMPARE(rig.preference(u"glucoseUnit"_s).toString(), u"mmol/L"_s);

    const int requests = rig.allRequests();
    rig.pass(5min);
    quiet();
    QCOMPARE(rig.allRequests(), requests);
    QCOMPARE(rig.trail, QStringList{u"loggedOut"_s});
    QCOMPARE(rig.log().size(), logged);

    // The next account gets its own patient's data.
    QVERIFY(finish(store.signIn(bob.email, bob.password)));
    QTRY_VERIFY(rig.idle());
    QCOMPARE(show(store.status()), u"active"_s);
    QCOMPARE(store.connectionName(), std::optional(u"Bob"_s));
}

void TestGlucoseStore::sessionRenewal_data()
{
    QTest::addColumn<bool>("removePassword");
    QTest::addColumn<int>("graph401s");
    QTest::addColumn<int>("loginStatus");
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("logins");
    QTest::addColumn<QStringList>("log");

    const QString attention =
        u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, then try again."_s;
    const QString notSignedIn = u"Not signed in to LibreLinkUp."_s;
    QTest::newRow("renewed") << false << 1 << 0 << u"active"_s << 2 << QStringList{expired};
    QTest::newRow("password changed") << false << 1 << 2 << u"failed: "_s + rejected << 1
                                      << QStringList{expired, u"error: Refresh failed: "_s + rejected};
    QTest::newRow("terms to accept") << false << 1 << 4 << u"failed: "_s + attention << 1
                                     << QStringList{expired, u"error: Refresh failed: "_s + attention};
    QTest::newRow("password removed from the keyring")
        << true << 1 << 0 << u"loggedOut"_s << 0 << QStringList{expired};
    QTest::newRow("rejected after a fresh sign-in")
        << false << 2 << 0 << u"failed: "_s + notSignedIn << 2
        << QStringList{expired, u"error: Refresh failed: "_s + notSignedIn};
}

void TestGlucoseStore::sessionRenewal()
{
    QFETCH(bool, removePassword);
    QFETCH(int, graph401s);
    QFETCH(int, loginStatus);
    QFETCH(QString, status);
    QFETCH(int, logins);
    QFETCH(QStringList, log);
    const bool credentialProblem = status != u"active" && !status.contains(u"Not signed in");

    Rig rig;
    QVERIFY(rig.signedIn());
    if (removePassword)
        QVERIFY(finish(rig.keychain.deletePassword(demo.email)));
    // While the session holds, the keyring is not asked.
    rig.pass(60s);
    QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(60)));
    QTRY_VERIFY(rig.idle());

    Fault unauthorised = fault(u"graph"_s, Fault::Kind::httpStatus, 401);
    unauthorised.count = graph401s;
    rig.service->addFault(unauthorised);
    if (loginStatus)
        rig.service->addFault(fault(u"login"_s, Fault::Kind::apiStatus, loginStatus));
    const int loginsBefore = rig.requests(u"login"_s);
    rig.pass(60s);
    QTRY_VERIFY(rig.idle() || rig.store->credentialFailure());
    QCOMPARE(show(rig.store->status()), status);
    QCOMPARE(rig.store->credentialFailure(), credentialProblem);
    QCOMPARE(rig.requests(u"login"_s) - loginsBefore, logins);
    QCOMPARE(rig.log(), log);
    QCOMPARE(rig.store->savedEmail(), std::optional(demo.email));

    const int before = rig.allRequests();
    rig.pass(60s);
    if (credentialProblem) {
        quiet();
        QCOMPARE(rig.allRequests(), before);
        QCOMPARE(rig.clock.pendingSleeps(), 1);
    } else {
        QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(180)));
        QCOMPARE(show(rig.store->status()), u"active"_s);
    }
}

void TestGlucoseStore::failedCycleRetriesAfterOnePause_data()
{
    QTest::addColumn<Fault>("failure");
    QTest::addColumn<QString>("text");

    QTest::newRow("rate limited")
        << fault(u"graph"_s, Fault::Kind::httpStatus, 429)
        << u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
    QTest::newRow("no connections") << fault(u"connections"_s, Fault::Kind::emptyConnections)
                                    << u"No one is sharing data with this LibreLinkUp account. In the "
                                       u"LibreLink app choose Share, connect "
                                       u"LibreLinkUp, then accept the invitation in the LibreLinkUp app."_s;
    QTest::newRow("server error") << fault(u"graph"_s, Fault::Kind::httpStatus, 500)
                                  << u"LibreLinkUp request failed (HTTP 500)."_s;
    Fault maintenance = fault(u"graph"_s, Fault::Kind::apiStatus, 9);
    maintenance.message = u"Maintenance"_s;
    QTest::newRow("unexpected status") << maintenance << u"LibreLinkUp returned status 9: Maintenance."_s;
}

void TestGlucoseStore::failedCycleRetriesAfterOnePause()
{
    QFETCH(Fault, failure);
    QFETCH(QString, text);

    Rig rig;
    rig.service->addFault(failure);
    QVERIFY(finish(rig.store->signIn(demo.email, demo.password)));
    QTRY_VERIFY(rig.idle());
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"failed: "_s + text}));
    QCOMPARE(rig.log(), QStringList{u"error: Refresh failed: "_s + text});
    QVERIFY(!rig.store->credentialFailure());
    QVERIFY(!rig.store->lastUpdated());

    // The same pause as after a success: no back-off.
    QCOMPARE(rig.clock.sleepDurations(), Durations(2, 60s));
    const int before = rig.allRequests();
    rig.pass(59s);
    quiet();
    QCOMPARE(rig.allRequests(), before);
    rig.pass(1s);
    QTRY_COMPARE(show(rig.store->status()), u"active"_s);
    QCOMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(60)));
    QCOMPARE(rig.store->connectionName(), std::optional(u"Ann Lee"_s));
}

void TestGlucoseStore::networkOutage()
{
    Rig rig;
    QVERIFY(rig.signedIn());
    const GlucoseStore &store = *rig.store;
    const std::optional<GlucoseReading> latest = store.latest();
    const QList<GlucoseReading> history = store.history();
    const auto port = quint16(rig.service->baseUrl().port());
    const QString unreachable = u"Could not connect to the server."_s;

    rig.service.reset();
    for (int minute = 1; minute <= 30; ++minute) {
        rig.pass(60s);
        QTRY_VERIFY(rig.idle());
        QCOMPARE(rig.log().size(), minute);
    }
    QCOMPARE(rig.log(), QStringList(30, u"error: Refresh failed: "_s + unreachable));
    QCOMPARE(show(store.status()), u"failed: "_s + unreachable);
    QVERIFY(store.latest() == latest);
    QVERIFY(store.history() == history);
    QCOMPARE(store.lastUpdated(), std::optional(start));
    QCOMPARE(latest->date.secsTo(store.now()), 30 * 60); // past the 15 minutes that make it stale

    // The service is back, and has forgotten the session.
    rig.service = std::make_unique<SimulatedService>();
    rig.service->addAccount(demo);
    QCOMPARE(rig.service->start(port), port);
    rig.service->setNow(rig.clock.now());
    rig.pass(60s);
    QTRY_COMPARE(show(store.status()), u"active"_s);
    QCOMPARE(store.latest()->date, start.addSecs(31 * 60));
    QCOMPARE(rig.log().constLast(), expired);
    QCOMPARE(rig.trail,
             (QStringList{u"connecting"_s, u"active"_s, u"failed: "_s + unreachable, u"active"_s}));
}

void TestGlucoseStore::systemSleep()
{
    Rig rig;
    QVERIFY(rig.signedIn());
    const GlucoseStore &store = *rig.store;
    QList<qint64> ageAtTick;
    connect(&store, &GlucoseStore::nowChanged, this,
            [&] { ageAtTick.append(store.latest()->date.secsTo(store.now())); });

    rig.pass(2h);
    QTRY_COMPARE(store.latest()->date, start.addSecs(2 * 3600));
    QTRY_VERIFY(rig.idle());
    QCOMPARE(ageAtTick, QList<qint64>{2 * 3600}); // stale until the cycle's reading came in
    QCOMPARE(store.latest()->date.secsTo(store.now()), 0);
    QCOMPARE(rig.requests(u"graph"_s), 2); // one cycle at wake, none to catch up
    QCOMPARE(show(store.status()), u"active"_s);
    QCOMPARE(rig.clock.sleepDurations(), Durations(4, 60s));
}

void TestGlucoseStore::signInWhileLoopRuns()
{
    Rig rig;
    QVERIFY(rig.signedIn());
    rig.service->addFault(fault(u"graph"_s, Fault::Kind::neverReply));
    rig.pass(60s);
    QTRY_COMPARE(rig.requests(u"graph"_s), 2);

    rig.trail.clear();
    QVERIFY(rig.signedIn());
    QCOMPARE(rig.requests(u"graph"_s), 3); // without waiting for a pause
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"active"_s}));
    QVERIFY(rig.log().isEmpty());

    rig.pass(60s);
    QTRY_COMPARE(rig.requests(u"graph"_s), 4);
    quiet();
    QCOMPARE(rig.requests(u"graph"_s), 4); // one loop, not two
    QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"active"_s}));
}

void TestGlucoseStore::unitAlwaysRepublishes_data()
{
    QTest::addColumn<GlucoseUnit>("unit");
    QTest::addColumn<int>("notified");
    QTest::newRow("same unit") << GlucoseUnit::mgPerDl << 0;
    QTest::newRow("other unit") << GlucoseUnit::mmolPerL << 1;
}

void TestGlucoseStore::unitAlwaysRepublishes()
{
    QFETCH(GlucoseUnit, unit);
    QFETCH(int, notified);

    Rig rig;
    QVERIFY(rig.signedIn());
    QVERIFY(!rig.preference(u"glucoseUnit"_s).isValid());
    QVERIFY(QFile::remove(rig.snapshotPath()));
    QSignalSpy changed(rig.store.get(), &GlucoseStore::unitChanged);

    rig.store->setUnit(unit);
    QCOMPARE(changed.count(), notified);
    QCOMPARE(rig.preference(u"glucoseUnit"_s).toString(), rawValue(unit));
    const std::optional<GlucoseSnapshot> snapshot = rig.snapshots->read();
    QVERIFY(snapshot && snapshot->unit == unit && snapshot->latest == rig.store->latest());
    QCOMPARE(rig.widgets.reloads, 2);
}

void TestGlucoseStore::persistenceFailures()
{
    QTemporaryDir parent;
    QFile notADirectory(parent.filePath(u"data"_s));
    QVERIFY(notADirectory.open(QIODevice::WriteOnly));
    Rig rig(std::nullopt, notADirectory.fileName());
    const QString unavailable =
        u"The app group container K3R8WQ5N2D.com.nordvik.glinta is unavailable. Check "
        u"the App Groups entitlement."_s;

    QVERIFY(rig.signedIn());
    QCOMPARE(rig.log(), QStringList{u"error: Could not publish widget snapshot: "_s + unavailable});
    QCOMPARE(rig.widgets.reloads, 0);
    QVERIFY(rig.store->latest());
    QCOMPARE(rig.store->lastUpdated(), std::optional(start));
    rig.store->setUnit(GlucoseUnit::mmolPerL);
    QCOMPARE(rig.log().size(), 2);
    QCOMPARE(rig.widgets.reloads, 0);
    QCOMPARE(show(rig.store->status()), u"active"_s);

    // Sign-out goes on past what it cannot remove, and wakes the widgets all the same.
    rig.keychain.lockDeleting = true;
    rig.store->signOut();
    QCOMPARE(rig.log().mid(2), (QStringList{u"error: Could not remove saved password: "_s + locked,
                                            u"error: Could not clear widget snapshot: "_s + unavailable}));
    QCOMPARE(rig.widgets.reloads, 1);
    QCOMPARE(show(rig.store->status()), u"loggedOut"_s);
    QVERIFY(!rig.store->savedEmail());
}

void TestGlucoseStore::equalAssignmentsNotifyNobody()
{
    Rig rig;
    QVERIFY(rig.signedIn());
    GlucoseStore &store = *rig.store;
    std::vector<std::unique_ptr<QSignalSpy>> spies;
    for (const auto signal :
         {&GlucoseStore::statusChanged, &GlucoseStore::latestChanged, &GlucoseStore::historyChanged,
          &GlucoseStore::connectionNameChanged, &GlucoseStore::lastUpdatedChanged,
          &GlucoseStore::savedEmailChanged, &GlucoseStore::credentialFailureChanged})
        spies.push_back(std::make_unique<QSignalSpy>(&store, signal));
    const auto counts = [&spies] {
        QList<int> result;
        for (const auto &spy : spies)
            result.append(int(spy->count()));
        return result;
    };

    // Within the same minute the service serves the same data, and the clock has not moved.
    QVERIFY(finish(store.refresh()));
    QCOMPARE(rig.requests(u"graph"_s), 2);
    QCOMPARE(counts(), QList<int>(7, 0));
    QCOMPARE(rig.widgets.reloads, 2); // republished all the same

    rig.pass(60s);
    QTRY_COMPARE(store.lastUpdated(), std::optional(start.addSecs(60)));
    QCOMPARE(counts(), (QList<int>{0, 1, 1, 0, 1, 0, 0}));
}

QTEST_GUILESS_MAIN(TestGlucoseStore)
#include "tst_glucosestore.moc"
