// A full disk and a read-only directory, for real. Root ignores permission bits (and CI runs as root), so
// the test runs this program again inside a private mount namespace, where it mounts a tiny tmpfs over a
// scratch directory, stages one failure, and prints what it saw; the test functions judge that report.
// Where no such namespace can be made, the whole program skips and says why.

#include "DecodingError.h"
#include "GlucoseSnapshot.h"
#include "SharedSnapshotStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
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

GlucoseSnapshot sample(int count, int version)
{
    GlucoseSnapshot snapshot;
    const QDateTime start(QDate(2024, 5, 1), QTime(8, 0), Qt::UTC);
    for (int i = 0; i < count; ++i)
        snapshot.history.append(
            GlucoseReading{start.addSecs(60 * i), 100.25 + i, TrendArrow::falling, false, false});
    snapshot.updatedAt = start.addSecs(version);
    return snapshot;
}

void say(const char *key, const QString &value)
{
    std::printf("%s: %s\n", key, qPrintable(value));
}

template <typename Call> QString outcomeOf(Call call)
{
    try {
        call();
        return u"ok"_s;
    } catch (const SharedSnapshotStore::FileError &error) {
        return u"FileError: "_s + error.description();
    } catch (const Error &error) {
        return u"other error: "_s + error.description();
    }
}

bool holds(const QString &path, const GlucoseSnapshot &expected)
{
    QFile file(path);
    try {
        return file.open(QIODevice::ReadOnly) && decodeSnapshot(file.readAll()) == expected;
    } catch (const DecodingError &) {
        return false;
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
    const QByteArray mountPoint = QFile::encodeName(scratch);
    const char *options = scenario == u"full-disk" ? "size=64k" : "size=1m";
    if (::mount("tmpfs", mountPoint.constData(), "tmpfs", 0, options) != 0)
        return setupFailed("mount tmpfs");

    const SharedSnapshotStore store(scratch);
    const GlucoseSnapshot previous = sample(5, 1);
    const GlucoseSnapshot next = sample(120, 2);
    if (const QString written = outcomeOf([&] { store.write(previous); }); written != u"ok") {
        say("setup failed: first write", written);
        return 3;
    }
    const QString path = store.fileURL();
    const QByteArray container = QFile::encodeName(QFileInfo(path).absolutePath());

    QFile filler(scratch + u"/filler"_s);
    if (scenario == u"full-disk") {
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return setupFailed("open filler");
        const QByteArray block(4096, 'x');
        while (filler.write(block) == block.size()) {
        }
        say("filler", filler.errorString());
    } else {
        if (::mount(container.constData(), container.constData(), nullptr, MS_BIND, nullptr) != 0)
            return setupFailed("bind container");
        if (::mount(nullptr, container.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
            return setupFailed("make container read-only");
    }
    if (scenario == u"probe") {
        say("probe", u"ok"_s);
        return 0;
    }

    say("write", outcomeOf([&] { store.write(next); }));
    if (scenario == u"read-only")
        say("clear", outcomeOf([&] { store.clear(); }));
    say("previous", holds(path, previous) ? u"intact"_s : u"damaged"_s);
    say("container", QDir(QString::fromLocal8Bit(container))
                         .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)
                         .join(u' '));
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

private:
    QString m_unshare;
    QStringList m_unshareArguments;

    struct Run
    {
        int exitCode = -1;
        QString output;
    };

    Run runInNamespace(const QStringList &unshareArguments, const QString &scenario)
    {
        QTemporaryDir scratch;
        QProcess worker;
        worker.setProcessChannelMode(QProcess::MergedChannels);
        worker.start(m_unshare, unshareArguments + QStringList{QCoreApplication::applicationFilePath(),
                                                               QString::fromLatin1(workerFlag), scenario,
                                                               scratch.path()});
        if (!worker.waitForFinished(30000))
            worker.kill();
        worker.waitForFinished();
        return {worker.exitStatus() == QProcess::NormalExit ? worker.exitCode() : -1,
                QString::fromLocal8Bit(worker.readAll()).trimmed()};
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        if (unshare.isEmpty())
            QSKIP("unshare(1) is not installed, so no private mount namespace can stage a full disk");
        m_unshare = unshare;
        // Root can mount in a plain new namespace; anyone else needs a user namespace too.
        const QList<QStringList> attempts{{u"-m"_s, u"--propagation"_s, u"private"_s},
                                          {u"-r"_s, u"-m"_s, u"--propagation"_s, u"private"_s}};
        QStringList reasons;
        for (const QStringList &attempt : attempts) {
            const Run probe = runInNamespace(attempt, u"probe"_s);
            if (probe.exitCode == 0 && probe.output.endsWith(u"probe: ok"_s)) {
                m_unshareArguments = attempt;
                return;
            }
            reasons += u"unshare "_s + attempt.join(u' ') + u": "_s + probe.output.section(u'\n', -1);
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
                   u"filler: No space left on device"_s,
                   u"write: FileError: Could not write the widget snapshot: No space left on device."_s,
                   u"previous: intact"_s, u"container: glucose-snapshot.json"_s,
                   u"after freeing: ok, read back"_s};
        QTest::newRow("read-only directory")
            << u"read-only"_s
            << QStringList{
                   u"write: FileError: Could not write the widget snapshot: Read-only file system."_s,
                   u"clear: FileError: Could not remove the widget snapshot: Read-only file system."_s,
                   u"previous: intact"_s, u"container: glucose-snapshot.json"_s};
    }

    void failure()
    {
        QFETCH(QString, scenario);
        QFETCH(QStringList, report);
        const Run run = runInNamespace(m_unshareArguments, scenario);
        QVERIFY2(run.exitCode == 0, qPrintable(run.output));
        QCOMPARE(run.output.split(u'\n'), report);
    }
};

int main(int argc, char *argv[])
{
    if (argc == 4 && std::strcmp(argv[1], workerFlag) == 0)
        return runWorker(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]));
    QCoreApplication app(argc, argv);
    TestSnapshotDiskFailures test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_snapshotdiskfailures.moc"
