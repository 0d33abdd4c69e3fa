// Two thousand refresh cycles against the simulated service, each with a fault picked at random. After
// every cycle the store must show the data of the last good cycle, the status the failure table gives,
// and that cycle's widget snapshot.

#include "CountingReloader.h"
#include "GlucoseSnapshot.h"
#include "GlucoseStore.h"
#include "KeychainStore.h"
#include "LibreLinkUpClient.h"
#include "ManualClock.h"
#include "MemoryKeychain.h"
#include "Preferences.h"
#include "SharedSnapshotStore.h"
#include "SimulatedService.h"
#include "WidgetReloader.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QScopeGuard>
#include <QSettings>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <random>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using glinta::sim::SimulatedService;
using Status = GlucoseStore::Status;

namespace {

// Keeps the store's lines and swallows the rest of the program's chatter, thousands of lines of it.
QStringList storeLines;
QtMessageHandler testHandler = nullptr;
void keepStoreLines(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QByteArrayView category(context.category);
    if (category == "com.nordvik.glinta.GlucoseStore")
        storeLines.append(message);
    else if (!category.startsWith("com.nordvik.glinta.") && testHandler)
        testHandler(type, context, message);
}

Fault fault(const QString &path, Fault::Kind kind, int status = 0)
{
    return {path, kind, status, status, {}, {}, {}, 1, {}}; // answers one request
}

struct Case
{
    const char *name;
    std::optional<Fault> fault;
    bool fails;   // the last good data stays, and `text` (or with `prefix` its start) is the status
    QString text; // for a good cycle, the store's one log line if any
    bool prefix = false;
};

const QString graph = u"graph"_s;
// One of each way a cycle can end in the store.
const QList<Case> cases{
    {"none", std::nullopt, false, {}},
    {"HTTP 500", fault(graph, Fault::Kind::httpStatus, 500), true,
     u"LibreLinkUp request failed (HTTP 500)."_s},
    {"HTTP 401 once", fault(graph, Fault::Kind::httpStatus, 401), false,
     u"Session expired; signing in again"_s},
    {"not JSON", fault(graph, Fault::Kind::notJson), true, u"The response is not valid JSON ("_s, true},
    {"closed mid-body", fault(graph, Fault::Kind::closeMidBody), true,
     u"The connection to the server was lost."_s},
    // The patient is known after the first cycle, so the list is not asked for again.
    {"empty connections", fault(u"connections"_s, Fault::Kind::emptyConnections), false, {}},
};

} // namespace

class TestStoreSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void soak()
    {
        // Thousands of atomic file replacements belong on a tmpfs, where there is one.
        QTemporaryDir shm(u"/dev/shm/tst_storesoak-XXXXXX"_s);
        QTemporaryDir other;
        const QTemporaryDir &directory =
            shm.isValid() && QStorageInfo(shm.path()).fileSystemType() == "tmpfs" ? shm : other;
        const quint32 seed = qEnvironmentVariableIsSet("GLINTA_SOAK_SEED")
                                 ? quint32(qEnvironmentVariableIntValue("GLINTA_SOAK_SEED"))
                                 : 20240115u;
        qInfo("Seed %u (GLINTA_SOAK_SEED=%u repeats this run); snapshot in %s, on %s", seed, seed,
              qPrintable(directory.path()), QStorageInfo(directory.path()).fileSystemType().constData());
        std::mt19937 random(seed);
        std::uniform_int_distribution<qsizetype> pick(0, cases.size() - 1);

        testHandler = qInstallMessageHandler(keepStoreLines);
        const auto restoreHandler = qScopeGuard([] { qInstallMessageHandler(testHandler); });
        const QDateTime start(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
        const sim::SimAccount demo = SimulatedService::demoAccount();
        SimulatedService service;
        service.addAccount(demo);
        QVERIFY(service.start());
        service.setNow(start);
        QNetworkAccessManager network;
        LibreLinkUpClient client(&network, service.endpoints(), 2s);
        MemoryKeychain keychain;
        SharedSnapshotStore snapshots(directory.path());
        Preferences preferences(
            std::make_unique<QSettings>(directory.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        CountingReloader widgets;
        ManualClock clock(ManualClock::Mode::manual, start);
        auto store = std::make_unique<GlucoseStore>(GlucoseStore::Services{
            &client, &keychain, &snapshots, &preferences, &widgets, &clock, BuildInfo{u"1.3.5"_s, u"1"_s}});
        // Lets the loops end before the rest goes, also when a check gives up early.
        const auto windDown = qScopeGuard([&store] {
            store.reset();
            QTest::qWait(20);
        });
        store->start();
        QCoro::waitFor(store->signIn(demo.email, demo.password));
        // The loop's first cycle; its pause never ends, so from here on the cycles are the test's.
        QTRY_VERIFY(store->status() == Status::active() && clock.pendingSleeps() == 2);

        // Read directly: SharedSnapshotStore::read() sets aside 16 MiB per call, which ASan makes slow.
        const auto published = [path = snapshots.fileURL()]() -> std::optional<GlucoseSnapshot> {
            QFile file(path);
            return file.open(QIODevice::ReadOnly) ? std::optional(decodeSnapshot(file.readAll()))
                                                  : std::nullopt;
        };
        std::optional<GlucoseSnapshot> good = published();
        QVERIFY(good);
        int reloads = widgets.reloads;

        int cycle = 0;
        const Case *chosen = nullptr;
        const auto where = qScopeGuard([&] {
            if (chosen && QTest::currentTestFailed())
                qWarning("Cycle %d (%s)", cycle, chosen->name);
        });
        for (cycle = 1; cycle <= 2000; ++cycle) {
            chosen = &cases.at(pick(random));
            service.clearFaults();
            if (chosen->fault)
                service.addFault(*chosen->fault);
            // A new minute on the phone and on the wall, without ending the loop's pause.
            const QDateTime now = start.addSecs(60 * cycle);
            service.setNow(now);
            clock.setNow(now);
            storeLines.clear();

            QCoro::waitFor(store->refresh());
            const Status status = store->status();
            if (chosen->fails) {
                QCOMPARE(status, Status::failed(chosen->prefix ? status.message : chosen->text));
                QVERIFY2(status.message.startsWith(chosen->text), qPrintable(status.message));
                QCOMPARE(storeLines, QStringList{u"Refresh failed: "_s + status.message});
            } else {
                QVERIFY2(status == Status::active(), qPrintable(status.message));
                QVERIFY(store->latest() && store->history().constLast() == *store->latest());
                QCOMPARE(store->latest()->date, now);
                QCOMPARE(store->latest()->mgPerDl, SimulatedService::glucoseAt(now));
                // Twelve hours of quarter-hour points, and the current reading unless it is one of them.
                QCOMPARE(store->history().size(), qsizetype(now.time().minute() % 15 == 0 ? 48 : 49));
                QCOMPARE(storeLines, chosen->text.isEmpty() ? QStringList() : QStringList{chosen->text});
                good = GlucoseSnapshot{
                    store->latest(), store->history(), GlucoseUnit::mgPerDl, u"Ann Lee"_s, 70, 180, now};
                ++reloads;
            }
            QVERIFY(store->latest() == good->latest && store->history() == good->history);
            QCOMPARE(store->lastUpdated(), std::optional(good->updatedAt));
            QVERIFY(!store->credentialFailure());
            QVERIFY(published() == good);
            QCOMPARE(widgets.reloads, reloads);
        }
        chosen = nullptr;
        QCOMPARE(service.requestCount(u"connections"_s), 1);
    }
};

QTEST_GUILESS_MAIN(TestStoreSoak)
#include "tst_storesoak.moc"
