// The desktop widget program: its face, its window and the status-bar line, drawn from its timeline.
#include "ManualClock.h"
#include "TestSupport.h"
#include "ViewLookup.h"
#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloadListener.h"
#include "snapshot/WidgetReloader.h"
#include "widget/DesktopWidgetWindow.h"
#include "widget/GlucoseWidgetView.h"
#include "widget/StatusLine.h"
#include "widget/TimelineProvider.h"
#include "widget/WidgetChart.h"

#include <QAction>
#include <QBuffer>
#include <QDBusConnection>
#include <QMenu>
#include <QSettings>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

using OptionalFamily = std::optional<WidgetFamily>;

const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
const auto small = WidgetFamily::systemSmall, medium = WidgetFamily::systemMedium,
           large = WidgetFamily::systemLarge;

GlucoseReading reading(double mgPerDl, std::optional<TrendArrow> trend = {}, bool isHigh = false,
                       bool isLow = false)
{
    return {taken, mgPerDl, trend, isHigh, isLow};
}

// Five minutes apart, the last one at `taken`.
QList<GlucoseReading> history(std::initializer_list<double> values)
{
    QList<GlucoseReading> readings;
    for (const double value : values)
        readings.append({taken.addSecs(300 * (readings.size() + 1 - qsizetype(values.size()))), value, {}});
    return readings;
}

GlucoseSnapshot snapshot(GlucoseReading latest, QList<GlucoseReading> readings = {},
                         GlucoseUnit unit = GlucoseUnit::mgPerDl, double low = 70, double high = 180)
{
    return {latest, std::move(readings), unit, std::nullopt, {low, high}, taken, std::nullopt};
}

// Shown a minute after the reading unless told otherwise.
GlucoseEntry entry(std::optional<GlucoseSnapshot> published, qint64 msAfterReading = 60'000)
{
    return {taken.addMSecs(msAfterReading), std::move(published)};
}

// 850 s old when a timeline's clock starts (at `taken`): fresh then, stale after the first minute tick.
const GlucoseSnapshot published = snapshot({taken.addSecs(-850), 124, TrendArrow::rising});

// One provider over a private container, recording every entry it says.
struct Timeline
{
    QTemporaryDir container;
    SharedSnapshotStore store{container.path()};
    ManualClock clock;
    std::unique_ptr<TimelineProvider> provider = std::make_unique<TimelineProvider>(&store, &clock);
    QList<GlucoseEntry> entries;

    Timeline()
    {
        QObject::connect(provider.get(), &TimelineProvider::entryChanged,
                         [this](const GlucoseEntry &entry) { entries.append(entry); });
    }
};

} // namespace

class TestWidget : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A cancelled sleep ends on the next event-loop turn; without one the last test's task would leak.
    void cleanup() { QCoreApplication::sendPostedEvents(); }

    // Blank at start, the minute tick finds what was published meanwhile; a reload reads at once.
    void blankLooksAgainAndReloadReadsAtOnce()
    {
        Timeline timeline;
        timeline.provider->start();
        QCOMPARE(timeline.entries.size(), 1);
        QVERIFY(!timeline.entries[0].snapshot);

        timeline.store.write(published);
        timeline.clock.advance(60s);
        QTRY_COMPARE(timeline.entries.size(), 2);
        QCOMPARE(timeline.entries[1].snapshot, std::optional(published));

        timeline.store.clear();
        timeline.clock.advance(7s);
        timeline.provider->reload();
        QCOMPARE(timeline.entries.size(), 3);
        QCOMPARE(timeline.entries[2].date, taken.addSecs(67));
        QVERIFY(!timeline.entries[2].snapshot);

        // Gone, it leaves no sleep behind to tick on.
        timeline.provider.reset();
        QCOMPARE(timeline.clock.pendingSleeps(), 0);
        timeline.clock.advance(60s);
        QTest::qWait(10);
        QCOMPARE(timeline.entries.size(), 3);
    }

    // An entry a minute, so the stale mark comes on time without new data; the file is read again within a
    // quarter hour even when no reload ever arrives (no session bus).
    void minuteTicks()
    {
        Timeline timeline;
        timeline.store.write(published);
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
        timeline.store.write(published);
        WidgetReloader().reloadAllTimelines();
        QTRY_COMPARE_WITH_TIMEOUT(timeline.entries.size(), 2, 1000);
        QCOMPARE(timeline.entries[1].snapshot, std::optional(published));
    }

    void lines_data()
    {
        columns<GlucoseEntry, QString, QString, QString>("entry", "plain", "classes", "tooltip");
        const auto steady = TrendArrow::steady;
        QTest::newRow("low by the service's flag")
            << entry(snapshot(reading(110, steady, false, true))) << u"110 →"_s << u"low"_s
            << u"Glucose 110 mg/dL, steady"_s;
        QTest::newRow("low by the snapshot's own range")
            << entry(snapshot(reading(75), {}, GlucoseUnit::mgPerDl, 80)) << u"75"_s << u"low"_s
            << u"Glucose 75 mg/dL"_s;
        QTest::newRow("high by the service's flag")
            << entry(snapshot(reading(150, TrendArrow::risingQuickly, true))) << u"150 ↑"_s << u"high"_s
            << u"Glucose 150 mg/dL, rising quickly"_s;
        QTest::newRow("high by value")
            << entry(snapshot(reading(181))) << u"181"_s << u"high"_s << u"Glucose 181 mg/dL"_s;
        QTest::newRow("in range at 70") << entry(snapshot(reading(70, steady))) << u"70 →"_s << u"in-range"_s
                                        << u"Glucose 70 mg/dL, steady"_s;
        QTest::newRow("in range at 180, 900 s old")
            << entry(snapshot(reading(180, TrendArrow::rising)), 900'000) << u"180 ↗"_s << u"in-range"_s
            << u"Glucose 180 mg/dL, rising"_s;
        QTest::newRow("in range, mmol/L") << entry(snapshot(reading(100, steady), {}, GlucoseUnit::mmolPerL))
                                          << u"5.5 →"_s << u"in-range"_s << u"Glucose 5.5 mmol/L, steady"_s;
        QTest::newRow("stale and in range")
            << entry(snapshot(reading(124, steady)), 900'001) << u"124 → \u26A0\uFE0E"_s
            << u"in-range\",\"stale"_s << u"Glucose 124 mg/dL, steady, data is stale"_s;
        GlucoseEntry alerting = entry(snapshot(reading(62, steady)));
        alerting.snapshot->alert = AlertKind::low;
        QTest::newRow("alert") << alerting << u"62 →"_s << u"low\",\"alert"_s
                               << u"Low: 62 →\\nGlucose 62 mg/dL, steady"_s;
        QTest::newRow("no snapshot") << GlucoseEntry{taken, std::nullopt} << u"–"_s << u"none"_s
                                     << u"Glinta: no glucose data"_s;
        GlucoseEntry withoutLatest = entry(snapshot(reading(124)));
        withoutLatest.snapshot->latest.reset();
        QTest::newRow("snapshot without a reading")
            << withoutLatest << u"–"_s << u"none"_s << u"Glinta: no glucose data"_s;
    }

    void lines()
    {
        const auto [entry, plain, classes, tooltip] =
            fetch<GlucoseEntry, QString, QString, QString>("entry", "plain", "classes", "tooltip");
        QCOMPARE(statusLine(entry, StatusLineFormat::plain), plain);
        QCOMPARE(statusLine(entry, StatusLineFormat::waybar),
                 uR"({"class":["%1"],"text":"%2","tooltip":"%3"})"_s.arg(classes, plain, tooltip));
    }

    void printsChangesAndOnceAMinute()
    {
        QBuffer output;
        QVERIFY(output.open(QIODevice::WriteOnly));
        StatusLinePrinter printer(&output, StatusLineFormat::plain);
        const auto at = [](double mgPerDl, qint64 seconds) {
            return entry(snapshot(reading(mgPerDl)), seconds * 1000);
        };
        printer.show(at(124, 60));
        printer.show(at(124, 70));                                    // a reload with nothing new
        printer.show(at(130, 80));                                    // new data
        printer.show(at(130, 139));                                   // the minute tick after it
        printer.show(GlucoseEntry{taken.addSecs(145), std::nullopt}); // signed out
        QCOMPARE(QString::fromUtf8(output.data()), u"124\n130\n130\n–\n"_s);
    }

    // Reached from a face with a reading: the entry replaces the face.
    void emptyState_data()
    {
        columns<WidgetFamily, std::optional<GlucoseSnapshot>>("family", "published");
        GlucoseSnapshot noLatest = snapshot(reading(100), history({100, 110}));
        noLatest.latest.reset();
        QTest::newRow("small, nothing published") << small << std::optional<GlucoseSnapshot>();
        QTest::newRow("large, history without latest") << large << std::optional(noLatest);
    }

    void emptyState()
    {
        const auto [family, published] =
            fetch<WidgetFamily, std::optional<GlucoseSnapshot>>("family", "published");
        GlucoseWidgetView view(entry(snapshot(reading(100), history({100}))), family);
        view.setEntry(entry(published));
        QCOMPARE(text(&view, u"emptyText"_s), u"Open Glinta and sign in"_s);
        QVERIFY(!view.findChild<QLabel *>(u"emptySymbol"_s)->pixmap().isNull());
        QVERIFY(!view.findChild<QLabel *>(u"value"_s) && !view.chart());
    }

    // Age and staleness at the entry's instant; colour by the service's flags, then the snapshot's own range.
    void face_data()
    {
        // shown: header, value and unit, age
        columns<GlucoseSnapshot, qint64, QString, bool, QString, QString>(
            "published", "msAfterReading", "shown", "stale", "colour", "spokenTrend");
        const auto mg = GlucoseUnit::mgPerDl;
        GlucoseSnapshot named = snapshot(reading(250, {}, false, true));
        named.connectionName = u"Mum"_s;
        QTest::newRow("named, isLow above range")
            << named << 60'000LL << u"Mum|250 mg/dL|1 min ago"_s << false << u"red"_s << QString();
        QTest::newRow("isHigh in range, exactly 15 min")
            << snapshot(reading(120, {}, true)) << 900'000LL << u"Glinta|120 mg/dL|15 min ago"_s << false
            << u"orange"_s << QString();
        QTest::newRow("exactly 70, rising, a millisecond later")
            << snapshot(reading(70, TrendArrow::rising)) << 900'001LL << u"Glinta|70 mg/dL|15 min ago"_s
            << true << u"primary"_s << u"rising"_s;
        QTest::newRow("exactly 180") << snapshot(reading(180)) << 60'000LL << u"Glinta|180 mg/dL|1 min ago"_s
                                     << false << u"primary"_s << QString();
        QTest::newRow("below its own 80") << snapshot(reading(75), {}, mg, 80, 160) << 60'000LL
                                          << u"Glinta|75 mg/dL|1 min ago"_s << false << u"red"_s << QString();
        QTest::newRow("above its own 160")
            << snapshot(reading(165), {}, mg, 80, 160) << 60'000LL << u"Glinta|165 mg/dL|1 min ago"_s << false
            << u"orange"_s << QString();
        QTest::newRow("mmol/L") << snapshot(reading(100), {}, GlucoseUnit::mmolPerL) << 60'000LL
                                << u"Glinta|5.5 mmol/L|1 min ago"_s << false << u"primary"_s << QString();
    }

    void face()
    {
        const auto [published, msAfterReading, colour, spokenTrend] =
            fetch<GlucoseSnapshot, qint64, QString, QString>("published", "msAfterReading", "colour",
                                                             "spokenTrend");
        GlucoseWidgetView view(entry(snapshot(reading(150))));
        view.setEntry(entry(published, msAfterReading));
        const QString shown = text(&view, u"connection"_s) + u'|' + text(&view, u"value"_s) + u' ' +
                              text(&view, u"unit"_s) + u'|' + text(&view, u"age"_s);
        QTEST(shown, "shown");
        const auto *stale = view.findChild<QLabel *>(u"stale"_s);
        QTEST(!stale->isHidden(), "stale");
        QCOMPARE(stale->accessibleName(), u"Data is stale"_s);
        // No trend, no arrow and nothing for a screen reader to say.
        QCOMPARE(!view.findChild<QLabel *>(u"trend"_s)->isHidden(), !spokenTrend.isEmpty());
        QCOMPARE(view.findChild<QLabel *>(u"trend"_s)->accessibleName(), spokenTrend);
        // Set after the value is there, so that a scheme change recolours it.
        view.setPalette(style::darkPalette());
        QCOMPARE(ink(&view, u"value"_s), tint(style::darkPalette(), colour));
    }

    // The chart in the medium and large faces, the statistics in the large one; the size asked for wins
    // over the host's. Both count against the snapshot's own range, in its unit, over its history.
    void faceFollowsFamily_data()
    {
        columns<OptionalFamily, WidgetFamily, WidgetFamily, QStringList, double>(
            "familyOverride", "hostFamily", "family", "statistics", "chartTop");
        const QStringList statistics{u"7.6"_s, u"50%"_s, u"4"_s};
        const double top = 270 / 18.0182;
        QTest::newRow("small") << OptionalFamily() << small << small << QStringList() << 0.0;
        QTest::newRow("medium") << OptionalFamily() << medium << medium << QStringList() << top;
        QTest::newRow("large") << OptionalFamily() << large << large << statistics << top;
        QTest::newRow("override large wins") << OptionalFamily(large) << small << large << statistics << top;
    }

    void faceFollowsFamily()
    {
        const auto [familyOverride, hostFamily] =
            fetch<OptionalFamily, WidgetFamily>("familyOverride", "hostFamily");
        GlucoseWidgetView view(
            entry(snapshot(reading(100), history({75, 100, 250, 120}), GlucoseUnit::mmolPerL, 80, 160)),
            familyOverride);
        view.setFamily(hostFamily);
        QTEST(view.family(), "family");
        QStringList statistics;
        if (view.findChild<QLabel *>(u"statisticsCaption"_s))
            statistics = {text(&view, u"average"_s), text(&view, u"inRange"_s),
                          text(&view, u"readingCount"_s)};
        QTEST(statistics, "statistics");
        QTEST(view.chart() ? view.chart()->yDomain().upper : 0.0, "chartTop");
    }

    // The desktop window (the offscreen platform's one screen is 800×800) in the size and place it had.
    void windowRestoresPlaceAndSize_data()
    {
        columns<QVariant, QString, OptionalFamily, QRect>("savedPosition", "savedFamily", "asked",
                                                          "geometry");
        QTest::newRow("first start") << QVariant() << QString() << OptionalFamily()
                                     << QRect(606, 24, 170, 170);
        QTest::newRow("size asked for") << QVariant(QPoint(100, 120)) << u"medium"_s << OptionalFamily(large)
                                        << QRect(100, 120, 364, 364);
        QTest::newRow("screen gone") << QVariant(QPoint(2500, 900)) << u"medium"_s << OptionalFamily()
                                     << QRect(436, 630, 364, 170);
        QTest::newRow("unknown size")
            << QVariant(QPoint(10, 10)) << u"huge"_s << OptionalFamily() << QRect(10, 10, 170, 170);
    }

    void windowRestoresPlaceAndSize()
    {
        const auto [savedPosition, savedFamily, asked] =
            fetch<QVariant, QString, OptionalFamily>("savedPosition", "savedFamily", "asked");
        QTemporaryDir dir;
        QSettings settings(dir.filePath(u"widget.ini"_s), QSettings::IniFormat);
        if (savedPosition.isValid())
            settings.setValue(u"widget/position"_s, savedPosition);
        if (!savedFamily.isEmpty())
            settings.setValue(u"widget/family"_s, savedFamily);
        const DesktopWidgetWindow window(&settings, asked);
        QTEST(window.geometry(), "geometry");
        QCOMPARE(window.view()->family(), window.family());
    }

    // Large does not fit where small was: it moves left to stay on the screen. Both choices are kept.
    void windowSizeMenuAndDragAreRemembered()
    {
        QTemporaryDir dir;
        QSettings settings(dir.filePath(u"widget.ini"_s), QSettings::IniFormat);
        settings.setValue(u"widget/position"_s, QPoint(600, 50));
        DesktopWidgetWindow window(&settings);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QAction *large = window.contextMenu()->actions().value(2);
        QCOMPARE(large->text(), u"Large"_s);
        large->trigger();
        QCOMPARE(window.geometry(), QRect(436, 50, 364, 364));
        QVERIFY(large->isChecked() && !window.contextMenu()->actions()[0]->isChecked());
        QTest::mousePress(&window, Qt::LeftButton, {}, QPoint(40, 40));
        QTest::mouseMove(&window, QPoint(10, 60));
        QTest::mouseRelease(&window, Qt::LeftButton, {}, QPoint(10, 60));
        QCOMPARE(DesktopWidgetWindow(&settings).geometry(), QRect(406, 70, 364, 364));
    }
};

QTEST_MAIN(TestWidget)
#include "tst_widget.moc"
