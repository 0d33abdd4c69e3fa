#include "LogCapture.h"
#include "TestSupport.h"
#include "snapshot/GlucoseSnapshot.h"
#include "snapshot/SharedSnapshotStore.h"
#include "support/DecodingError.h"

#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <thread>

#include <sys/mount.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using Store = SharedSnapshotStore;

// Seconds since 2001-01-01 UTC, the file's own dates.
QDateTime at(double seconds)
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).addMSecs(qint64(seconds * 1000));
}

// `count` readings a minute apart, so that snapshots differ in size as well as in content.
GlucoseSnapshot sized(int count, int version)
{
    GlucoseSnapshot snapshot;
    for (int i = 0; i < count; ++i)
        snapshot.history.append({at(60 * i), 90.5 + i % 40, TrendArrow::rising, false, false});
    if (count > 0)
        snapshot.latest = snapshot.history.last();
    snapshot.connectionName = u"Ana"_s;
    snapshot.updatedAt = at(86400 + version);
    return snapshot;
}

int modeOf(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

QStringList entries(const QString &directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

void putFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(),
             qPrintable(file.errorString()));
}

// What read() logged; a snapshot it found is a line too.
QStringList readLog(const Store &store)
{
    const LogCapture log;
    const bool found = store.read().has_value();
    return log.lines(u"GlucoseStore"_s) + (found ? QStringList{u"read a snapshot"_s} : QStringList());
}

// A line at a time, so that a crash cannot take back what was said before it.
void say(const char *key, const QString &value)
{
    std::printf("%s: %s\n", key, qPrintable(value));
    std::fflush(stdout);
}

// Runs inside a private mount namespace, over a tiny tmpfs that it fills up. Root ignores permission bits
// (and CI runs as root), so only a real full disk will do. A crash or a hang shows as a report cut short.
int stageFullDisk(const QString &scratch)
{
    if (::mount("tmpfs", QFile::encodeName(scratch).constData(), "tmpfs", 0, "size=64k") != 0) {
        std::printf("setup failed: mount tmpfs: %s\n", std::strerror(errno));
        return 3;
    }
    say("staged", u"ok"_s); // from here on, anything but the report below is a failure

    const Store store(scratch);
    const GlucoseSnapshot previous = sized(5, 1), next = sized(120, 2);
    store.write(previous); // were this to throw, the report would end here
    QFile filler(scratch + u"/filler"_s);
    if (filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        while (filler.write(QByteArray(4096, 'x')) == 4096) {
        }
    }
    say("write", errorOf([&] { store.write(next); }));
    say("previous", store.read() == previous ? u"intact"_s : u"damaged"_s);
    say("container", entries(QFileInfo(store.fileURL()).absolutePath()).join(u' '));
    filler.remove();
    const QString rewritten = errorOf([&] { store.write(next); });
    say("after freeing", rewritten + (store.read() == next ? u", read back"_s : u""_s));
    return 0;
}

} // namespace

class TestSharedSnapshotStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Lone surrogates in a name are escaped as in the login body (tst_llurecords).
    void encodedText()
    {
        GlucoseSnapshot snapshot;
        snapshot.updatedAt = at(0);
        QCOMPARE(
            encodeSnapshot(snapshot),
            R"({"history":[],"unit":"mg\/dL","targetLowMgPerDl":70,"targetHighMgPerDl":180,"updatedAt":0})");

        snapshot.latest = GlucoseReading{at(3570), 124, TrendArrow::steady, false, false};
        snapshot.history = {{at(2670.25), 112.35, {}, false, true}, *snapshot.latest};
        snapshot.unit = GlucoseUnit::mmolPerL;
        snapshot.connectionName = u"Ana / Bo"_s;
        snapshot.targets = {80, 250.5};
        snapshot.updatedAt = at(3600);
        snapshot.alert = AlertKind::urgentLow;
        const QByteArray text =
            R"({"latest":{"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false},)"
            R"("history":[{"date":2670.25,"mgPerDl":112.35,"isHigh":false,"isLow":true},)"
            R"({"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false}],)"
            R"("unit":"mmol\/L","connectionName":"Ana \/ Bo","targetLowMgPerDl":80,)"
            R"("targetHighMgPerDl":250.5,"updatedAt":3600,"alert":"urgentLow"})";
        QCOMPARE(encodeSnapshot(snapshot), text);
        QVERIFY(decodeSnapshot(text) == snapshot);
        // An alert a newer build knows reads as none rather than losing the file.
        QCOMPARE(decodeSnapshot(QByteArray(text).replace("urgentLow", "pumpOcclusion")).alert, std::nullopt);
        // A reading's members are tst_glucosevalues' rows; the unit is the file's own.
        QCOMPARE(errorOf([&] { decodeSnapshot(QByteArray(text).replace("mmol\\/L", "mmol")); }),
                 uR"(The snapshot file has a string for "unit" (expected "mg/dL" or "mmol/L").)"_s);
    }

    // The reader would refuse what these would write; encoding comes before the container is looked up.
    void encodeRejects()
    {
        GlucoseSnapshot notFinite = sized(3, 0), undated = notFinite, huge = notFinite;
        notFinite.history[1].mgPerDl = std::numeric_limits<double>::quiet_NaN();
        undated.updatedAt = QDateTime();
        huge.connectionName = QString(maximumSnapshotFileSize, u'x');
        const auto refused = [](const GlucoseSnapshot &snapshot) {
            return errorOf([&] { Store(QString()).write(snapshot); });
        };
        const QString cannot = u"The widget snapshot cannot be saved: "_s;
        QCOMPARE(refused(notFinite), cannot + u"\"history[1].mgPerDl\" is not a finite number."_s);
        QCOMPARE(refused(undated), cannot + u"\"updatedAt\" is not a date the file can hold."_s);
        QCOMPARE(refused(huge), cannot + u"it would be larger than 16 MiB."_s);
    }

    void writeReadAndClear()
    {
        QTemporaryDir temporary;
        const Store store(temporary.filePath(u"not/made/yet"_s));
        const QString path = store.fileURL();
        const QString container = QFileInfo(path).absolutePath();
        QCOMPARE(container, temporary.filePath(u"not/made/yet/K3R8WQ5N2D.com.nordvik.glinta"_s));
        QCOMPARE(modeOf(container), 0700);
        putFile(container + u"/other.txt"_s, "keep");

        store.write(sized(5, 1));
        QCOMPARE(store.read(), sized(5, 1));
        QCOMPARE(modeOf(path), 0600);
        // A file left readable by others must not pass its permissions on to the next one.
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
        store.write(sized(0, 2));
        QCOMPARE(store.read(), sized(0, 2));
        QCOMPARE(modeOf(path), 0600);
        QCOMPARE(entries(container), (QStringList{u"glucose-snapshot.json"_s, u"other.txt"_s}));

        store.clear();
        store.clear(); // with no file left
        QCOMPARE(entries(container), QStringList{u"other.txt"_s});
        QCOMPARE(readLog(store), QStringList());
        // A name taken by something that is no file.
        QVERIFY(QDir().mkdir(path));
        QCOMPARE(errorOf([&] { store.clear(); }), u"Could not remove the widget snapshot: Is a directory."_s);
        QCOMPARE(
            readLog(store),
            QStringList{u"critical: Could not read the widget snapshot: file to open is a directory."_s});
    }

    void readUndecodable_data()
    {
        // problem: a pattern
        columns<QByteArray, QString>("bytes", "problem");
        const QByteArray good = encodeSnapshot(sized(4, 1));
        QTest::newRow("truncated") << good.chopped(1) << u"is not valid JSON \\(.+\\)\\."_s;
        // Valid JSON, so only the cap stops it.
        QTest::newRow("padded past the cap")
            << good + QByteArray(maximumSnapshotFileSize, ' ') << u"is larger than 16 MiB\\."_s;
    }

    void readUndecodable()
    {
        const auto [bytes, problem] = fetch<QByteArray, QString>("bytes", "problem");
        QTemporaryDir temporary;
        const Store store(temporary.path());
        putFile(store.fileURL(), bytes);

        const QString log = readLog(store).join(u'\n');
        const QRegularExpression expected(QRegularExpression::anchoredPattern(
            u"critical: Could not read the widget snapshot: The snapshot file "_s + problem));
        QVERIFY2(expected.match(log).hasMatch(), qPrintable(log));
        QCOMPARE(QFileInfo(store.fileURL()).size(), bytes.size());
        // A widget looks again every minute: the same problem is not said again, a new one is.
        QCOMPARE(readLog(store), QStringList());
        QVERIFY(QFile::remove(store.fileURL()));
        QCOMPARE(readLog(store), QStringList());
        putFile(store.fileURL(), bytes);
        QVERIFY(expected.match(readLog(store).join(u'\n')).hasMatch());
    }

    // A parent that cannot hold a directory: the container would be under a file.
    void containerUnavailable()
    {
        QTemporaryDir temporary;
        putFile(temporary.filePath(u"file"_s), "x");
        const Store store(temporary.filePath(u"file/data"_s));
        const QString unavailable = u"The app group container K3R8WQ5N2D.com.nordvik.glinta is unavailable. "
                                    u"Check the App Groups entitlement."_s;
        QCOMPARE(errorOf([&] { store.write(sized(1, 1)); }), unavailable);
        QCOMPARE(errorOf([&] { store.clear(); }), unavailable);
        QCOMPARE(readLog(store),
                 QStringList{u"critical: Could not read the widget snapshot: "_s + unavailable});
    }

    // A reader looping while the file is replaced (as the widget does) only ever finds a whole snapshot.
    void readerNeverSeesPartialFile()
    {
        QTemporaryDir temporary;
        const Store store(temporary.path());
        store.write(sized(1, 0));
        const QString path = store.fileURL();
        std::atomic<bool> stop = false;
        std::atomic<int> good = 0, bad = 0;
        QSet<qint64> versions;
        std::thread reader([&] {
            while (!stop) {
                QFile file(path);
                try {
                    if (!file.open(QIODevice::ReadOnly)) {
                        ++bad;
                        continue;
                    }
                    versions.insert(decodeSnapshot(file.readAll()).updatedAt.toMSecsSinceEpoch());
                    ++good;
                } catch (const DecodingError &) {
                    ++bad;
                }
            }
        });
        QVERIFY(QTest::qWaitFor([&] { return good > 0; }, 20000));
        for (int version = 1; version <= 300; ++version)
            store.write(sized((version * 37) % 150, version));
        stop = true;
        reader.join();
        QVERIFY2(bad == 0 && good >= 200 && versions.size() >= 20,
                 qPrintable(u"good %1, bad %2, versions %3"_s.arg(good).arg(bad).arg(versions.size())));
    }
    // The previous snapshot stays whole, no temporary file is left, and with room again the next write works.
    void fullDisk()
    {
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        if (unshare.isEmpty())
            QSKIP("unshare(1) is not installed, so no private mount namespace can stage a full disk");
        // Root can mount in a plain new namespace; anyone else needs a user namespace too.
        QStringList reasons;
        for (const QStringList &user : {QStringList(), QStringList{u"-r"_s}}) {
            const QStringList options = user + QStringList{u"-m"_s, u"--propagation"_s, u"private"_s};
            QTemporaryDir scratch;
            QProcess worker;
            worker.setProcessChannelMode(QProcess::MergedChannels);
            worker.start(unshare, options + QStringList{QCoreApplication::applicationFilePath(),
                                                        u"--full-disk"_s, scratch.path()});
            if (!worker.waitForFinished(30000))
                worker.kill();
            worker.waitForFinished();
            const QString output = QString::fromLocal8Bit(worker.readAll()).trimmed();
            if (output.startsWith(u"staged: ok\n"_s)) {
                QCOMPARE(
                    output.split(u'\n').mid(1),
                    (QStringList{u"write: Could not write the widget snapshot: No space left on device."_s,
                                 u"previous: intact"_s, u"container: glucose-snapshot.json"_s,
                                 u"after freeing: ok, read back"_s}));
                return;
            }
            reasons += u"unshare "_s + options.join(u' ') + u": "_s + output.section(u'\n', -1);
        }
        QSKIP(qPrintable(u"No private mount namespace with a tmpfs to fill here ("_s + reasons.join(u"; "_s) +
                         u')'));
    }
};

int main(int argc, char *argv[])
{
    if (argc == 3 && std::strcmp(argv[1], "--full-disk") == 0)
        return stageFullDisk(QString::fromLocal8Bit(argv[2]));
    QCoreApplication app(argc, argv);
    TestSharedSnapshotStore test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sharedsnapshotstore.moc"
