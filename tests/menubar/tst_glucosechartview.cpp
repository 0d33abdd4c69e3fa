#include "GlucoseChartView.h"
#include "GlucoseSnapshot.h"
#include "GlucoseStore.h"
#include "LiveStore.h"
#include "SystemStyle.h"

#include <QLabel>
#include <QLayout>
#include <QTest>
#include <QtCharts/QAreaSeries>
#include <QtCharts/QChart>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>

#include <qcoro/qcorotask.h>

#include <algorithm>

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
std::unique_ptr<GlucoseStore> storeWith(const QList<GlucoseReading> &history, std::optional<double> latest)
{
    GlucoseSnapshot snapshot;
    snapshot.history = history;
    if (latest)
        snapshot.latest =
            GlucoseReading{history.value(history.size() - 1, reading(0, 0)).date, *latest, {}, false, false};
    return GlucoseStore::fromSnapshot(snapshot);
}

template <typename T> QList<T *> seriesOf(const GlucoseChartView &view)
{
    QList<T *> found;
    for (QAbstractSeries *series : view.chart()->series()) {
        if (auto *typed = qobject_cast<T *>(series))
            found.append(typed);
    }
    return found;
}

QList<QPointF> points(const GlucoseChartView &view)
{
    QList<QPointF> all;
    for (const QXYSeries *series : seriesOf<QXYSeries>(view))
        all += series->points();
    for (const QAreaSeries *band : seriesOf<QAreaSeries>(view))
        all += band->upperSeries()->points() + band->lowerSeries()->points();
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

    // Band first, then one line per segment, then the dot; colours from the palette in use, in both schemes.
    void marks_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<double>("latest");
        QTest::addColumn<QStringList>("tones");
        QTest::newRow("one reading") << QList{reading(0, 120)} << 120.0
                                     << QStringList{u"accent"_s, u"dot accent"_s};
        QTest::newRow("stays above, latest exactly 70")
            << QList{reading(0, 100), reading(5, 70), reading(10, 200)} << 70.0
            << QStringList{u"accent"_s, u"dot accent"_s};
        QTest::newRow("dips and recovers, latest 69.9")
            << QList{reading(0, 100), reading(10, 60), reading(20, 50), reading(30, 100)} << 69.9
            << QStringList{u"accent"_s, u"red"_s, u"accent"_s, u"dot red"_s};
        QTest::newRow("starts below") << QList{reading(0, 55), reading(10, 85)} << 85.0
                                      << QStringList{u"red"_s, u"accent"_s, u"dot accent"_s};
    }

    void marks()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(double, latest);
        auto store = storeWith(history, latest);
        GlucoseChartView view(store.get());
        const qreal start = qreal(history.first().date.toMSecsSinceEpoch());
        const qreal end = qreal(history.last().date.toMSecsSinceEpoch());
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            const QList<QAbstractSeries *> all = view.chart()->series();
            const auto *band = qobject_cast<QAreaSeries *>(all.first());
            QCOMPARE(band->upperSeries()->points(), (QList<QPointF>{{start, 180}, {end, 180}}));
            QCOMPARE(band->lowerSeries()->points().first().y(), 70.0);

            QStringList tones;
            for (QAbstractSeries *series : all.mid(1)) {
                const QColor colour = static_cast<QXYSeries *>(series)->color();
                const QString tone = colour == style::red(palette)      ? u"red"_s
                                     : colour == style::accent(palette) ? u"accent"_s
                                                                        : colour.name();
                tones += (qobject_cast<QScatterSeries *>(series) ? u"dot "_s : QString()) + tone;
            }
            QTEST(tones, "tones");
            QCOMPARE(seriesOf<QScatterSeries>(view).first()->points(), QList<QPointF>{QPointF(end, latest)});
            const auto *axis = qobject_cast<QValueAxis *>(view.chart()->axes(Qt::Vertical).value(0));
            QCOMPARE(axis->labelsBrush().color(), style::secondaryText(palette));
        }
    }

    // The history arriving and going away again, on a real store.
    void followsHistory()
    {
        LiveStore live;
        GlucoseChartView view(live.store.get());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QVERIFY(view.showsEmptyState());
        const auto *label = view.findChild<QLabel *>();
        QVERIFY(label->isVisible());
        QCOMPARE(label->text(), u"No readings yet"_s);
        QCoro::waitFor(live.store->signIn(live.account().email, live.account().password)); // never throws
        QTRY_VERIFY(!live.store->history().isEmpty());
        QVERIFY(!view.showsEmptyState());
        QCOMPARE(seriesOf<QScatterSeries>(view).size(), 1);
        QVERIFY(!label->isVisible());
        live.store->signOut();
        QVERIFY(view.showsEmptyState() && label->isVisible());
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
        const QList<QPointF> after = points(view);
        QCOMPARE(after.size(), before.size());
        for (qsizetype i = 0; i < after.size(); ++i)
            QCOMPARE(after.at(i), QPointF(before.at(i).x(), before.at(i).y() / f));
    }

    // Drawn off screen, as picture export does: the part below 70 shows in red, and only then.
    void rendersRedBelowLine_data()
    {
        QTest::addColumn<QList<double>>("values");
        QTest::addColumn<bool>("expectRed");
        QTest::newRow("dip") << QList<double>{150, 45, 45, 150} << true;
        QTest::newRow("no dip") << QList<double>{150, 95, 95, 150} << false;
    }

    void rendersRedBelowLine()
    {
        QFETCH(QList<double>, values);
        QList<GlucoseReading> history;
        for (const double value : values)
            history.append(reading(60 * int(history.size()), value));
        auto store = storeWith(history, values.last());
        GlucoseChartView view(store.get());
        view.setPalette(style::darkPalette());
        view.resize(320, 140);
        view.layout()->activate();
        QImage image(view.size() * 2, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(2);
        image.fill(Qt::transparent);
        view.QWidget::render(&image);

        // Opaque red, as the middle of a line stroke is; antialiased edges and the faint band are not.
        const QRgb red = style::red(view.palette()).rgb();
        int redPixels = 0;
        for (int y = 0; y < image.height(); ++y) {
            const auto *row = reinterpret_cast<const QRgb *>(image.constScanLine(y));
            redPixels += int(std::count(row, row + image.width(), red));
        }
        QTEST(redPixels > 20, "expectRed");
    }
};

QTEST_MAIN(TestGlucoseChartView)
#include "tst_glucosechartview.moc"