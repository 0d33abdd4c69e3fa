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

    // A reading 850 s old at the clock's start: fresh now, stale after the first minute tick.
    GlucoseSnapshot published() const
    {
        const GlucoseReading latest{clock.now().addSecs(-850), 124, TrendArrow::rising, false, false};
        return {latest, {latest}, GlucoseUnit::mgPerDl, u"Ana"_s, 70, 180, clock.now().addSecs(-840)};
    }
};

} // namespace

class TimelineProviderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A cancelled sleep ends on the next event-loop turn; without one the last test's task would leak.
    void cleanup() { QCoreApplication::sendPostedEvents(); }

    // Blank at start: published while the widget was not listening, no reload comes and the minute tick
    // finds it. A reload reads at once, whether it brings a sign-out or new data.
    void blankLooksAgainAndReloadReadsAtOnce_data()
    {
        QTest::addColumn<QByteArray>("file"); // empty: none
        QTest::newRow("no file") << QByteArray();
        QTest::newRow("not JSON") << QByteArray("garbage");
    }

    void blankLooksAgainAndReloadReadsAtOnce()
    {
        QFETCH(QByteArray, file);
        Timeline timeline;
        QFile out(timeline.store.fileURL());
        if (!file.isEmpty()) {
            QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size());
            out.close();
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Could not read the widget snapshot"_s));
        }
        const QDateTime start = timeline.clock.now();
        timeline.provider->start();
        QCOMPARE(timeline.entries.size(), 1);
        QCOMPARE(timeline.entries[0].date, start);
        QVERIFY(!timeline.entries[0].snapshot);

        const GlucoseSnapshot snapshot = timeline.published();
        timeline.store.write(snapshot);
        timeline.clock.advance(60s);
        QTRY_COMPARE(timeline.entries.size(), 2);
        QCOMPARE(timeline.entries[1].date, start.addSecs(60));
        QCOMPARE(timeline.entries[1].snapshot, std::optional(snapshot));

        timeline.store.clear();
        timeline.clock.advance(7s);
        timeline.provider->reload();
        QCOMPARE(timeline.entries.size(), 3);
        QCOMPARE(timeline.entries[2].date, start.addSecs(67));
        QVERIFY(!timeline.entries[2].snapshot);
        timeline.store.write(snapshot);
        timeline.provider->reload();
        QCOMPARE(timeline.entries.size(), 4);
        QCOMPARE(timeline.entries[3].snapshot, std::optional(snapshot));
    }

    // An entry a minute, so the stale mark comes on time without new data; the file is read again within a
    // quarter hour even when no reload ever arrives (no session bus).
    void minuteTicks()
    {
        Timeline timeline;
        timeline.store.write(timeline.published());
        timeline.provider->start();
        timeline.store.clear();
        for (int tick = 1; tick < TimelineProvider::ticksBetweenReads; ++tick) {
            timeline.clock.advance(60s);
            QTRY_COMPARE(timeline.entries.size(), tick + 1);
            QVERIFY(timeline.entries.last().snapshot);
            QCOMPARE(timeline.entries.last().date, timeline.entries[0].date.addSecs(60 * tick));
        }
        QCOMPARE(statusLine(timeline.entries[0], StatusLineFormat::plain), u"124 ↗"_s);
        QCOMPARE(statusLine(timeline.entries[1], StatusLineFormat::plain), u"124 ↗ \u26A0\uFE0E"_s);
        timeline.clock.advance(60s);
        QTRY_COMPARE(timeline.entries.size(), TimelineProvider::ticksBetweenReads + 1);
        QVERIFY(!timeline.entries.last().snapshot);
    }

    void destroyedWhileWaiting()
    {
        Timeline timeline;
        timeline.provider->start();
        timeline.provider.reset();
        QCOMPARE(timeline.clock.pendingSleeps(), 0);
        timeline.clock.advance(60s);
        QTest::qWait(10);
        QCOMPARE(timeline.entries.size(), 1);
    }

    void reloadSignalOverTheSessionBus()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("No session bus");
        Timeline timeline;
        WidgetReloadListener listener;
        QVERIFY(listener.isListening());
        QObject::connect(&listener, &WidgetReloadListener::reloadRequested, timeline.provider.get(),
                         &TimelineProvider::reload);
        timeline.provider->start();
        const GlucoseSnapshot snapshot = timeline.published();
        timeline.store.write(snapshot);
        WidgetReloader().reloadAllTimelines();
        QTRY_COMPARE_WITH_TIMEOUT(timeline.entries.size(), 2, 1000);
        QCOMPARE(timeline.entries[1].snapshot, std::optional(snapshot));
    }
};

QTEST_GUILESS_MAIN(TimelineProviderTest)
#include "tst_timelineprovider.moc"