#include "LiveStore.h"
#include "menubar/GlucoseChartView.h"
#include "snapshot/GlucoseSnapshot.h"
#include "store/GlucoseStore.h"
#include "uikit/SystemStyle.h"

#include <QLabel>
#include <QTest>
#include <QtCharts/QAreaSeries>
#include <QtCharts/QChart>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <qcoro/qcorotask.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), Qt::UTC);
constexpr double f = 18.0182;

GlucoseReading reading(int minutes, double mgPerDl)
{
    return {base.addSecs(minutes * 60), mgPerDl, std::nullopt, false, false};
}

// The latest reading is taken at the last history date.
std::unique_ptr<GlucoseStore> storeWith(const QList<GlucoseReading> &history, double latest,
                                        const TargetRange &targets = {})
{
    GlucoseSnapshot snapshot;
    snapshot.targets = targets;
    snapshot.history = history;
    snapshot.latest =
        GlucoseReading{history.value(history.size() - 1, reading(0, 0)).date, latest, {}, false, false};
    return GlucoseStore::fromSnapshot(snapshot);
}

// The dot for the latest reading is drawn last.
const QScatterSeries *dot(const GlucoseChartView &view)
{
    return qobject_cast<QScatterSeries *>(view.chart()->series().constLast());
}

// Every point plotted, the band's included.
QList<QPointF> points(const GlucoseChartView &view)
{
    QList<QPointF> all;
    for (QAbstractSeries *series : view.chart()->series()) {
        if (const auto *band = qobject_cast<QAreaSeries *>(series))
            all += band->upperSeries()->points() + band->lowerSeries()->points();
        else
            all += static_cast<QXYSeries *>(series)->points();
    }
    return all;
}

} // namespace

class TestGlucoseChartView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A latest reading without history is still the empty state, with nothing to fit the time axis to.
    void latestWithoutHistory()
    {
        auto store = storeWith({}, 120);
        GlucoseChartView view(store.get());
        QVERIFY(view.showsEmptyState());
        QCOMPARE(view.chart(), nullptr);
    }

    // Band first, then one line per segment, then the dot; colours from the palette in use.
    void marks_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<double>("latest");
        QTest::addColumn<QStringList>("tones");
        QTest::addColumn<double>("low");
        QTest::addColumn<double>("high");
        QTest::newRow("stays above, latest exactly 70")
            << QList{reading(0, 100), reading(5, 70), reading(10, 200)} << 70.0
            << QStringList{u"accent"_s, u"dot accent"_s} << 70.0 << 180.0;
        QTest::newRow("dips and recovers, latest 69.9")
            << QList{reading(0, 100), reading(10, 60), reading(20, 50), reading(30, 100)} << 69.9
            << QStringList{u"accent"_s, u"red"_s, u"accent"_s, u"dot red"_s} << 70.0 << 180.0;
        QTest::newRow("starts below") << QList{reading(0, 55), reading(10, 85)} << 85.0
                                      << QStringList{u"red"_s, u"accent"_s, u"dot accent"_s} << 70.0 << 180.0;
        QTest::newRow("own range: red below its low, latest 79.9")
            << QList{reading(0, 100), reading(10, 75), reading(20, 100)} << 79.9
            << QStringList{u"accent"_s, u"red"_s, u"accent"_s, u"dot red"_s} << 80.0 << 250.0;
    }

    void marks()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(double, latest);
        QFETCH(double, low);
        QFETCH(double, high);
        auto store = storeWith(history, latest, {low, high});
        GlucoseChartView view(store.get());
        const QPalette palette = style::darkPalette();
        view.setPalette(palette);
        const qreal start = qreal(history.first().date.toMSecsSinceEpoch());
        const qreal end = qreal(history.last().date.toMSecsSinceEpoch());
        const QList<QAbstractSeries *> all = view.chart()->series();
        const auto *band = qobject_cast<QAreaSeries *>(all.first());
        QCOMPARE(band->upperSeries()->points(), (QList<QPointF>{{start, high}, {end, high}}));
        QCOMPARE(band->lowerSeries()->points().first().y(), low);
        QStringList tones;
        for (QAbstractSeries *series : all.mid(1)) {
            const QColor colour = static_cast<QXYSeries *>(series)->color();
            const QString tone = colour == style::red(palette)      ? u"red"_s
                                 : colour == style::accent(palette) ? u"accent"_s
                                                                    : colour.name();
            tones += (qobject_cast<QScatterSeries *>(series) ? u"dot "_s : QString()) + tone;
        }
        QTEST(tones, "tones");
        QCOMPARE(dot(view)->points(), QList<QPointF>{QPointF(end, latest)});
    }

    // The history arriving and going away again, on a real store.
    void followsHistory()
    {
        LiveStore live;
        GlucoseChartView view(live.store.get());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const auto *label = view.findChild<QLabel *>();
        QVERIFY(view.showsEmptyState() && label->isVisible());
        QCOMPARE(label->text(), u"No readings yet"_s);
        QCoro::waitFor(live.store->signIn(live.account().email, live.account().password)); // never throws
        // The chart takes a poll in from the event loop, after the store has it.
        QTRY_VERIFY(!live.store->history().isEmpty() && !view.showsEmptyState() && !label->isVisible());
        QVERIFY(dot(view));
        live.store->signOut();
        QTRY_VERIFY(view.showsEmptyState() && label->isVisible());
    }

    // With the panel closed a poll leaves the chart alone; opening it brings it up to date. A unit switch
    // converts everything plotted, the band and the value axis, and leaves nothing of the old drawing.
    void waitsWhileHidden()
    {
        auto store = storeWith({reading(0, 100), reading(10, 300), reading(20, 60)}, 60);
        GlucoseChartView view(store.get());
        const auto *axis = qobject_cast<QValueAxis *>(view.chart()->axes(Qt::Vertical).value(0));
        QCOMPARE(axis->min(), 40.0);
        QCOMPARE(axis->max(), 320.0);
        const QList<QPointF> before = points(view);
        const qsizetype series = view.chart()->series().size();

        store->setUnit(GlucoseUnit::mmolPerL);
        QCOMPARE(points(view), before);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QCOMPARE(view.chart()->series().size(), series);
        QCOMPARE(axis->min(), 40 / f);
        QCOMPARE(axis->max(), 320 / f);
        QList<QPointF> converted;
        for (const QPointF &point : before)
            converted.append({point.x(), point.y() / f});
        QCOMPARE(points(view), converted);
    }
};

QTEST_MAIN(TestGlucoseChartView)
#include "tst_glucosechartview.moc"