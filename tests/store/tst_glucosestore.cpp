#include "CountingReloader.h"
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

Q_DECLARE_METATYPE(glinta::sim::Fault)

namespace {

const sim::SimAccount demo = SimulatedService::demoAccount();
const sim::SimAccount bob{u"bob@example.com"_s, u"pw"_s, u"b0b"_s, QString(), {{u"p-0002"_s, u"Bob"_s, {}}}};
const QDateTime start(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
const QString rejected = u"LibreLinkUp rejected the email or password."_s;
const QString expired = u"info: Session expired; signing in again"_s;

QString show(const Status &status)
{
    static const QStringList names{u"failed: "_s, u"loggedOut"_s, u"connecting"_s, u"active"_s};
    return names.at(int(status.kind)) + status.message;
}

Fault fault(const QString &path, Fault::Kind kind, int status = 0)
{
    return {path, kind, status, status, {}, {}, {}, 1, {}}; // answers one request
}

// The session's real keyring under a service name of this test's own, locked on demand.
class TestKeychain : public KeychainStore
{
public:
    TestKeychain() : KeychainStore(u"com.nordvik.glinta.test."_s + QUuid::createUuid().toString(), 10s) {}
    QCoro::Task<void> savePassword(QString password, QString account) const override
    {
        if (lockSaving)
            throw KeychainError::locked();
        co_await KeychainStore::savePassword(std::move(password), std::move(account));
    }
    bool lockSaving = false;
};

// A started store over a simulated service whose phone clock keeps pace with the store's manual clock.
struct Rig
{
    explicit Rig(const QString &savedEmail = {}, const QString &snapshotParent = {})
    {
        for (const sim::SimAccount &account : {demo, bob})
            service->addAccount(account);
        service->start();
        service->setNow(start);
        QSettings seed(settingsPath, QSettings::IniFormat);
        seed.setValue(u"lastLaunchedBuild"_s, u"1"_s); // the same build again: no widget reload
        if (!savedEmail.isEmpty())
            seed.setValue(u"libreLinkUpEmail"_s, savedEmail);
        seed.sync();
        client = std::make_unique<LibreLinkUpClient>(&network, service->endpoints(), 1s);
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
            runToEnd(keychain.deletePassword(account));
    }

    void pass(std::chrono::seconds time)
    {
        clock.advance(time);
        if (service)
            service->advance(time);
    }
    // Long enough for a cycle that should not happen to show itself.
    static void quiet() { QTest::qWait(150); }
    // The tick and the poll loop both in their pause.
    bool idle() const { return clock.pendingSleeps() == 2; }
    bool signedIn()
    {
        return !runToEnd(store->signIn(demo.email, demo.password)) &&
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
        return run(keychain.readPassword(demo.email)).value.value_or(std::nullopt).has_value();
    }
    QVariant preference(const QString &key) const
    {
        return QSettings(settingsPath, QSettings::IniFormat).value(key);
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

QByteArray measurement(const char *time, int value)
{
    return "{\"Timestamp\":\"1/15/2024 " + QByteArray(time) +
           ":00 AM\",\"ValueInMgPerDl\":" + QByteArray::number(value) + ",\"TrendArrow\":3}";
}

} // namespace

class TestGlucoseStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signIn_data()
    {
        QTest::addColumn<QString>("saved"); // an e-mail a past session left, without its password
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("lockSaving");
        QTest::addColumn<QString>("failure");
        const QString old = u"old@example.com"_s;
        QTest::newRow("accepted, nothing saved") << QString() << demo.password << false << QString();
        QTest::newRow("wrong password, e-mail saved") << old << u"Correct horse"_s << false << rejected;
        QTest::newRow("keyring locked, e-mail saved")
            << old << demo.password << true << u"Keychain error: The keyring is locked."_s;
    }
    void signIn()
    {
        QFETCH(QString, saved);
        QFETCH(QString, password);
        QFETCH(bool, lockSaving);
        QFETCH(QString, failure);
        const bool ok = failure.isEmpty();

        // Without a password, one cycle; after it nothing but the clock runs.
        Rig rig(saved);
        QTRY_COMPARE(rig.trail,
                     (saved.isEmpty() ? QStringList() : QStringList{u"connecting"_s, u"loggedOut"_s}));
        rig.pass(60s);
        QTRY_COMPARE(rig.store->now(), start.addSecs(60));
        QCOMPARE(rig.clock.sleepDurations(), QList<std::chrono::milliseconds>(2, 60s)); // the tick's alone
        QCOMPARE(rig.store->credentialFailure(), !saved.isEmpty());
        // A Refresh finds no credentials either; only a sign-in clears the flag.
        QVERIFY(!runToEnd(rig.store->refresh()));
        QVERIFY(rig.store->credentialFailure());
        QCOMPARE(rig.service->connectionCount(), 0);
        QVERIFY(rig.log().isEmpty());

        rig.trail.clear();
        rig.keychain.lockSaving = lockSaving;
        QVERIFY(!runToEnd(rig.store->signIn(demo.email, password)));
        QTRY_COMPARE(rig.trail, (QStringList{u"connecting"_s, ok ? u"active"_s : u"failed: "_s + failure}));
        QTRY_COMPARE(rig.clock.pendingSleeps(), ok ? 2 : 1); // no loop after a failure
        QCOMPARE(rig.log(), ok ? QStringList() : QStringList{u"error: Login failed: "_s + failure});
        QCOMPARE(rig.store->savedEmail(), std::optional(ok ? demo.email : saved));
        QCOMPARE(rig.preference(u"libreLinkUpEmail"_s).toString(), ok ? demo.email : saved);
        QCOMPARE(rig.hasPassword(), ok);
        QCOMPARE(rig.store->credentialFailure(), !ok);
        QCOMPARE(rig.requests(u"graph"_s), ok ? 1 : 0);
        QCOMPARE(rig.widgets.reloads, ok ? 1 : 0);
        // The sign-in's session serves the first cycle; the region redirect costs a second login request.
        if (ok)
            QCOMPARE(rig.requests(u"login"_s), 2);
    }

    // The graph's own connection names the patient and gives the latest reading; without it the newest
    // point is the latest, and the name stays.
    void graph()
    {
        Rig rig;
        const auto answer = [](const QByteArray &connection) {
            Fault raw = fault(u"graph"_s, Fault::Kind::rawBody);
            raw.body = "{\"status\":0,\"data\":{" + connection + "\"graphData\":[" +
                       measurement("10:00", 100) + ',' + measurement("10:05", 110) + "]}}";
            return raw;
        };
        rig.service->addFault(
            answer(R"("connection":{"patientId":"p-0001","firstName":"Annie","glucoseMeasurement":)" +
                   measurement("10:06", 112) + "},"));
        QVERIFY(rig.signedIn());
        QCOMPARE(rig.store->history().size(), 3);
        QCOMPARE(rig.store->latest()->mgPerDl, 112);
        QCOMPARE(rig.store->connectionName(), std::optional(u"Annie"_s));

        rig.service->addFault(answer({}));
        rig.pass(60s);
        QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(60)));
        QCOMPARE(rig.store->latest()->mgPerDl, 110);
        QCOMPARE(rig.store->connectionName(), std::optional(u"Annie"_s));
        QVERIFY(rig.log().isEmpty());
    }

    // Signing out while a request hangs: the sign-in's own login, quitting while the sign-in window waits;
    // or the loop's next cycle, with a Refresh button cycle, which sign-out does not cancel, answering late.
    // Nothing of the account may come back, nor any loop run on.
    void signOut_data()
    {
        QTest::addColumn<QString>("stage");
        QTest::addColumn<QString>("firstCycle");
        QTest::newRow("login") << u"login"_s << QString();
        QTest::newRow("graph") << u"graph"_s << QString();
        // An empty list keeps the patient unknown, so every cycle asks for the list again.
        QTest::newRow("connections")
            << u"connections"_s
            << u"No one is sharing data with this LibreLinkUp account. In the LibreLink "
               u"app choose Share, connect LibreLinkUp, then accept the invitation in "
               u"the LibreLinkUp app."_s;
    }
    void signOut()
    {
        QFETCH(QString, stage);
        QFETCH(QString, firstCycle);
        Rig rig;
        GlucoseStore &store = *rig.store;
        store.setUnit(GlucoseUnit::mmolPerL);
        Fault late = fault(stage, Fault::Kind::delay);
        late.delay = 300ms;
        QCoro::Task<void> pending;
        if (stage == u"login") {
            rig.service->addFault(late);
            pending = store.signIn(demo.email, demo.password);
            QTRY_COMPARE(rig.requests(stage), 1);
        } else {
            if (!firstCycle.isEmpty())
                rig.service->addFault(fault(stage, Fault::Kind::emptyConnections));
            QVERIFY(!runToEnd(store.signIn(demo.email, demo.password)));
            QTRY_VERIFY(rig.idle());
            QCOMPARE(rig.log(), firstCycle.isEmpty()
                                    ? QStringList()
                                    : QStringList{u"error: Refresh failed: "_s + firstCycle});
            rig.service->addFault(fault(stage, Fault::Kind::neverReply));
            rig.pass(60s);
            QTRY_COMPARE(rig.requests(stage), 2);
            rig.service->addFault(late);
            pending = store.refresh();
            QTRY_COMPARE(rig.requests(stage), 3);
        }

        const int reloads = rig.widgets.reloads;
        rig.trail.clear();
        store.signOut();
        QVERIFY(!runToEnd(std::move(pending)));
        QCOMPARE(rig.trail, QStringList{u"loggedOut"_s});
        QVERIFY2(!store.connectionName(), "the late answer brought the signed-out account's name back");
        QVERIFY(!store.latest() && store.history().isEmpty() && !store.lastUpdated() && !store.savedEmail());
        QVERIFY(!rig.preference(u"libreLinkUpEmail"_s).isValid() && !rig.snapshots->read());
        QCOMPARE(rig.widgets.reloads, reloads + 1);
        QTRY_VERIFY(!rig.hasPassword());
        QVERIFY(!store.isPolling());
        // Signing out forgets the account, not the unit.
        QCOMPARE(store.unit(), GlucoseUnit::mmolPerL);
        QCOMPARE(rig.preference(u"glucoseUnit"_s).toString(), u"mmol/L"_s);

        const int requests = rig.allRequests();
        rig.pass(5min);
        Rig::quiet();
        QCOMPARE(rig.allRequests(), requests);
        QCOMPARE(rig.trail, QStringList{u"loggedOut"_s});
        QCOMPARE(rig.log().size(), firstCycle.isEmpty() ? 0 : 1);

        // The next account gets its own patient's data.
        QVERIFY(!runToEnd(store.signIn(bob.email, bob.password)));
        QTRY_VERIFY(rig.idle());
        QCOMPARE(show(store.status()), u"active"_s);
        QCOMPARE(store.connectionName(), std::optional(u"Bob"_s));
    }

    // A cycle at 10:02 fails; the next, one pause later, succeeds unless the loop had to end.
    void failedCycle_data()
    {
        QTest::addColumn<QList<Fault>>("faults");
        QTest::addColumn<bool>("removePassword");
        QTest::addColumn<QString>("status");
        QTest::addColumn<bool>("loopEnds");
        QTest::addColumn<int>("logins");
        QTest::addColumn<QStringList>("log");

        const Fault unauthorised = fault(u"graph"_s, Fault::Kind::httpStatus, 401);
        Fault twice = unauthorised;
        twice.count = 2;
        const auto login = [](int status) { return fault(u"login"_s, Fault::Kind::apiStatus, status); };
        const QString attention =
            u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, then try again."_s;
        const QString notSignedIn = u"Not signed in to LibreLinkUp."_s;
        const QString rateLimited =
            u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
        const auto failed = [](const QString &text) -> QString {
            return u"error: Refresh failed: "_s + text;
        };

        QTest::newRow("session renewed")
            << QList{unauthorised} << false << u"active"_s << false << 2 << QStringList{expired};
        QTest::newRow("password changed")
            << QList{unauthorised, login(2)} << false << u"failed: "_s + rejected << true << 1
            << QStringList{expired, failed(rejected)};
        QTest::newRow("terms to accept")
            << QList{unauthorised, login(4)} << false << u"failed: "_s + attention << true << 1
            << QStringList{expired, failed(attention)};
        QTest::newRow("password removed from the keyring")
            << QList{unauthorised} << true << u"loggedOut"_s << true << 0 << QStringList{expired};
        QTest::newRow("rejected after a fresh sign-in")
            << QList{twice} << false << u"failed: "_s + notSignedIn << false << 2
            << QStringList{expired, failed(notSignedIn)};
        QTest::newRow("rate limited")
            << QList{fault(u"graph"_s, Fault::Kind::httpStatus, 429)} << false << u"failed: "_s + rateLimited
            << false << 0 << QStringList{failed(rateLimited)};
    }
    void failedCycle()
    {
        QFETCH(QList<Fault>, faults);
        QFETCH(bool, removePassword);
        QFETCH(QString, status);
        QFETCH(bool, loopEnds);
        QFETCH(int, logins);
        QFETCH(QStringList, log);

        Rig rig;
        QVERIFY(rig.signedIn());
        if (removePassword)
            QVERIFY(!runToEnd(rig.keychain.deletePassword(demo.email)));
        // While the session holds, the keyring is not asked.
        rig.pass(60s);
        QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(60)));
        QTRY_VERIFY(rig.idle());

        for (const Fault &each : faults)
            rig.service->addFault(each);
        const int loginsBefore = rig.requests(u"login"_s);
        rig.pass(60s);
        QTRY_VERIFY(rig.idle() || rig.store->credentialFailure());
        QCOMPARE(show(rig.store->status()), status);
        QCOMPARE(rig.store->credentialFailure(), loopEnds);
        QCOMPARE(rig.requests(u"login"_s) - loginsBefore, logins);
        QCOMPARE(rig.log(), log);
        QCOMPARE(rig.store->savedEmail(), std::optional(demo.email));

        // The usual pause, without back-off.
        const int before = rig.allRequests();
        rig.pass(59s);
        Rig::quiet();
        QCOMPARE(rig.allRequests(), before);
        rig.pass(1s);
        if (loopEnds) {
            Rig::quiet();
            QCOMPARE(rig.allRequests(), before);
            QCOMPARE(rig.clock.pendingSleeps(), 1);
        } else {
            QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(180)));
            QCOMPARE(show(rig.store->status()), u"active"_s);
        }
    }

    // The service gone: each pause brings one failure, and the data stays.
    void serviceGone()
    {
        Rig rig;
        QVERIFY(rig.signedIn());
        const std::optional<GlucoseReading> latest = rig.store->latest();
        rig.service.reset();
        for (int minute = 1; minute <= 2; ++minute) {
            rig.pass(60s);
            QTRY_VERIFY(rig.idle());
        }
        const QString unreachable = u"Could not connect to the server."_s;
        QCOMPARE(rig.log(), QStringList(2, u"error: Refresh failed: "_s + unreachable));
        QCOMPARE(show(rig.store->status()), u"failed: "_s + unreachable);
        QVERIFY(rig.store->latest() == latest);
    }

    // Two hours asleep: at wake one tick, still showing the old reading's age, and one cycle; none to catch
    // up, and no pause but the usual.
    void systemSleep()
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
        QCOMPARE(ageAtTick, QList<qint64>{2 * 3600});
        QCOMPARE(rig.requests(u"graph"_s), 2);
        QCOMPARE(rig.clock.sleepDurations(), QList<std::chrono::milliseconds>(4, 60s));
    }

    void signInWhileLoopRuns()
    {
        Rig rig;
        QVERIFY(rig.signedIn());
        rig.service->addFault(fault(u"graph"_s, Fault::Kind::neverReply));
        rig.pass(60s);
        QTRY_COMPARE(rig.requests(u"graph"_s), 2);

        rig.trail.clear();
        QVERIFY(rig.signedIn());
        QCOMPARE(rig.requests(u"graph"_s), 3); // without waiting for a pause
        rig.pass(60s);
        QTRY_COMPARE(rig.requests(u"graph"_s), 4);
        Rig::quiet();
        QCOMPARE(rig.requests(u"graph"_s), 4); // one loop, not two
        QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"active"_s}));
        QVERIFY(rig.log().isEmpty());
    }

    // Also the same unit again writes the preference and the snapshot and wakes the widgets; a snapshot
    // that cannot be written is said each time, and wakes nothing.
    void publish_data()
    {
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<bool>("containerUnavailable");
        QTest::newRow("same unit") << GlucoseUnit::mgPerDl << false;
        QTest::newRow("other unit") << GlucoseUnit::mmolPerL << false;
        QTest::newRow("container unavailable") << GlucoseUnit::mmolPerL << true;
    }
    void publish()
    {
        QFETCH(GlucoseUnit, unit);
        QFETCH(bool, containerUnavailable);
        Rig rig({}, containerUnavailable ? u"/dev/null"_s : QString());
        QVERIFY(rig.signedIn());
        if (!containerUnavailable)
            rig.snapshots->clear();
        QSignalSpy changed(rig.store.get(), &GlucoseStore::unitChanged);

        rig.store->setUnit(unit);
        QCOMPARE(changed.count(), unit == GlucoseUnit::mmolPerL ? 1 : 0);
        QCOMPARE(rig.preference(u"glucoseUnit"_s).toString(), rawValue(unit));
        const QString failed =
            u"error: Could not publish widget snapshot: The app group container "
            u"K3R8WQ5N2D.com.nordvik.glinta is unavailable. Check the App Groups entitlement."_s;
        QCOMPARE(rig.log(), QStringList(containerUnavailable ? 2 : 0, failed));
        QCOMPARE(rig.widgets.reloads, containerUnavailable ? 0 : 2);
        const std::optional<GlucoseSnapshot> snapshot = rig.snapshots->read();
        QVERIFY(containerUnavailable || (snapshot && snapshot->unit == unit && snapshot->latest));
    }
};

QTEST_GUILESS_MAIN(TestGlucoseStore)
#include "tst_glucosestore.moc"
