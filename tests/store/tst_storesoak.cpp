// Two thousand refresh cycles against the simulated service, each with a fault picked at random. After
// every cycle the store must show the data of the last good cycle, the status the failure table gives,
// and the widget snapshot of that good cycle. The snapshot lives on a tmpfs of its own: the program runs
// itself again inside a private mount namespace, as tst_snapshotdiskfailures does; where none can be made
// it soaks against a temporary directory and says so.

#include "GlucoseSnapshot.h"
#include "GlucoseStore.h"
#include "KeychainStore.h"
#include "LibreLinkUpClient.h"
#include "ManualClock.h"
#include "Preferences.h"
#include "SharedSnapshotStore.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "WidgetReloader.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QScopeGuard>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include <sys/mount.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using glinta::sim::SimulatedService;
using Status = GlucoseStore::Status;

namespace {

constexpr char workerFlag[] = "--on-tmpfs";
constexpr int setupFailed = 3;
constexpr char mountedLine[] = "tmpfs mounted";
constexpr int cycles = 2000;
QString tmpfsParent;

QCoro::Task<bool> done(QCoro::Task<void> task)
{
    co_await std::move(task);
    co_return true;
}

bool finish(QCoro::Task<void> task)
{
    return !run(done(std::move(task))).error;
}

// The soak never signs out, so nothing is ever deleted.
class MemoryKeychain : public KeychainStore
{
public:
    QCoro::Task<void> savePassword(QString password, QString account) const override
    {
        m_items.insert(account, password);
        co_return;
    }
    QCoro::Task<std::optional<QString>> readPassword(QString account) const override
    {
        co_return m_items.contains(account) ? std::optional(m_items.value(account)) : std::nullopt;
    }

private:
    mutable QHash<QString, QString> m_items;
};

class CountingReloader : public WidgetReloader
{
public:
    void reloadAllTimelines() override { ++reloads; }
    int reloads = 0;
};

// Keeps the store's lines and swallows the program's own chatter, a few thousand lines of it.
class StoreLog
{
public:
    StoreLog() : m_previous(qInstallMessageHandler(&StoreLog::handle)) { s_current = this; }
    ~StoreLog()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    QStringList lines;

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        const QByteArrayView category(context.category ? context.category : "");
        if (category == "com.nordvik.glinta.GlucoseStore")
            s_current->lines.append(message);
        else if (!category.startsWith("com.nordvik.glinta.") && s_current->m_previous)
            s_current->m_previous(type, context, message);
    }
    static inline StoreLog *s_current = nullptr;
    QtMessageHandler m_previous;
};

enum class Outcome
{
    fresh,   // new data
    renewed, // new data after signing in again
    failed,  // the old data, and the text (or its start) as status
};

struct Case
{
    const char *name;
    std::optional<Fault> fault;
    Outcome outcome;
    QString text;
    bool textIsPrefix = false;
};

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

const QString graph = u"graph"_s;
const QString notJson = u"The response is not valid JSON ("_s;
const QList<Case> cases{
    {"none", std::nullopt, Outcome::fresh, {}},
    {"HTTP 500", fault(graph, Fault::Kind::httpStatus, 500), Outcome::failed,
     u"LibreLinkUp request failed (HTTP 500)."_s},
    {"HTTP 429", fault(graph, Fault::Kind::httpStatus, 429), Outcome::failed,
     u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s},
    {"HTTP 401 once", fault(graph, Fault::Kind::httpStatus, 401), Outcome::renewed, {}},
    {"API status 9", fault(graph, Fault::Kind::apiStatus, 9), Outcome::failed,
     u"LibreLinkUp returned status 9."_s},
    {"not JSON", fault(graph, Fault::Kind::notJson), Outcome::failed, notJson, true},
    {"truncated body", fault(graph, Fault::Kind::truncatedBody), Outcome::failed, notJson, true},
    {"closed mid-body", fault(graph, Fault::Kind::closeMidBody), Outcome::failed,
     u"The connection to the server was lost."_s},
    // The patient is known after the first cycle, so the list is not asked for again.
    {"empty connections", fault(u"connections"_s, Fault::Kind::emptyConnections), Outcome::fresh, {}},
};

void soakAgainst(const QString &snapshotParent)
{
    const quint32 seed = qEnvironmentVariableIsSet("GLINTA_SOAK_SEED")
                             ? quint32(qEnvironmentVariableIntValue("GLINTA_SOAK_SEED"))
                             : 20240115u;
    qInfo("Seed %u (GLINTA_SOAK_SEED=%u repeats this run)", seed, seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<qsizetype> pick(0, cases.size() - 1);

    StoreLog log;
    const QDateTime start(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
    const sim::SimAccount demo = SimulatedService::demoAccount();
    SimulatedService service;
    service.addAccount(demo);
    QVERIFY(service.start());
    service.setNow(start);
    QNetworkAccessManager network;
    LibreLinkUpClient client(&network, service.endpoints(), 2s);
    MemoryKeychain keychain;
    SharedSnapshotStore snapshots(snapshotParent);
    QTemporaryDir settingsDir;
    Preferences preferences(
        std::make_unique<QSettings>(settingsDir.filePath(u"glinta.conf"_s), QSettings::IniFormat));
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
    QVERIFY(finish(store->signIn(demo.email, demo.password)));
    // The loop's first cycle; its pause never ends, so from here on the cycles are the test's.
    QTRY_VERIFY(store->status() == Status::active() && clock.pendingSleeps() == 2);

    std::optional<GlucoseReading> latest = store->latest();
    QList<GlucoseReading> history = store->history();
    // Read directly: SharedSnapshotStore::read() sets aside 16 MiB per call, which ASan makes slow.
    const QString snapshotPath = snapshots.fileURL();
    const auto published = [&snapshotPath]() -> std::optional<GlucoseSnapshot> {
        QFile file(snapshotPath);
        return file.open(QIODevice::ReadOnly) ? std::optional(decodeSnapshot(file.readAll())) : std::nullopt;
    };
    std::optional<GlucoseSnapshot> snapshot = published();
    QVERIFY(snapshot);
    int reloads = widgets.reloads;
    QHash<QString, int> seen;

    for (int cycle = 1; cycle <= cycles; ++cycle) {
        const Case &chosen = cases.at(pick(random));
        ++seen[QLatin1StringView(chosen.name)];
        service.clearFaults();
        if (chosen.fault)
            service.addFault(*chosen.fault);
        // A new minute on the phone and on the wall, without ending the loop's pause.
        const QDateTime now = start.addSecs(60 * cycle);
        service.setNow(now);
        clock.setNow(now);
        const qsizetype linesBefore = log.lines.size();

        const QByteArray where = "cycle " + QByteArray::number(cycle) + " (" + chosen.name + ")";
        QVERIFY2(finish(store->refresh()), where.constData());
        const QStringList lines = log.lines.mid(linesBefore);
        const auto detail = [&where](const QString &text) {
            return QByteArray(where + ": " + text.toUtf8());
        };
        const Status status = store->status();
        if (chosen.outcome == Outcome::failed) {
            QVERIFY2(status.kind == Status::Kind::failed, where.constData());
            QVERIFY2(chosen.textIsPrefix ? status.message.startsWith(chosen.text)
                                         : status.message == chosen.text,
                     detail(status.message).constData());
            QVERIFY2(lines == QStringList{u"Refresh failed: "_s + status.message}, where.constData());
        } else {
            QVERIFY2(status == Status::active(), detail(status.message).constData());
            QVERIFY2(store->latest() && store->latest()->date == now &&
                         store->latest()->mgPerDl == SimulatedService::glucoseAt(now),
                     where.constData());
            // Twelve hours of quarter-hour points, and the current reading unless it is one of them.
            QVERIFY2(store->history().constLast() == *store->latest() &&
                         store->history().size() == (now.time().minute() % 15 == 0 ? 48 : 49),
                     where.constData());
            const QStringList expected = chosen.outcome == Outcome::renewed
                                             ? QStringList{u"Session expired; signing in again"_s}
                                             : QStringList();
            QVERIFY2(lines == expected, detail(lines.join(u" | "_s)).constData());
            latest = store->latest();
            history = store->history();
            snapshot = GlucoseSnapshot{latest, history, GlucoseUnit::mgPerDl, u"Ann Lee"_s, 70, 180, now};
            ++reloads;
        }
        QVERIFY2(store->latest() == latest && store->history() == history, where.constData());
        QVERIFY2(store->lastUpdated() == std::optional(snapshot->updatedAt), where.constData());
        QVERIFY2(!store->credentialFailure(), where.constData());
        QVERIFY2(published() == snapshot, where.constData());
        QVERIFY2(widgets.reloads == reloads, where.constData());
    }

    QCOMPARE(service.requestCount(u"connections"_s), 1);
    QCOMPARE(seen.size(), cases.size());
    QStringList tally;
    for (const Case &each : cases)
        tally.append(QLatin1StringView(each.name) + u' ' +
                     QString::number(seen.value(QLatin1StringView(each.name))));
    qInfo("%d cycles: %s", cycles, qPrintable(tally.join(u", "_s)));
}

} // namespace

class TestStoreSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void soak()
    {
        if (!tmpfsParent.isEmpty()) {
            qInfo("Snapshot on a tmpfs at %s", qPrintable(tmpfsParent));
            soakAgainst(tmpfsParent);
            return;
        }
        QStringList reasons;
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        if (unshare.isEmpty())
            reasons.append(u"unshare(1) is not installed"_s);
        // Root can mount in a plain new namespace; anyone else needs a user namespace too.
        const QList<QStringList> attempts{{u"-m"_s, u"--propagation"_s, u"private"_s},
                                          {u"-r"_s, u"-m"_s, u"--propagation"_s, u"private"_s}};
        for (const QStringList &attempt : unshare.isEmpty() ? QList<QStringList>() : attempts) {
            QTemporaryDir scratch;
            QProcess worker;
            worker.setProcessChannelMode(QProcess::MergedChannels);
            worker.start(unshare,
                         attempt + QStringList{QCoreApplication::applicationFilePath(),
                                               QString::fromLatin1(workerFlag), scratch.path(), u"soak"_s});
            if (!worker.waitForFinished(110'000))
                worker.kill();
            worker.waitForFinished();
            const QString output = QString::fromLocal8Bit(worker.readAll()).trimmed();
            const int exitCode = worker.exitStatus() == QProcess::NormalExit ? worker.exitCode() : -1;
            if (!output.contains(QLatin1StringView(mountedLine))) {
                reasons.append(u"unshare "_s + attempt.join(u' ') + u": "_s + output.section(u'\n', -1));
                continue;
            }
            qInfo().noquote() << output;
            QVERIFY2(exitCode == 0, "the soak inside the mount namespace failed; its report is above");
            return;
        }
        qInfo("No tmpfs could be mounted (%s); the snapshot goes to a temporary directory",
              qPrintable(reasons.join(u"; "_s)));
        QTemporaryDir directory;
        soakAgainst(directory.path());
    }
};

int main(int argc, char *argv[])
{
    if (argc >= 3 && std::strcmp(argv[1], workerFlag) == 0) {
        if (::mount("tmpfs", argv[2], "tmpfs", 0, "size=4m") != 0) {
            std::printf("mount tmpfs: %s\n", std::strerror(errno));
            return setupFailed;
        }
        std::printf("%s\n", mountedLine);
        std::fflush(stdout);
        tmpfsParent = QString::fromLocal8Bit(argv[2]);
        argv[2] = argv[0];
        argv += 2;
        argc -= 2;
    }
    QCoreApplication app(argc, argv);
    TestStoreSoak test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_storesoak.moc"
