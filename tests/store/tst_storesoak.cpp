// Two thousand refresh cycles against the simulated service, each with a fault picked at random. After
// every cycle the store must show the data of the last good cycle, the status the failure table gives,
// and that cycle's widget snapshot.

#include "LiveStore.h"
#include "snapshot/GlucoseSnapshot.h"

#include <QFile>
#include <QScopeGuard>
#include <QStorageInfo>

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
    bool fails;   // the last good data stays, and `text` is the status
    QString text; // for a good cycle, the store's one log line if any
};

const QString graph = u"graph"_s;
// One of each way a cycle can end in the store.
const QList<Case> cases{
    {"none", std::nullopt, false, {}},
    {"HTTP 500", fault(graph, Fault::Kind::httpStatus, 500), true,
     u"LibreLinkUp request failed (HTTP 500)."_s},
    {"HTTP 401 once", fault(graph, Fault::Kind::httpStatus, 401), false,
     u"Session expired; signing in again"_s},
    {"not JSON", fault(graph, Fault::Kind::notJson), true,
     u"The response is not valid JSON (illegal value at byte 1)."_s},
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
        if (QStorageInfo(u"/dev/shm"_s).fileSystemType() == "tmpfs")
            qputenv("TMPDIR", "/dev/shm");
        const quint32 seed = qEnvironmentVariableIsSet("GLINTA_SOAK_SEED")
                                 ? quint32(qEnvironmentVariableIntValue("GLINTA_SOAK_SEED"))
                                 : 20240115u;
        std::mt19937 random(seed);
        std::uniform_int_distribution<qsizetype> pick(0, cases.size() - 1);

        testHandler = qInstallMessageHandler(keepStoreLines);
        const auto restoreHandler = qScopeGuard([] { qInstallMessageHandler(testHandler); });
        LiveStore live;
        qInfo("Seed %u (GLINTA_SOAK_SEED=%u repeats this run); snapshot in %s, on %s", seed, seed,
              qPrintable(live.dir.path()), QStorageInfo(live.dir.path()).fileSystemType().constData());
        SimulatedService &service = live.service;
        ManualClock &clock = live.clock;
        GlucoseStore &store = *live.store;
        const QDateTime start = clock.now();
        QCoro::waitFor(store.signIn(live.account().email, live.account().password));
        // The loop's first cycle; its pause never ends, so from here on the cycles are the test's.
        QTRY_VERIFY(store.status() == Status::active() && clock.pendingSleeps() == 2);

        // Read directly: SharedSnapshotStore::read() sets aside 16 MiB per call, which ASan makes slow.
        const auto published = [path = live.snapshots->fileURL()]() -> std::optional<GlucoseSnapshot> {
            QFile file(path);
            return file.open(QIODevice::ReadOnly) ? std::optional(decodeSnapshot(file.readAll()))
                                                  : std::nullopt;
        };
        std::optional<GlucoseSnapshot> good = published();
        QVERIFY(good);
        int reloads = live.widgets.reloads;

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

            QCoro::waitFor(store.refresh());
            const Status status = store.status();
            if (chosen->fails) {
                QCOMPARE(status, Status::failed(chosen->text));
                QCOMPARE(storeLines, QStringList{u"Refresh failed: "_s + chosen->text});
            } else {
                QVERIFY2(status == Status::active(), qPrintable(status.message));
                QVERIFY(store.latest() && store.history().constLast() == *store.latest());
                QCOMPARE(store.latest()->date, now);
                QCOMPARE(store.latest()->mgPerDl, SimulatedService::glucoseAt(now));
                // Twelve hours of quarter-hour points, and the current reading unless it is one of them.
                QCOMPARE(store.history().size(), qsizetype(now.time().minute() % 15 == 0 ? 48 : 49));
                QCOMPARE(storeLines, chosen->text.isEmpty() ? QStringList() : QStringList{chosen->text});
                good = GlucoseSnapshot{store.latest(), store.history(), GlucoseUnit::mgPerDl,
                                       u"Ann Lee"_s,   {70, 180},       now,
                                       std::nullopt};
                ++reloads;
            }
            QVERIFY(store.latest() == good->latest && store.history() == good->history);
            QCOMPARE(store.lastUpdated(), std::optional(good->updatedAt));
            QVERIFY(!store.credentialFailure());
            QVERIFY(published() == good);
            QCOMPARE(live.widgets.reloads, reloads);
        }
        chosen = nullptr;
        QCOMPARE(service.requestCount(u"connections"_s), 1);
    }
};

QTEST_GUILESS_MAIN(TestStoreSoak)
#include "tst_storesoak.moc"
