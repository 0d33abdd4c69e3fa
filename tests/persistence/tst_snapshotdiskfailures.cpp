// A full disk and a read-only directory, for real. Root ignores permission bits (and CI runs as root), so
// the test runs this program again inside a private mount namespace, where it mounts a tiny tmpfs over a
// scratch directory, stages one failure, and prints what it saw; the test functions judge that report.
// Where no such namespace can be made, the whole program skips and says why.

#include "GlucoseSnapshot.h"
#include "SharedSnapshotStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/mount.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

constexpr char workerFlag[] = "--in-namespace";

void say(const char *key, const QString &value)
{
    std::printf("%s: %s\n", key, qPrintable(value));
}

template <typename Call> QString outcomeOf(Call call)
{
    try {
        call();
        return u"ok"_s;
    } catch (const Error &error) {
        return error.description();
    }
}

int setupFailed(const char *step)
{
    std::printf("setup failed: %s: %s\n", step, std::strerror(errno));
    return 3;
}

// Runs inside the namespace. Scenarios: "probe" (can the mounts be made at all), "full-disk", "read-only".
int runWorker(const QString &scenario, const QString &scratch)
{
    const char *options = scenario == u"full-disk" ? "size=64k" : "size=1m";
    if (::mount("tmpfs", QFile::encodeName(scratch).constData(), "tmpfs", 0, options) != 0)
        return setupFailed("mount tmpfs");

    const SharedSnapshotStore store(scratch);
    const GlucoseReading reading{QDateTime(QDate(2024, 5, 1), QTime(8, 0), Qt::UTC), 100.25,
                                 TrendArrow::falling, false, false};
    GlucoseSnapshot previous;
    previous.updatedAt = reading.date;
    previous.history.fill(reading, 5);
    GlucoseSnapshot next = previous;
    next.history.fill(reading, 120);
    store.write(previous); // were this to throw, the report would end here
    const QString container = QFileInfo(store.fileURL()).absolutePath();

    QFile filler(scratch + u"/filler"_s);
    if (scenario == u"full-disk") {
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return setupFailed("open filler");
        while (filler.write(QByteArray(4096, 'x')) == 4096) {
        }
    } else {
        const QByteArray target = QFile::encodeName(container);
        if (::mount(target.constData(), target.constData(), nullptr, MS_BIND, nullptr) != 0 ||
            ::mount(nullptr, target.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
            return setupFailed("make container read-only");
    }
    if (scenario == u"probe") {
        say("probe", u"ok"_s);
        return 0;
    }

    say("write", outcomeOf([&] { store.write(next); }));
    if (scenario == u"read-only")
        say("clear", outcomeOf([&] { store.clear(); }));
    say("previous", store.read() == previous ? u"intact"_s : u"damaged"_s);
    say("container",
        QDir(container).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).join(u' '));
    if (scenario == u"full-disk") {
        filler.remove();
        const QString rewritten = outcomeOf([&] { store.write(next); });
        say("after freeing", rewritten + (store.read() == next ? u", read back"_s : u""_s));
    }
    return 0;
}

} // namespace

class TestSnapshotDiskFailures : public QObject
{
    Q_OBJECT

    QStringList m_unshare; // the command that makes a private mount namespace

    // What the worker printed; a crash or a hang shows as a report cut short.
    QString runInNamespace(const QStringList &unshare, const QString &scenario)
    {
        QTemporaryDir scratch;
        QProcess worker;
        worker.setProcessChannelMode(QProcess::MergedChannels);
        worker.start(unshare.first(),
                     unshare.mid(1) + QStringList{QCoreApplication::applicationFilePath(),
                                                  QString::fromLatin1(workerFlag), scenario, scratch.path()});
        if (!worker.waitForFinished(30000))
            worker.kill();
        worker.waitForFinished();
        return QString::fromLocal8Bit(worker.readAll()).trimmed();
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        if (unshare.isEmpty())
            QSKIP("unshare(1) is not installed, so no private mount namespace can stage a full disk");
        // Root can mount in a plain new namespace; anyone else needs a user namespace too.
        QStringList reasons;
        for (const QString &user : {QString(), u"-r"_s}) {
            QStringList attempt{unshare, u"-m"_s, u"--propagation"_s, u"private"_s};
            if (!user.isEmpty())
                attempt.insert(1, user);
            const QString output = runInNamespace(attempt, u"probe"_s);
            if (output.endsWith(u"probe: ok"_s)) {
                m_unshare = attempt;
                return;
            }
            reasons += attempt.join(u' ') + u": "_s + output.section(u'\n', -1);
        }
        QSKIP(qPrintable(u"No private mount namespace with a tmpfs can be made here, so a full disk and a "
                         u"read-only directory cannot be staged ("_s +
                         reasons.join(u"; "_s) + u")"_s));
    }

    void failure_data()
    {
        QTest::addColumn<QString>("scenario");
        QTest::addColumn<QStringList>("report");
        QTest::newRow("full disk")
            << u"full-disk"_s
            << QStringList{

                   u"write: Could not write the widget snapshot: No space left on device."_s,
                   u"previous: intact"_s, u"container: glucose-snapshot.json"_s,
                   u"after freeing: ok, read back"_s};
        QTest::newRow("read-only directory")
            << u"read-only"_s
            << QStringList{u"write: Could not write the widget snapshot: Read-only file system."_s,
                           u"clear: Could not remove the widget snapshot: Read-only file system."_s,
                           u"previous: intact"_s, u"container: glucose-snapshot.json"_s};
    }

    void failure()
    {
        QFETCH(QString, scenario);
        QFETCH(QStringList, report);
        QCOMPARE(runInNamespace(m_unshare, scenario).split(u'\n'), report);
    }
};

int main(int argc, char *argv[])
{
    if (argc == 4 && std::strcmp(argv[1], workerFlag) == 0)
        return runWorker(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    QCoreApplication app(argc, argv);
    TestSnapshotDiskFailures test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_snapshotdiskfailures.moc"
