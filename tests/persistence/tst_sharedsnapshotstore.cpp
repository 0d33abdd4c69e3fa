#include "GlucoseSnapshot.h"
#include "LogCapture.h"
#include "SharedSnapshotStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using Store = SharedSnapshotStore;

const QString unavailable =
    u"The app group container K3R8WQ5N2D.com.nordvik.glinta is unavailable. Check the App Groups entitlement."_s;

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

// What read() logged, one "critical: ..." line per message; a snapshot it found is a line too.
QStringList readLog(const Store &store)
{
    const LogCapture log;
    QStringList lines;
    if (store.read())
        lines += u"read a snapshot"_s;
    for (const LogCapture::Entry &entry : log.inCategory(u"com.nordvik.glinta.GlucoseStore"_s))
        lines += (entry.type == QtCriticalMsg ? u"critical: "_s : u"other: "_s) + entry.message;
    return lines;
}

// The description of what `call` threw, or "" when it threw nothing.
template <typename Call> QString errorOf(Call call)
{
    try {
        call();
    } catch (const Error &error) {
        return error.description();
    }
    return {};
}

} // namespace

class TestSharedSnapshotStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodedText()
    {
        const auto check = [](const GlucoseSnapshot &snapshot, const QByteArray &text) {
            QCOMPARE(encodeSnapshot(snapshot), text);
            QVERIFY(decodeSnapshot(text) == snapshot);
        };
        GlucoseSnapshot snapshot;
        snapshot.updatedAt = at(0);
        check(
            snapshot,
            R"({"history":[],"unit":"mg\/dL","targetLowMgPerDl":70,"targetHighMgPerDl":180,"updatedAt":0})");

        snapshot.latest = GlucoseReading{at(3570), 124, TrendArrow::steady, false, false};
        snapshot.history = {{at(2670.25), 112.35, {}, false, true}, *snapshot.latest};
        snapshot.unit = GlucoseUnit::mmolPerL;
        snapshot.connectionName = u"Ana / Bo"_s;
        snapshot.updatedAt = at(3600);
        check(snapshot, R"({"latest":{"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false},)"
                        R"("history":[{"date":2670.25,"mgPerDl":112.35,"isHigh":false,"isLow":true},)"
                        R"({"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false}],)"
                        R"("unit":"mmol\/L","connectionName":"Ana \/ Bo","targetLowMgPerDl":70,)"
                        R"("targetHighMgPerDl":180,"updatedAt":3600})");

        // A name from the service may hold half a surrogate pair, which has no UTF-8 form; it is escaped.
        snapshot = GlucoseSnapshot{};
        snapshot.connectionName =
            u"J\u00f6rg "_s + QChar(0xDE00) + QChar(0xD83D) + QChar(0xD83D) + QChar(0xDE00);
        snapshot.updatedAt = at(0);
        check(snapshot,
              "{\"history\":[],\"unit\":\"mg\\/dL\",\"connectionName\":\"J\xc3\xb6rg \\ude00\\ud83d"
              "\xf0\x9f\x98\x80\",\"targetLowMgPerDl\":70,\"targetHighMgPerDl\":180,\"updatedAt\":0}"_ba);
    }

    void decodeRejects()
    {
        const QByteArray base =
            R"({"history":[{"date":1,"mgPerDl":100,"isHigh":false,"isLow":false}],)"
            R"("unit":"mg/dL","targetLowMgPerDl":70,"targetHighMgPerDl":180,"updatedAt":0})";
        QCOMPARE(decodeSnapshot(base).history.size(), 1);
        const auto decodeWith = [&](const char *from, const char *to) {
            return errorOf([&] { decodeSnapshot(QByteArray(base).replace(from, to)); });
        };
        QCOMPARE(decodeWith(R"("mg/dL")", R"("mmol")"),
                 uR"(The snapshot file has a string for "unit" (expected "mg/dL" or "mmol/L").)"_s);
        QCOMPARE(
            decodeWith(R"(false}],)", R"(false,"trend":0}],)"),
            uR"(The snapshot file has the number 0 for "history[0].trend" (expected a trend from 1 to 5).)"_s);
        QCOMPARE(decodeWith(R"("history":)", R"("h":)"),
                 uR"(The snapshot file is missing "history" (expected an array).)"_s);
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
    }

    void readUndecodable_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("problem"); // a pattern
        const QByteArray good = encodeSnapshot(sized(4, 1));
        QTest::newRow("truncated") << good.chopped(1) << u"is not valid JSON \\(.+\\)\\."_s;
        // Valid JSON, so only the cap stops it.
        QTest::newRow("padded past the cap")
            << good + QByteArray(maximumSnapshotFileSize, ' ') << u"is larger than 16 MiB\\."_s;
    }

    void readUndecodable()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, problem);
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

    void containerUnavailable_data()
    {
        QTest::addColumn<QString>("parent"); // in a temporary directory with files in the way
        QTest::newRow("no parent") << QString();
        QTest::newRow("parent under a file") << u"file/data"_s;
        QTest::newRow("container is a file") << u"."_s;
    }

    void containerUnavailable()
    {
        QFETCH(QString, parent);
        QTemporaryDir temporary;
        putFile(temporary.filePath(u"file"_s), "x");
        putFile(temporary.filePath(Store::containerIdentifier), "x");
        const Store store(parent.isEmpty() ? QString() : temporary.filePath(parent));

        QCOMPARE(errorOf([&] { store.fileURL(); }), unavailable);
        QCOMPARE(errorOf([&] { store.write(sized(1, 1)); }), unavailable);
        QCOMPARE(errorOf([&] { store.clear(); }), unavailable);
        QCOMPARE(readLog(store),
                 QStringList{u"critical: Could not read the widget snapshot: "_s + unavailable});
    }

    // Another process reads while this one replaces the file: it must only ever find a whole snapshot.
    void readerNeverSeesPartialFile()
    {
        QTemporaryDir temporary;
        const Store store(temporary.path());
        store.write(sized(1, 0));
        const QString stopFile = temporary.filePath(u"stop"_s);

        QProcess reader;
        reader.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        reader.start(QCoreApplication::applicationDirPath() + u"/snapshot_reader"_s,
                     {store.fileURL(), stopFile});
        QVERIFY2(reader.waitForStarted(), qPrintable(reader.errorString()));
        QVERIFY(reader.waitForReadyRead(20000));
        QCOMPARE(reader.readLine().trimmed(), "ready"_ba);

        for (int version = 1; version <= 1000; ++version)
            store.write(sized((version * 37) % 150, version));
        putFile(stopFile, {});
        QVERIFY(reader.waitForFinished(20000));
        QCOMPARE(reader.exitCode(), 0);

        const QString report = QString::fromUtf8(reader.readAll().trimmed());
        const auto match =
            QRegularExpression(u"^good=(\\d+) missing=0 bad=0 versions=(\\d+)$"_s).match(report);
        QVERIFY2(match.hasMatch() && match.captured(1).toLongLong() >= 200 && match.captured(2).toInt() >= 20,
                 qPrintable(report));
    }
};

QTEST_GUILESS_MAIN(TestSharedSnapshotStore)
#include "tst_sharedsnapshotstore.moc"
