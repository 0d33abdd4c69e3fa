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

GlucoseReading reading(int minutes, double mgPerDl)
{
    return {base.addSecs(minutes * 60), mgPerDl, std::nullopt, false, false};
}

std::unique_ptr<GlucoseStore> storeWith(const QList<GlucoseReading> &history,
                                        std::optional<GlucoseReading> latest = std::nullopt,
                                        GlucoseUnit unit = GlucoseUnit::mgPerDl)
{
    GlucoseSnapshot snapshot;
    snapshot.history = history;
    snapshot.latest = latest;
    snapshot.unit = unit;
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

QValueAxis *valueAxis(const GlucoseChartView &view)
{
    return qobject_cast<QValueAxis *>(view.chart()->axes(Qt::Vertical).value(0));
}

qreal ms(const QDateTime &date)
{
    return qreal(date.toMSecsSinceEpoch());
}

} // namespace

class TestGlucoseChartView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyState_data()
    {
        QTest::addColumn<bool>("withLatest");
        QTest::newRow("nothing at all") << false;
        QTest::newRow("latest reading but no history") << true;
    }

    void emptyState()
    {
        QFETCH(bool, withLatest);
        auto store = storeWith({}, withLatest ? std::optional(reading(0, 120)) : std::nullopt);
        GlucoseChartView view(store.get());
        QVERIFY(view.showsEmptyState());
        QCOMPARE(view.chart(), nullptr);
        const auto labels = view.findChildren<QLabel *>();
        QCOMPARE(labels.size(), 1);
        QCOMPARE(labels.first()->text(), u"No readings yet"_s);
        QVERIFY(labels.first()->isVisibleTo(&view));
        QCOMPARE(view.accessibleName(), u"Glucose history chart"_s);
        QCOMPARE(view.height(), 140);
    }

    // Band first, then one line per segment, then the dot; colours from the palette in use.
    void marks_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<QList<bool>>("below");
        QTest::addColumn<QList<int>>("pointCounts");
        QTest::addColumn<double>("latest"); // taken at the last history date
        QTest::addColumn<bool>("redDot");

        QTest::newRow("one reading") << QList{reading(0, 120)} << QList{false} << QList{1} << 120.0 << false;
        QTest::newRow("stays above, latest exactly 70")
            << QList{reading(0, 100), reading(5, 70), reading(10, 200)} << QList{false} << QList{3} << 70.0
            << false;
        QTest::newRow("dips and recovers, latest 69.9")
            << QList{reading(0, 100), reading(10, 60), reading(20, 50), reading(30, 100)}
            << QList{false, true, false} << QList{2, 4, 2} << 69.9 << true;
        QTest::newRow("starts below")
            << QList{reading(0, 55), reading(10, 85)} << QList{true, false} << QList{2, 2} << 85.0 << false;
    }

    void marks()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(QList<bool>, below);
        QFETCH(QList<int>, pointCounts);
        QFETCH(double, latest);
        QFETCH(bool, redDot);

        const QDateTime end = history.last().date;
        auto store = storeWith(history, GlucoseReading{end, latest, std::nullopt, false, false});
        GlucoseChartView view(store.get());
        const QPalette palette = view.palette();
        const QList<QAbstractSeries *> all = view.chart()->series();
        QCOMPARE(all.size(), below.size() + 2);

        const auto *band = qobject_cast<QAreaSeries *>(all.first());
        QVERIFY(band);
        QCOMPARE(band->upperSeries()->points(),
                 (QList<QPointF>{{ms(history.first().date), 180}, {ms(end), 180}}));
        QCOMPARE(band->lowerSeries()->points().first().y(), 70.0);
        QColor faintGreen = style::green(palette);
        faintGreen.setAlphaF(0.1);
        QCOMPARE(band->brush().color(), faintGreen);

        for (qsizetype i = 0; i < below.size(); ++i) {
            const auto *line = qobject_cast<QLineSeries *>(all.at(i + 1));
            QVERIFY(line);
            QCOMPARE(line->points().size(), pointCounts.at(i));
            QCOMPARE(line->pen().color(), below.at(i) ? style::red(palette) : style::accent(palette));
            if (i > 0) { // neighbours meet exactly on the red line
                const auto *previous = static_cast<QLineSeries *>(all.at(i));
                QCOMPARE(line->points().first(), previous->points().last());
                QCOMPARE(line->points().first().y(), 70.0);
            }
        }
        QCOMPARE(static_cast<QLineSeries *>(all.at(1))->points().first(),
                 QPointF(ms(history.first().date), history.first().mgPerDl));

        const auto *dot = qobject_cast<QScatterSeries *>(all.last());
        QVERIFY(dot);
        QCOMPARE(dot->points(), QList<QPointF>{QPointF(ms(end), latest)});
        QCOMPARE(dot->color(), redDot ? style::red(palette) : style::accent(palette));
    }

    void scales_data()
    {
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("highest");
        QTest::addColumn<double>("bottom");
        QTest::addColumn<double>("top");
        QTest::addColumn<double>("bandLow");
        QTest::addColumn<double>("bandHigh");
        QTest::addColumn<double>("plottedHighest");

        const auto mg = GlucoseUnit::mgPerDl;
        const auto mmol = GlucoseUnit::mmolPerL;
        const double f = 18.0182;
        QTest::newRow("mg/dL") << mg << 180.0 << 40.0 << 220.0 << 70.0 << 180.0 << 180.0;
        QTest::newRow("mg/dL, 300 raises the top") << mg << 300.0 << 40.0 << 320.0 << 70.0 << 180.0 << 300.0;
        QTest::newRow("mmol/L") << mmol << 180.0 << 40 / f << 220 / f << 70 / f << 180 / f << 180 / f;
        QTest::newRow("mmol/L, 300") << mmol << 300.0 << 40 / f << 320 / f << 70 / f << 180 / f << 300 / f;
    }

    void scales()
    {
        QFETCH(GlucoseUnit, unit);
        QFETCH(double, highest);
        QFETCH(double, bottom);
        QFETCH(double, top);
        QFETCH(double, bandLow);
        QFETCH(double, bandHigh);
        QFETCH(double, plottedHighest);

        auto store = storeWith({reading(0, 100), reading(10, highest), reading(20, 120)}, std::nullopt, unit);
        GlucoseChartView view(store.get());
        QCOMPARE(valueAxis(view)->min(), bottom);
        QCOMPARE(valueAxis(view)->max(), top);
        const QAreaSeries *band = seriesOf<QAreaSeries>(view).value(0);
        QVERIFY(band);
        QCOMPARE(band->lowerSeries()->points().first().y(), bandLow);
        QCOMPARE(band->upperSeries()->points().last().y(), bandHigh);
        QCOMPARE(seriesOf<QLineSeries>(view).first()->points().at(1).y(), plottedHighest);
    }

    void unitSwitchRedraws()
    {
        auto store = storeWith({reading(0, 100), reading(10, 60), reading(20, 100)}, reading(20, 100));
        GlucoseChartView view(store.get());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QList<QPointF> before;
        for (const QLineSeries *line : seriesOf<QLineSeries>(view))
            before += line->points();

        store->setUnit(GlucoseUnit::mmolPerL);
        QCOMPARE(view.chart()->series().size(), 5); // nothing of the old drawing left behind
        QList<QPointF> after;
        for (const QLineSeries *line : seriesOf<QLineSeries>(view))
            after += line->points();
        QCOMPARE(after.size(), before.size());
        for (qsizetype i = 0; i < after.size(); ++i)
            QCOMPARE(after.at(i), QPointF(before.at(i).x(), before.at(i).y() / 18.0182));
        QCOMPARE(seriesOf<QScatterSeries>(view).first()->points().first().y(), 100 / 18.0182);
    }

    // The history arriving and going away again, on a real store.
    void followsHistory()
    {
        LiveStore live;
        GlucoseChartView view(live.store.get());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QVERIFY(view.showsEmptyState());
        QCoro::waitFor(live.store->signIn(live.account().email, live.account().password)); // never throws
        QTRY_VERIFY(!live.store->history().isEmpty());
        QVERIFY(!view.showsEmptyState());
        QCOMPARE(seriesOf<QScatterSeries>(view).size(), 1);

        live.store->signOut();
        QVERIFY(view.showsEmptyState());
    }

    // With the panel closed a poll leaves the chart alone; opening it brings it up to date.
    void waitsWhileHidden()
    {
        auto store = storeWith({reading(0, 100), reading(10, 60), reading(20, 100)}, reading(20, 100));
        GlucoseChartView view(store.get());
        store->setUnit(GlucoseUnit::mmolPerL);
        QCOMPARE(seriesOf<QScatterSeries>(view).first()->points().first().y(), 100.0);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QCOMPARE(seriesOf<QScatterSeries>(view).first()->points().first().y(), 100 / 18.0182);
    }

    void followsPalette()
    {
        auto store = storeWith({reading(0, 100), reading(10, 60), reading(20, 100)}, reading(20, 100));
        GlucoseChartView view(store.get());
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            const QList<QLineSeries *> lines = seriesOf<QLineSeries>(view);
            QCOMPARE(lines.at(0)->pen().color(), style::accent(palette));
            QCOMPARE(lines.at(1)->pen().color(), style::red(palette));
            QCOMPARE(valueAxis(view)->labelsBrush().color(), style::secondaryText(palette));
        }
    }

    // Drawn off screen, as picture export does, and in a panel on screen that then turns dark: the part
    // below 70 shows in red, and only then.
    void rendersRedBelowLine_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("history");
        QTest::addColumn<bool>("shownThenDark");
        QTest::addColumn<bool>("expectRed");
        const QList dip{reading(0, 150), reading(60, 45), reading(120, 45), reading(180, 150)};
        QTest::newRow("dip") << dip << false << true;
        QTest::newRow("dip, shown, then dark") << dip << true << true;
        QTest::newRow("no dip") << QList{reading(0, 150), reading(60, 95), reading(120, 95),
                                         reading(180, 150)}
                                << false << false;
    }

    void rendersRedBelowLine()
    {
        QFETCH(QList<GlucoseReading>, history);
        QFETCH(bool, shownThenDark);
        QFETCH(bool, expectRed);
        auto store = storeWith(history, history.last());
        QWidget panel;
        panel.setPalette(style::lightPalette());
        auto *view = new GlucoseChartView(store.get(), &panel);
        view->resize(320, 140);
        view->layout()->activate();
        if (shownThenDark) {
            panel.show();
            QVERIFY(QTest::qWaitForWindowExposed(&panel));
            panel.setPalette(style::darkPalette());
        }
        QImage image(view->size() * 2, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(2);
        image.fill(Qt::transparent);
        view->QWidget::render(&image);

        // Opaque red, as the middle of a line stroke is; antialiased edges and the faint band are not.
        const QRgb red = style::red(view->palette()).rgb();
        int redPixels = 0;
        for (int y = 0; y < image.height(); ++y) {
            const auto *row = reinterpret_cast<const QRgb *>(image.constScanLine(y));
            redPixels += int(std::count(row, row + image.width(), red));
        }
        QCOMPARE(redPixels > 20, expectRed);
    }
};

QTEST_MAIN(TestGlucoseChartView)
#include "tst_glucosechartview.moc"
