#include "ManualClock.h"
#include "SharedSnapshotStore.h"
#include "StatusLine.h"
#include "TimelineProvider.h"
#include "WidgetReloadListener.h"
#include "WidgetReloader.h"

#include <QDBusConnection>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

// A reading 850 s old at the clock's start: fresh now, stale after the first minute tick.
GlucoseSnapshot published(const ManualClock &clock)
{
    const GlucoseReading latest{clock.now().addSecs(-850), 124, TrendArrow::rising, false, false};
    return {latest, {latest}, GlucoseUnit::mgPerDl, u"Ana"_s, 70, 180, clock.now().addSecs(-840)};
}

// One provider over a private container, recording every entry it says.
struct Timeline
{
    QTemporaryDir container;
    SharedSnapshotStore store{container.path()};
    ManualClock clock{ManualClock::Mode::manual};
    std::unique_ptr<TimelineProvider> provider = std::make_unique<TimelineProvider>(&store, &clock);
    QList<GlucoseEntry> entries;

    Timeline()
    {
        QObject::connect(provider.get(), &TimelineProvider::entryChanged,
                         [this](const GlucoseEntry &entry) { entries.append(entry); });
    }
    QString filePath() const { return store.fileURL(); }
};

} // namespace

class TimelineProviderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A cancelled sleep ends on the next event-loop turn; without one the last test's task would leak.
    void cleanup() { QCoreApplication::sendPostedEvents(); }

    void blankLooksAgainAfterAMinute_data();
    void blankLooksAgainAfterAMinute();
    void reloadReadsAtOnce_data();
    void reloadReadsAtOnce();
    void minuteTicksMakeTheDataStale();
    void readsAgainWithoutAReload();
    void destroyedWhileWaiting();
    void reloadSignalOverTheSessionBus();
};

void TimelineProviderTest::blankLooksAgainAfterAMinute_data()
{
    QTest::addColumn<std::optional<QByteArray>>("file");
    QTest::addColumn<bool>("logged");

    QTest::newRow("no file") << std::optional<QByteArray>() << false;
    QTest::newRow("not JSON") << std::optional<QByteArray>("garbage") << true;
    QTest::newRow("cut short") << std::optional<QByteArray>(R"({"history":[],"unit":"mg\/dL","targ)") << true;
    QTest::newRow("keys missing") << std::optional<QByteArray>("{}") << true;
}

void TimelineProviderTest::blankLooksAgainAfterAMinute()
{
    QFETCH(std::optional<QByteArray>, file);
    QFETCH(bool, logged);
    Timeline timeline;
    if (file) {
        QFile out(timeline.filePath());
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(*file) == file->size());
    }
    if (logged)
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Could not read the widget snapshot"_s));

    const QDateTime start = timeline.clock.now();
    timeline.provider->start();
    QCOMPARE(timeline.entries.size(), 1);
    QCOMPARE(timeline.entries[0].date, start);
    QVERIFY(!timeline.entries[0].snapshot);

    // Published while the widget was not listening: no reload comes, the minute tick finds it.
    const GlucoseSnapshot snapshot = published(timeline.clock);
    timeline.store.write(snapshot);
    timeline.clock.advance(60s);
    QTRY_COMPARE(timeline.entries.size(), 2);
    QCOMPARE(timeline.entries[1].date, start.addSecs(60));
    QCOMPARE(timeline.entries[1].snapshot, std::optional(snapshot));
}

void TimelineProviderTest::reloadReadsAtOnce_data()
{
    QTest::addColumn<bool>("publishedBefore");
    QTest::addColumn<bool>("publishedAfter");

    QTest::newRow("publish") << false << true;
    QTest::newRow("sign-out") << true << false;
}

void TimelineProviderTest::reloadReadsAtOnce()
{
    QFETCH(bool, publishedBefore);
    QFETCH(bool, publishedAfter);
    Timeline timeline;
    const GlucoseSnapshot snapshot = published(timeline.clock);
    if (publishedBefore)
        timeline.store.write(snapshot);
    timeline.provider->start();
    QCOMPARE(timeline.entries.size(), 1);
    QCOMPARE(timeline.entries[0].snapshot.has_value(), publishedBefore);

    if (publishedAfter)
        timeline.store.write(snapshot);
    else
        timeline.store.clear();
    timeline.clock.advance(7s);
    timeline.provider->reload();
    QCOMPARE(timeline.entries.size(), 2);
    QCOMPARE(timeline.entries[1].date, timeline.clock.now());
    QCOMPARE(timeline.entries[1].snapshot.has_value(), publishedAfter);
}

void TimelineProviderTest::minuteTicksMakeTheDataStale()
{
    Timeline timeline;
    timeline.store.write(published(timeline.clock));
    timeline.provider->start();
    timeline.clock.advance(60s);
    QTRY_COMPARE(timeline.entries.size(), 2);
    timeline.clock.advance(60s);
    QTRY_COMPARE(timeline.entries.size(), 3);

    QStringList lines;
    for (const GlucoseEntry &entry : std::as_const(timeline.entries))
        lines += statusLine(entry, StatusLineFormat::plain);
    QCOMPARE(lines, QStringList({u"124 ↗"_s, u"124 ↗ \u26A0\uFE0E"_s, u"124 ↗ \u26A0\uFE0E"_s}));
    QCOMPARE(timeline.entries[2].date, timeline.entries[0].date.addSecs(120));
}

// Without a session bus no reload ever arrives: a shown snapshot is still replaced within a quarter hour.
void TimelineProviderTest::readsAgainWithoutAReload()
{
    Timeline timeline;
    timeline.store.write(published(timeline.clock));
    timeline.provider->start();
    timeline.store.clear();
    for (int tick = 1; tick < TimelineProvider::ticksBetweenReads; ++tick) {
        timeline.clock.advance(60s);
        QTRY_COMPARE(timeline.entries.size(), tick + 1);
        QVERIFY(timeline.entries.last().snapshot);
    }
    timeline.clock.advance(60s);
    QTRY_COMPARE(timeline.entries.size(), TimelineProvider::ticksBetweenReads + 1);
    QVERIFY(!timeline.entries.last().snapshot);
}

void TimelineProviderTest::destroyedWhileWaiting()
{
    Timeline timeline;
    timeline.provider->start();
    timeline.provider.reset();
    QCOMPARE(timeline.clock.pendingSleeps(), 0);
    timeline.clock.advance(60s);
    QTest::qWait(10);
    QCOMPARE(timeline.entries.size(), 1);
}

void TimelineProviderTest::reloadSignalOverTheSessionBus()
{
    if (!QDBusConnection::sessionBus().isConnected())
        QSKIP("No session bus");
    Timeline timeline;
    WidgetReloadListener listener;
    QVERIFY(listener.isListening());
    QObject::connect(&listener, &WidgetReloadListener::reloadRequested, timeline.provider.get(),
                     &TimelineProvider::reload);
    timeline.provider->start();

    const GlucoseSnapshot snapshot = published(timeline.clock);
    timeline.store.write(snapshot);
    WidgetReloader().reloadAllTimelines();
    QTRY_COMPARE_WITH_TIMEOUT(timeline.entries.size(), 2, 1000);
    QCOMPARE(timeline.entries[1].snapshot, std::optional(snapshot));
}

QTEST_GUILESS_MAIN(TimelineProviderTest)
#include "tst_timelineprovider.moc"
