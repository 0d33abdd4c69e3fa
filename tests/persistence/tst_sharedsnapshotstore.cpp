#include "DecodingError.h"
#include "GlucoseSnapshot.h"
#include "LogCapture.h"
#include "SharedSnapshotStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <limits>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace glinta {

char *toString(const GlucoseSnapshot &snapshot)
{
    try {
        return QTest::toString(encodeSnapshot(snapshot));
    } catch (const Error &error) {
        return QTest::toString(error.description());
    }
}

} // namespace glinta

Q_DECLARE_METATYPE(glinta::GlucoseSnapshot)
Q_DECLARE_METATYPE(glinta::DecodingError::Kind)

namespace {

using Store = SharedSnapshotStore;

const QString unavailable =
    u"The app group container K3R8WQ5N2D.com.nordvik.glinta is unavailable. Check the App Groups entitlement."_s;
const QString storeCategory = u"com.nordvik.glinta.GlucoseStore"_s;

QDateTime utc(int year, int month, int day, int hour, int minute, int second = 0, int msec = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second, msec), Qt::UTC);
}

GlucoseReading reading(const QDateTime &date, double mgPerDl, std::optional<TrendArrow> trend = {},
                       bool isLow = false)
{
    return GlucoseReading{date, mgPerDl, trend, false, isLow};
}

// `count` readings a minute apart, so that snapshots differ in size as well as in content.
GlucoseSnapshot sized(int count, int version)
{
    GlucoseSnapshot snapshot;
    for (int i = 0; i < count; ++i)
        snapshot.history.append(
            reading(utc(2024, 5, 1, 8, 0).addSecs(60 * i), 90.5 + i % 40, TrendArrow::rising));
    if (!snapshot.history.isEmpty())
        snapshot.latest = snapshot.history.last();
    snapshot.connectionName = u"Ana"_s;
    snapshot.updatedAt = utc(2024, 5, 1, 12, 0).addSecs(version);
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
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
    QCOMPARE(file.write(bytes), bytes.size());
}

// The store error's description, "" when nothing was thrown, or a note naming the wrong error.
template <typename Call> QString storeErrorOf(Call call)
{
    try {
        call();
    } catch (const Store::StoreError &error) {
        return error.kind() == Store::StoreError::Kind::containerUnavailable ? error.description() : u"?"_s;
    } catch (const Error &error) {
        return u"another error: "_s + error.description();
    }
    return {};
}

} // namespace

class TestSharedSnapshotStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodedText_data()
    {
        QTest::addColumn<GlucoseSnapshot>("snapshot");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("alsoRead"); // another spelling of the same snapshot

        GlucoseSnapshot empty;
        empty.updatedAt = utc(2001, 1, 1, 0, 0);
        QTest::newRow("nothing yet, at the reference date")
            << empty
            << R"({"history":[],"unit":"mg\/dL","targetLowMgPerDl":70,"targetHighMgPerDl":180,"updatedAt":0})"_ba
            << R"({"updatedAt":0,"targetHighMgPerDl":180,"targetLowMgPerDl":70,"unit":"mg/dL","history":[]})"_ba;

        GlucoseSnapshot full;
        full.latest = reading(utc(2001, 1, 1, 0, 59, 30), 124, TrendArrow::steady);
        full.history = {reading(utc(2001, 1, 1, 0, 44, 30, 250), 112.35, {}, true), *full.latest};
        full.unit = GlucoseUnit::mmolPerL;
        full.connectionName = u"Ana / Bo"_s;
        full.updatedAt = utc(2001, 1, 1, 1, 0);
        QTest::newRow("everything, an hour later")
            << full
            << R"({"latest":{"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false},)"
               R"("history":[{"date":2670.25,"mgPerDl":112.35,"isHigh":false,"isLow":true},)"
               R"({"date":3570,"mgPerDl":124,"trend":3,"isHigh":false,"isLow":false}],)"
               R"("unit":"mmol\/L","connectionName":"Ana \/ Bo","targetLowMgPerDl":70,)"
               R"("targetHighMgPerDl":180,"updatedAt":3600})"_ba
            << QByteArray();
    }

    void encodedText()
    {
        QFETCH(GlucoseSnapshot, snapshot);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, alsoRead);
        QCOMPARE(encodeSnapshot(snapshot), text);
        QCOMPARE(decodeSnapshot(text), snapshot);
        if (!alsoRead.isEmpty())
            QCOMPARE(decodeSnapshot(alsoRead), snapshot);
    }

    void decodeRejects_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<DecodingError::Kind>("kind");
        QTest::addColumn<QString>("path");

        const QByteArray base =
            R"({"latest":{"date":1,"mgPerDl":100,"trend":3,"isHigh":false,"isLow":false},)"
            R"("history":[{"date":1,"mgPerDl":100,"isHigh":false,"isLow":false}],)"
            R"("unit":"mg/dL","targetLowMgPerDl":70,"targetHighMgPerDl":180,"updatedAt":0})";
        QVERIFY(decodeSnapshot(base).latest);
        const auto with = [&](const char *from, const char *to) {
            return QByteArray(base).replace(from, to);
        };
        using K = DecodingError::Kind;
        QTest::newRow("unit mmol") << with(R"("mg/dL")", R"("mmol")") << K::wrongValue << u"unit"_s;
        QTest::newRow("latest trend 7")
            << with(R"("trend":3)", R"("trend":7)") << K::wrongValue << u"latest.trend"_s;
        QTest::newRow("history trend 0")
            << with(R"(false}],)", R"(false,"trend":0}],)") << K::wrongValue << u"history[0].trend"_s;
        QTest::newRow("history missing")
            << with(R"("history":[{"date":1,"mgPerDl":100,"isHigh":false,"isLow":false}],)", "")
            << K::missingMember << u"history"_s;
        QTest::newRow("updatedAt missing")
            << with(R"(,"updatedAt":0)", "") << K::missingMember << u"updatedAt"_s;
        QTest::newRow("truncated") << base.left(base.size() / 2) << K::notJson << QString();
    }

    void decodeRejects()
    {
        QFETCH(QByteArray, text);
        QFETCH(DecodingError::Kind, kind);
        QFETCH(QString, path);
        try {
            decodeSnapshot(text);
            QFAIL("decoded");
        } catch (const DecodingError &error) {
            QCOMPARE(error.kind(), kind);
            QCOMPARE(error.path(), path);
            const QString text = error.description();
            QVERIFY2(text.startsWith(u"The snapshot file "_s) &&
                         (path.isEmpty() || text.contains(u'"' + path + u'"')),
                     qPrintable(text));
        }
    }

    // The reader would refuse what these would write; and encoding comes before the container is looked up.
    void encodeRejects_data()
    {
        QTest::addColumn<GlucoseSnapshot>("snapshot");
        QTest::addColumn<QString>("problem");

        GlucoseSnapshot snapshot = sized(3, 0);
        snapshot.history[1].mgPerDl = std::numeric_limits<double>::quiet_NaN();
        QTest::newRow("NaN reading") << snapshot << u"\"history[1].mgPerDl\" is not a finite number"_s;
        snapshot = sized(3, 0);
        snapshot.updatedAt = QDateTime();
        QTest::newRow("no updatedAt") << snapshot << u"\"updatedAt\" is not a date the file can hold"_s;
        snapshot = sized(3, 0);
        snapshot.connectionName = QString(maximumSnapshotFileSize, u'x');
        QTest::newRow("over the size cap") << snapshot << u"it would be larger than 16 MiB"_s;
    }

    void encodeRejects()
    {
        QFETCH(GlucoseSnapshot, snapshot);
        QFETCH(QString, problem);
        const QString expected = u"The widget snapshot cannot be saved: "_s + problem + u'.';
        try {
            Store(QString()).write(snapshot);
            QFAIL("written");
        } catch (const SnapshotEncodingError &error) {
            QCOMPARE(error.description(), expected);
        }
    }

    void writeThenRead()
    {
        QTemporaryDir temporary;
        const Store store(temporary.filePath(u"not/made/yet"_s));
        const QString path = store.fileURL();
        const QString container = QFileInfo(path).absolutePath();
        QCOMPARE(container, temporary.filePath(u"not/made/yet/K3R8WQ5N2D.com.nordvik.glinta"_s));
        QCOMPARE(modeOf(container), 0700);

        store.write(sized(5, 1));
        QCOMPARE(store.read(), sized(5, 1));
        QCOMPARE(modeOf(path), 0600);
        QCOMPARE(entries(container), QStringList{u"glucose-snapshot.json"_s});

        // A file left readable by others must not pass its permissions on to the next one.
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                                QFile::ReadOther));
        store.write(sized(0, 2));
        QCOMPARE(store.read(), sized(0, 2));
        QCOMPARE(modeOf(path), 0600);
        QCOMPARE(entries(container), QStringList{u"glucose-snapshot.json"_s});
    }

    void clear_data()
    {
        QTest::addColumn<bool>("withSnapshot");
        QTest::newRow("no snapshot") << false;
        QTest::newRow("snapshot") << true;
    }

    void clear()
    {
        QFETCH(bool, withSnapshot);
        QTemporaryDir temporary;
        const Store store(temporary.path());
        const QString container = QFileInfo(store.fileURL()).absolutePath();
        putFile(container + u"/other.txt"_s, "keep");
        if (withSnapshot)
            store.write(sized(2, 1));

        const LogCapture log;
        store.clear();
        QCOMPARE(entries(container), QStringList{u"other.txt"_s});
        QCOMPARE(modeOf(container), 0700);
        QCOMPARE(store.read(), std::nullopt);
        QCOMPARE(log.inCategory(storeCategory).size(), 0);
    }

    void readUndecodable_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("problem");
        const QByteArray good = encodeSnapshot(sized(4, 1));
        QTest::newRow("empty") << QByteArray() << u"The snapshot file is not valid JSON"_s;
        QTest::newRow("truncated") << good.left(good.size() - 1) << u"The snapshot file is not valid JSON"_s;
        QTest::newRow("unknown unit") << QByteArray(good).replace(R"(mg\/dL)", "mg") << u"for \"unit\""_s;
        // Valid JSON, so only the cap stops it.
        QTest::newRow("padded past the cap") << good + QByteArray(maximumSnapshotFileSize, ' ')
                                             << u"The snapshot file is larger than 16 MiB."_s;
    }

    void readUndecodable()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, problem);
        QTemporaryDir temporary;
        const Store store(temporary.path());
        putFile(store.fileURL(), bytes);

        const LogCapture log;
        QCOMPARE(store.read(), std::nullopt);
        const auto lines = log.inCategory(storeCategory);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines[0].type, QtCriticalMsg);
        const QString &message = lines[0].message;
        QVERIFY2(message.startsWith(u"Could not read the widget snapshot: The snapshot file "_s) &&
                     message.contains(problem),
                 qPrintable(message));
        QCOMPARE(QFileInfo(store.fileURL()).size(), bytes.size());
    }

    void containerUnavailable_data()
    {
        QTest::addColumn<QString>("occupied"); // a regular file put in the way, relative to a temporary dir
        QTest::addColumn<QString>("parent");
        QTest::newRow("no parent") << QString() << QString();
        QTest::newRow("parent under a file") << u"file"_s << u"file/data"_s;
        QTest::newRow("container is a file") << u"K3R8WQ5N2D.com.nordvik.glinta"_s << u"."_s;
    }

    void containerUnavailable()
    {
        QFETCH(QString, occupied);
        QFETCH(QString, parent);
        QTemporaryDir temporary;
        if (!occupied.isEmpty())
            putFile(temporary.filePath(occupied), "x");
        const Store store(parent.isEmpty() ? QString() : temporary.filePath(parent));

        QCOMPARE(storeErrorOf([&] { store.fileURL(); }), unavailable);
        QCOMPARE(storeErrorOf([&] { store.write(sized(1, 1)); }), unavailable);
        QCOMPARE(storeErrorOf([&] { store.clear(); }), unavailable);
        const LogCapture log;
        QCOMPARE(store.read(), std::nullopt);
        const auto lines = log.inCategory(storeCategory);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines[0].message, u"Could not read the widget snapshot: "_s + unavailable);
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
            QRegularExpression(u"^good=(\\d+) missing=(\\d+) bad=(\\d+) versions=(\\d+)$"_s).match(report);
        QVERIFY2(match.hasMatch(), qPrintable(report));
        qInfo().noquote() << "reader:" << report;
        QCOMPARE(match.captured(2).toInt(), 0);
        QCOMPARE(match.captured(3).toInt(), 0);
        QVERIFY2(match.captured(1).toLongLong() >= 200, qPrintable(report));
        QVERIFY2(match.captured(4).toInt() >= 20, qPrintable(report));
    }
};

QTEST_GUILESS_MAIN(TestSharedSnapshotStore)
#include "tst_sharedsnapshotstore.moc"
