#include "LiveStore.h"
#include "LogCapture.h"
#include "TaskOutcome.h"
#include "TestSupport.h"
#include "snapshot/GlucoseSnapshot.h"

#include <QSignalSpy>

#include <tuple>

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
const QString failedRefresh = u"critical: Refresh failed: "_s;
const QString limitedUntil = u"failed: LibreLinkUp is rate-limiting requests. This usually clears up within "
                             u"a few minutes. Next try at %1."_s;

constexpr auto show = &LiveStore::show;

Fault fault(const QString &path, Fault::Kind kind, int status = 0)
{
    return {path, kind, status, status, {}, {}, {}, 1, {}}; // answers one request
}

// Over a simulated service keeping pace with the store's clock; the log first, to hear the store start.
struct Rig : LogCapture, LiveStore
{
    explicit Rig(const QString &savedEmail = {}, const QString &appVersion = {},
                 const QString &snapshotParent = {})
        : LiveStore(savedEmail, appVersion, snapshotParent)
    {
        service.addAccount(bob);
    }

    void pass(std::chrono::seconds time)
    {
        clock.advance(time);
        service.advance(time);
    }
    // No request reaches the service in a while, long enough for a cycle that should not run to show.
    bool silent() const
    {
        const auto all = [this] {
            return requests(u"login"_s) + requests(u"connections"_s) + requests(u"graph"_s);
        };
        const int before = all();
        return !QTest::qWaitFor([&] { return all() != before; }, 150);
    }
    // The tick and the poll loop both in their pause.
    bool idle() const { return clock.pendingSleeps() == 2; }
    bool signedIn()
    {
        return !runToEnd(store->signIn(demo.email, demo.password)) &&
               QTest::qWaitFor([this] { return store->status() == Status::active() && idle(); });
    }
    int requests(const QString &path) const { return service.requestCount(path); }
    QStringList log() const { return lines(u"GlucoseStore"_s); }
    bool hasPassword()
    {
        return run(keychain.readPassword(demo.email)).value.value_or(std::nullopt).has_value();
    }
    QVariant preference(const QString &key) const
    {
        return QSettings(settingsPath(), QSettings::IniFormat).value(key);
    }
};

// A preferences file of a test's own, opened afresh as a restart would open it.
struct SettingsFile
{
    QTemporaryDir dir;
    QString path = dir.filePath(u"glinta.conf"_s);
    std::unique_ptr<Preferences> open() const
    {
        return std::make_unique<Preferences>(std::make_unique<QSettings>(path, QSettings::IniFormat));
    }
    void seed(const QString &key, const QVariant &value) const
    {
        QSettings(path, QSettings::IniFormat).setValue(key, value);
    }
};

} // namespace

class TestGlucoseStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signIn_data()
    {
        // saved: an e-mail a past session left, without its password
        columns<QString, QString, QString>("saved", "password", "failure");
        const QString old = u"old@example.com"_s;
        QTest::newRow("accepted, nothing saved") << QString() << demo.password << QString();
        QTest::newRow("wrong password, e-mail saved") << old << u"Correct horse"_s << rejected;
        QTest::newRow("keyring locked, e-mail saved")
            << old << demo.password << u"Keychain error: The keyring is locked."_s;
    }
    void signIn()
    {
        const auto [saved, password, failure] =
            fetch<QString, QString, QString>("saved", "password", "failure");
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
        QVERIFY(!runToEnd(rig.store->refresh()) && rig.store->credentialFailure());
        QCOMPARE(rig.service.connectionCount(), 0);
        QVERIFY(rig.log().isEmpty());

        rig.trail.clear();
        rig.keychain.locked = failure.startsWith(u"Keychain");
        QVERIFY(!runToEnd(rig.store->signIn(demo.email, password)));
        QTRY_COMPARE(rig.trail, (QStringList{u"connecting"_s, ok ? u"active"_s : u"failed: "_s + failure}));
        QTRY_COMPARE(rig.clock.pendingSleeps(), ok ? 2 : 1); // no loop after a failure
        QCOMPARE(rig.log(), ok ? QStringList() : QStringList{u"critical: Login failed: "_s + failure});
        QCOMPARE(rig.store->savedEmail(), std::optional(ok ? demo.email : saved));
        QCOMPARE(rig.preference(u"libreLinkUpEmail"_s).toString(), ok ? demo.email : saved);
        QCOMPARE(rig.hasPassword(), ok);
        QCOMPARE(rig.store->credentialFailure(), !ok);
        QCOMPARE(rig.requests(u"graph"_s), ok ? 1 : 0);
        // Also when the keyring fails: the session is the new account's, the old one's person forgotten.
        QCOMPARE(rig.widgets.reloads, ok || (!saved.isEmpty() && password == demo.password) ? 1 : 0);
        // The sign-in's session serves the first cycle; the region redirect costs a second login request.
        if (ok)
            QCOMPARE(rig.requests(u"login"_s), 2);
    }

    // Signing out while the sign-in's login or keyring hangs, or a patient list asked for by the loop and,
    // answering late, by Refresh: nothing of the account may come back, nor any loop run on.
    void signOut_data()
    {
        QTest::addColumn<QString>("stage");
        QTest::newRow("login") << u"login"_s;
        QTest::newRow("keyring saving") << u"keyring"_s;
        QTest::newRow("connections") << u"connections"_s;
    }
    void signOut()
    {
        QFETCH(QString, stage);
        const bool cycling = stage == u"connections";
        Rig rig;
        GlucoseStore &store = *rig.store;
        store.setUnit(GlucoseUnit::mmolPerL);
        Fault late = fault(stage, Fault::Kind::delay);
        late.delay = 300ms;
        QCoro::Task<void> pending;
        if (stage == u"keyring") {
            rig.keychain.saveDelay = 300ms;
            pending = store.signIn(demo.email, demo.password);
            QTRY_VERIFY(rig.keychain.saving);
        } else if (!cycling) {
            rig.service.addFault(late);
            pending = store.signIn(demo.email, demo.password);
            QTRY_COMPARE(rig.requests(stage), 1);
        } else {
            // An empty list keeps the patient unknown, so every cycle asks for the list again.
            rig.service.addFault(fault(stage, Fault::Kind::emptyConnections));
            QVERIFY(!runToEnd(store.signIn(demo.email, demo.password)));
            QTRY_VERIFY(rig.idle());
            QCOMPARE(rig.log(), QStringList{failedRefresh +
                                            u"No one is sharing data with this LibreLinkUp account. In the "
                                            u"LibreLink app choose Share, connect LibreLinkUp, then accept "
                                            u"the invitation in the LibreLinkUp app."_s});
            rig.service.addFault(late);
            rig.pass(60s);
            QTRY_COMPARE(rig.requests(stage), 2);
            // Its request waits for its turn behind the loop's.
            pending = store.refresh();
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

        rig.pass(5min);
        QVERIFY(rig.silent());
        QCOMPARE(rig.trail, QStringList{u"loggedOut"_s});
        QCOMPARE(rig.log().size(), cycling ? 1 : 0);

        // The next account gets its own patient's data.
        QVERIFY(!runToEnd(store.signIn(bob.email, bob.password)));
        QTRY_VERIFY(rig.idle());
        QCOMPARE(show(store.status()), u"active"_s);
        QCOMPARE(store.connectionName(), std::optional(u"Bob"_s));
    }

    // A cycle at 10:02 fails, keeping the 10:01 data and snapshot; the next succeeds unless the loop ended.
    void failedCycle_data()
    {
        columns<QList<Fault>, QString, bool, int, QStringList>("faults", "status", "loopEnds", "logins",
                                                               "log");

        const Fault unauthorised = fault(u"graph"_s, Fault::Kind::httpStatus, 401);
        Fault twice = unauthorised;
        twice.count = 2;
        const auto login = [](int status) { return fault(u"login"_s, Fault::Kind::apiStatus, status); };
        const QString attention =
            u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, then try again."_s;
        const QString notSignedIn = u"Not signed in to LibreLinkUp."_s;
        const auto failed = [](const QString &text) { return failedRefresh + text; };

        QTest::newRow("session renewed")
            << QList{unauthorised} << u"active"_s << false << 2 << QStringList{expired};
        QTest::newRow("password changed") << QList{unauthorised, login(2)} << u"failed: "_s + rejected << true
                                          << 1 << QStringList{expired, failed(rejected)};
        QTest::newRow("terms to accept") << QList{unauthorised, login(4)} << u"failed: "_s + attention << true
                                         << 1 << QStringList{expired, failed(attention)};
        QTest::newRow("password removed from the keyring")
            << QList{unauthorised} << u"loggedOut"_s << true << 0 << QStringList{expired};
        QTest::newRow("rejected after a fresh sign-in")
            << QList{twice} << u"failed: "_s + notSignedIn << false << 2
            << QStringList{expired, failed(notSignedIn)};
        // A client error, a decoding error and a transport error, each a class of its own.
        const QString http500 = u"LibreLinkUp request failed (HTTP 500)."_s;
        QTest::newRow("server error")
            << QList{fault(u"graph"_s, Fault::Kind::httpStatus, 500)} << u"failed: "_s + http500 << false << 0
            << QStringList{failed(http500)};
        const QString notJson = u"The response is not valid JSON (illegal value at byte 1)."_s;
        QTest::newRow("not JSON") << QList{fault(u"graph"_s, Fault::Kind::notJson)} << u"failed: "_s + notJson
                                  << false << 0 << QStringList{failed(notJson)};
        const QString lost = u"The connection to the server was lost."_s;
        QTest::newRow("connection lost") << QList{fault(u"graph"_s, Fault::Kind::closeMidBody)}
                                         << u"failed: "_s + lost << false << 0 << QStringList{failed(lost)};
    }
    void failedCycle()
    {
        const auto [faults, status, loopEnds] =
            fetch<QList<Fault>, QString, bool>("faults", "status", "loopEnds");

        Rig rig;
        QVERIFY(rig.signedIn());
        if (status == u"loggedOut") // the password gone from the keyring
            QVERIFY(!runToEnd(rig.keychain.deletePassword(demo.email)));
        // While the session holds, the keyring is not asked.
        rig.pass(60s);
        QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(60)));
        QTRY_VERIFY(rig.idle());
        const int reloads = rig.widgets.reloads;

        for (const Fault &each : faults)
            rig.service.addFault(each);
        const int loginsBefore = rig.requests(u"login"_s);
        rig.pass(60s);
        QTRY_VERIFY(rig.idle() || rig.store->credentialFailure());
        QCOMPARE(show(rig.store->status()), status);
        QCOMPARE(rig.store->credentialFailure(), loopEnds);
        QTEST(rig.requests(u"login"_s) - loginsBefore, "logins");
        QTEST(rig.log(), "log");
        QCOMPARE(rig.store->savedEmail(), std::optional(demo.email));
        const bool renewed = status == u"active"_s;
        QCOMPARE(rig.store->latest()->date, start.addSecs(renewed ? 120 : 60));
        QCOMPARE(rig.widgets.reloads, reloads + (renewed ? 1 : 0));
        QCOMPARE(rig.snapshots->read()->updatedAt, *rig.store->lastUpdated());
        QCOMPARE(rig.requests(u"connections"_s), 1); // the patient is remembered through it all

        // The usual pause, without back-off.
        rig.pass(59s);
        QVERIFY(rig.silent());
        rig.pass(1s);
        if (loopEnds) {
            QVERIFY(rig.silent());
            QCOMPARE(rig.clock.pendingSleeps(), 1); // the tick's alone
        } else {
            QTRY_COMPARE(rig.store->lastUpdated(), std::optional(start.addSecs(180)));
        }
        QCOMPARE(show(rig.store->status()), loopEnds ? status : u"active"_s);
    }

    // Signing in while a cycle waits starts a cycle at once and ends the old loop. Two hours asleep: at wake
    // one tick, still showing the old reading's age, and one cycle; none to catch up, no unusual pause.
    void signInAgainThenSleep()
    {
        Rig rig;
        QVERIFY(rig.signedIn());
        Fault late = fault(u"graph"_s, Fault::Kind::delay);
        late.delay = 300ms;
        rig.service.addFault(late);
        rig.pass(60s);
        QTRY_COMPARE(rig.requests(u"graph"_s), 2);
        rig.trail.clear();
        QVERIFY(rig.signedIn());
        QCOMPARE(rig.requests(u"graph"_s), 3);       // without waiting for a pause
        QCOMPARE(rig.requests(u"connections"_s), 1); // the same account keeps its person
        QCOMPARE(rig.trail, (QStringList{u"connecting"_s, u"active"_s}));
        const GlucoseStore &store = *rig.store;
        QSignalSpy landed(&store, &GlucoseStore::lastUpdatedChanged);
        QVERIFY2(!landed.wait(400), "the old cycle's late answer landed");

        QList<qint64> ageAtTick;
        connect(&store, &GlucoseStore::nowChanged, this,
                [&] { ageAtTick.append(store.latest()->date.secsTo(store.now())); });
        rig.pass(2h);
        QTRY_COMPARE(store.latest()->date, start.addSecs(60 + 2 * 3600));
        QTRY_VERIFY(rig.idle());
        QCOMPARE(ageAtTick, QList<qint64>{2 * 3600});
        QCOMPARE(rig.requests(u"graph"_s), 4); // one loop, not two
        const QList<std::chrono::milliseconds> pauses = rig.clock.sleepDurations();
        QCOMPARE(pauses.count(60s), pauses.size());
        QVERIFY(rig.log().isEmpty());

        // Another account's sign-in forgets whom the last one followed (its graph path is not the new one's).
        QVERIFY(!runToEnd(rig.store->signIn(bob.email, bob.password)));
        QTRY_VERIFY(rig.idle());
        QCOMPARE(show(store.status()), u"active"_s);
        QCOMPARE(store.connectionName(), std::optional(u"Bob"_s));
        QCOMPARE(rig.snapshots->read()->connectionName, std::optional(u"Bob"_s));
        QCOMPARE(rig.requests(u"connections"_s), 2);
    }

    // Told "too many requests", the loop waits as asked, or 2, 4, 8, then 15 minutes; a good answer puts it
    // back on its minute. Refresh still asks meanwhile, and its answer sets the loop's next try from then.
    void rateLimited_data()
    {
        // retryAfter: empty for none; limits: answers in a row; refresh: half a minute after the first;
        // waits: seconds before each next request of the loop.
        columns<QByteArray, int, bool, QList<int>>("retryAfter", "limits", "refresh", "waits");

        QTest::newRow("steps") << QByteArray() << 5 << false << QList{120, 240, 480, 900, 900, 60};
        QTest::newRow("delay seconds") << "300"_ba << 1 << false << QList{300, 60};
        QTest::newRow("HTTP date") << "Mon, 15 Jan 2024 10:11:00 GMT"_ba << 1 << false << QList{600, 60};
        QTest::newRow("capped") << "86400"_ba << 1 << false << QList{1800, 60};
        QTest::newRow("no faster than usual") << "5"_ba << 1 << false << QList{60, 60};
        QTest::newRow("unreadable") << "soon"_ba << 1 << false << QList{120, 60};
        QTest::newRow("Refresh answered") << QByteArray() << 1 << true << QList{60, 60};
        QTest::newRow("Refresh limited again") << QByteArray() << 2 << true << QList{240, 60};
    }
    void rateLimited()
    {
        const auto [retryAfter, limits, refresh, waits] =
            fetch<QByteArray, int, bool, QList<int>>("retryAfter", "limits", "refresh", "waits");

        Rig rig;
        QVERIFY(rig.signedIn());
        Fault limit = fault(u"graph"_s, Fault::Kind::rateLimit, 429);
        limit.count = limits;
        limit.retryAfter = retryAfter;
        rig.service.addFault(limit);
        rig.pass(60s);
        QTRY_COMPARE(rig.requests(u"graph"_s), 2);
        QTRY_VERIFY(rig.idle());
        if (refresh) {
            rig.pass(30s);
            QVERIFY(!runToEnd(rig.store->refresh()));
            QTRY_VERIFY(rig.idle());
        }
        // The panel's failure line says when (the test runs in UTC).
        QCOMPARE(show(rig.store->status()),
                 limits == 1 && refresh
                     ? u"active"_s
                     : limitedUntil.arg(rig.clock.now().addSecs(waits.first()).toString(u"HH:mm"_s)));

        for (const int wait : std::as_const(waits)) {
            const int before = rig.requests(u"graph"_s);
            rig.pass(std::chrono::seconds(wait - 1));
            QVERIFY(rig.silent());
            rig.pass(1s);
            QTRY_COMPARE(rig.requests(u"graph"_s), before + 1);
            QTRY_VERIFY(rig.idle());
        }
        QCOMPARE(show(rig.store->status()), u"active"_s);
    }

    // A login refused for its rate is not asked again before its wait is over, whoever asks.
    // The chosen person is followed at once and after a relaunch; one no longer listed gives way to the
    // first, and a sign-out forgets the choice.
    void followsTheChosenPerson()
    {
        Rig rig;
        rig.preferences->setFollowedPatientId(u"p-gone"_s);
        QVERIFY(rig.signedIn());
        GlucoseStore *store = rig.store.get();
        QCOMPARE(store->connectionName(), u"Ann Lee"_s);
        QVERIFY(store->choiceMissing());
        QCOMPARE(store->people().size(), 2);
        QVERIFY(store->people()[0].hasCurrentReading);

        store->choosePerson(u"p-0002"_s);
        QCOMPARE(store->connectionName(), u"Max Lee"_s);
        QVERIFY(!store->latest() && !store->choiceMissing());
        QCOMPARE(rig.snapshots->read()->connectionName, u"Max Lee"_s);
        // The graph names its person: Ann's would have brought her name back.
        QTRY_VERIFY(store->latest().has_value());
        QCOMPARE(store->connectionName(), u"Max Lee"_s);

        const int graphs = rig.requests(u"graph"_s);
        rig.restart();
        QTRY_VERIFY(rig.requests(u"graph"_s) > graphs && rig.idle() && rig.store->latest());
        QCOMPARE(rig.store->connectionName(), u"Max Lee"_s);

        // Listed again later, when a reading is no longer current.
        rig.clock.setNow(rig.clock.now().addSecs(20 * 60));
        QVERIFY(!runToEnd(rig.store->loadPeople()));
        QVERIFY(!rig.store->people()[1].hasCurrentReading);

        rig.store->signOut();
        QVERIFY(!rig.preference(u"followedPatientId"_s).isValid() && rig.store->people().isEmpty());
    }

    void loginHeldBack()
    {
        Rig rig;
        QVERIFY(rig.signedIn());
        rig.service.addFault(fault(u"graph"_s, Fault::Kind::httpStatus, 401));
        rig.service.addFault(fault(u"login"_s, Fault::Kind::rateLimit, 429));
        rig.pass(60s);
        QTRY_COMPARE(rig.requests(u"login"_s), 3);
        QTRY_VERIFY(rig.idle());
        const QString held = limitedUntil.arg(u"10:03"_s);
        QCOMPARE(show(rig.store->status()), held);

        QVERIFY(!runToEnd(rig.store->refresh()));
        rig.trail.clear();
        QVERIFY(!runToEnd(rig.store->signIn(demo.email, demo.password)));
        QCOMPARE(rig.trail, (QStringList{u"connecting"_s, held}));
        QCOMPARE(rig.requests(u"login"_s), 3);

        rig.pass(120s);
        QTRY_COMPARE(show(rig.store->status()), u"active"_s);
        QCOMPARE(rig.requests(u"login"_s), 5); // with the region redirect
    }

    // The service raising the app version it accepts is ridden through: the version asked for is sent from
    // then on and remembered. Refused again, or with no version named, it is an ordinary failure.
    void appVersion_data()
    {
        columns<Fault, QString>("refusal", "status");

        Fault graph = fault(u"graph"_s, Fault::Kind::minimumVersion);
        graph.count = -1; // until the version is sent
        graph.version = u"4.17.0"_s;
        Fault login = graph;
        login.path = u"login"_s;
        Fault again = fault(u"graph"_s, Fault::Kind::rawBody);
        again.count = 2;
        again.body = R"({"status":920,"data":{"minimumVersion":"4.17.0"}})";
        Fault none = fault(u"graph"_s, Fault::Kind::minimumVersion);
        none.omitVersion = true;

        QTest::newRow("graph") << graph << u"active"_s;
        QTest::newRow("login") << login << u"active"_s;
        QTest::newRow("refused again")
            << again
            << u"failed: LibreLinkUp asks for app version 4.17.0 or newer. Glinta tried it, but the service "
               u"still refuses; an update of Glinta may be needed."_s;
        QTest::newRow("no version named")
            << none
            << u"failed: LibreLinkUp no longer accepts the app version Glinta sends (4.16.0); an update of "
               u"Glinta may be needed."_s;
    }
    void appVersion()
    {
        const auto [refusal, status] = fetch<Fault, QString>("refusal", "status");

        Rig rig;
        rig.service.addFault(refusal);
        QVERIFY(!runToEnd(rig.store->signIn(demo.email, demo.password)));
        QTRY_VERIFY(rig.idle());
        QCOMPARE(show(rig.store->status()), status);
        QVERIFY(!rig.store->credentialFailure());
        const bool named = !refusal.omitVersion;
        const QPair<QByteArray, QByteArray> sent{"version", named ? "4.17.0" : "4.16.0"};
        QVERIFY(rig.service.lastHeaders(refusal.path).contains(sent));
        QCOMPARE(rig.preference(u"serviceAppVersion"_s).toString(), named ? u"4.17.0"_s : QString());

        // A restart keeps sending it; a build that knows a newer version, or an unreadable one, forgets it.
        for (const QString &remembered : {u"4.17.0"_s, u"4.9.9"_s, u"4.17\n"_s}) {
            Rig restarted(demo.email, remembered);
            const bool kept = remembered == u"4.17.0";
            QCOMPARE(restarted.client->appVersion().toString(), kept ? remembered : u"4.16.0"_s);
            QCOMPARE(restarted.preference(u"serviceAppVersion"_s).isValid(), kept);
        }
    }

    // Also the same unit again writes the preference and the snapshot and wakes the widgets; a snapshot
    // that cannot be written is said each time, and wakes nothing.
    void publish_data()
    {
        columns<GlucoseUnit, bool>("unit", "containerUnavailable");
        QTest::newRow("same unit") << GlucoseUnit::mgPerDl << false;
        QTest::newRow("other unit") << GlucoseUnit::mmolPerL << false;
        QTest::newRow("container unavailable") << GlucoseUnit::mmolPerL << true;
    }
    void publish()
    {
        const auto [unit, containerUnavailable] = fetch<GlucoseUnit, bool>("unit", "containerUnavailable");
        Rig rig({}, {}, containerUnavailable ? u"/dev/null"_s : QString());
        QVERIFY(rig.signedIn());
        if (!containerUnavailable)
            rig.snapshots->clear();
        QSignalSpy changed(rig.store.get(), &GlucoseStore::unitChanged);

        rig.store->setUnit(unit);
        QCOMPARE(changed.count(), unit == GlucoseUnit::mmolPerL ? 1 : 0);
        QCOMPARE(rig.preference(u"glucoseUnit"_s).toString(), rawValue(unit));
        const QString failed =
            u"critical: Could not publish widget snapshot: The app group container "
            u"K3R8WQ5N2D.com.nordvik.glinta is unavailable. Check the App Groups entitlement."_s;
        QCOMPARE(rig.log(), QStringList(containerUnavailable ? 2 : 0, failed));
        QCOMPARE(rig.widgets.reloads, containerUnavailable ? 0 : 2);
        const std::optional<GlucoseSnapshot> snapshot = rig.snapshots->read();
        QVERIFY(containerUnavailable || (snapshot && snapshot->unit == unit && snapshot->latest));

        // The range and the alert reach the widget the same way; the range is kept.
        rig.store->setTargetRange({80, 250});
        rig.store->setActiveAlert(AlertKind::high);
        QCOMPARE(rig.widgets.reloads, containerUnavailable ? 0 : 4);
        if (!containerUnavailable) {
            QCOMPARE(rig.snapshots->read()->targets, (TargetRange{80, 250}));
            QCOMPARE(rig.snapshots->read()->alert, AlertKind::high);
        }
        QCOMPARE(rig.preference(u"targetHighMgPerDl"_s).toString(), u"250"_s);
    }

    // A hand-edited range that is unreadable or not pickable reads as the default; only the exact raw value
    // reads as mmol/L. Alert switches survive a restart; the signed-out alert cannot be turned off.
    void preferencesReadBack()
    {
        const SettingsFile file;
        file.seed(u"glucoseUnit"_s, u"mmol/L"_s);
        QCOMPARE(file.open()->glucoseUnit(), GlucoseUnit::mmolPerL);
        file.seed(u"glucoseUnit"_s, u"mmol/l"_s);
        QCOMPARE(file.open()->glucoseUnit(), GlucoseUnit::mgPerDl);
        const QList<std::tuple<const char *, const char *, TargetRange>> rows{
            {"80", "250.5", {80, 250.5}}, {"eighty", "250", {}}, {"115", "120", {}}, {"nan", "250", {}}};
        for (const auto &[low, high, read] : rows) {
            file.seed(u"targetLowMgPerDl"_s, QString::fromLatin1(low));
            file.seed(u"targetHighMgPerDl"_s, QString::fromLatin1(high));
            QCOMPARE(file.open()->targetRange(), read);
        }

        const auto preferences = file.open();
        QVERIFY(!preferences->alertSettings().isEnabled(AlertKind::risingFast));
        preferences->setAlertEnabled(AlertKind::risingFast, true);
        preferences->setAlertEnabled(AlertKind::urgentLow, false);
        preferences->setAlertEnabled(AlertKind::signedOut, false);
        preferences->setAlertSound(false);
        const AlertSettings settings = file.open()->alertSettings();
        QVERIFY(settings.isEnabled(AlertKind::risingFast) && !settings.isEnabled(AlertKind::urgentLow));
        QVERIFY(settings.isEnabled(AlertKind::low) && settings.isEnabled(AlertKind::signedOut));
        QVERIFY(!file.open()->alertSound());
    }

    // At launch a new build reloads the widgets, and running the version a badge waited for clears it.
    void launch_data()
    {
        // stored: the last launch's build, null if none; version: running, with a badge for 1.3.5 up.
        columns<QString, QString, QString, int, bool>("stored", "version", "build", "reloads", "badgeKept");
        QTest::newRow("first launch") << QString() << u"1.3.4"_s << u"42"_s << 1 << true;
        QTest::newRow("same build") << u"42"_s << u"1.3.4"_s << u"42"_s << 0 << true;
        QTest::newRow("update installed") << u"42"_s << u"1.3.5"_s << u"43"_s << 1 << false;
        QTest::newRow("no running version") << u"42"_s << QString() << u"42"_s << 0 << true;
    }

    void launch()
    {
        const auto [stored, version, build] = fetch<QString, QString, QString>("stored", "version", "build");
        const SettingsFile file;
        if (!stored.isNull())
            file.seed(u"lastLaunchedBuild"_s, stored);
        file.seed(u"availableUpdateVersion"_s, u"1.3.5"_s);
        CountingReloader widgets;
        const auto preferences = file.open();
        preferences->checkBuildChange({version, build}, widgets);
        preferences->clearInstalledUpdateBadge({version, build});
        QCOMPARE(preferences->lastLaunchedBuild(), build);
        QTEST(preferences->availableUpdateVersion().has_value(), "badgeKept");
        QTEST(widgets.reloads, "reloads");
    }
};

QTEST_GUILESS_MAIN(TestGlucoseStore)
#include "tst_glucosestore.moc"
