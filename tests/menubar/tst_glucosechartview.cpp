#include "LiveStore.h"
#include "TestSupport.h"
#include "menubar/GlucoseChartView.h"
#include "uikit/SystemStyle.h"

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using Geometry = GlucoseChartPainter::Geometry;

const QDateTime base(QDate(2024, 1, 15), QTime(10, 0), Qt::UTC);

QList<GlucoseReading> readings(const QList<double> &values)
{
    QList<GlucoseReading> all;
    for (const double value : values)
        all.append({base.addSecs(all.size() * 600), value, {}, false, false});
    return all;
}

QList<QPolygonF> lines(const GlucoseChartView &view)
{
    QList<QPolygonF> all;
    for (const Geometry::Line &line : view.painter().geometry().lines)
        all.append(line.points);
    return all;
}

} // namespace

class TestGlucoseChartView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Local whole hours over the readings' span, at the smallest of 2, 3 and 4 hours whose 36-pixel labels
    // fit: a zone whose offset has minutes (the test runs in one) shows whether "whole" means local.
    void hourTicks_data()
    {
        // to: the next day when earlier than from
        columns<QTime, QTime, qreal, QString>("from", "to", "width", "hours");
        const QTime pm(18, 10), am(6, 10);
        QTest::newRow("wide: every 2") << pm << am << 300.0 << u"20:00 22:00 00:00 02:00 04:00 06:00"_s;
        QTest::newRow("narrower: every 3") << pm << am << 200.0 << u"21:00 00:00 03:00 06:00"_s;
        QTest::newRow("narrow: every 4") << pm << am << 130.0 << u"20:00 00:00 04:00"_s;
        QTest::newRow("too narrow even for 4") << pm << am << 60.0 << u"20:00 00:00 04:00"_s;
        QTest::newRow("ends on hours")
            << QTime(12, 0) << QTime(18, 0) << 300.0 << u"12:00 14:00 16:00 18:00"_s;
        QTest::newRow("short, no even hour") << QTime(10, 20) << QTime(11, 40) << 300.0 << u"11:00"_s;
        QTest::newRow("no whole hour") << QTime(10, 20) << QTime(10, 50) << 300.0 << QString();
    }

    void hourTicks()
    {
        const auto [from, to, width] = fetch<QTime, QTime, qreal>("from", "to", "width");
        const QDate day = base.date();
        const QDateTime end(to < from ? day.addDays(1) : day, to, Qt::LocalTime);
        QStringList hours;
        for (const QDateTime &tick :
             GlucoseChartPainter::hourTicks({day, from, Qt::LocalTime}, end, width, 36))
            hours.append(tick.toLocalTime().toString(u"HH:mm"_s));
        QTEST(hours.join(u' '), "hours");
    }

    // Band and line span the readings edge to edge; one line per segment, meeting the next on the red line;
    // the newest reading's dot in its colour; the y range from the highest reading, in the store's unit.
    void marks_data()
    {
        // top: mg/dL
        columns<QList<GlucoseReading>, double, TargetRange, GlucoseUnit, QString, double>(
            "history", "latest", "targets", "unit", "tones", "top");
        const auto mg = GlucoseUnit::mgPerDl;
        QTest::newRow("above, latest 70")
            << readings({100, 70, 200}) << 70.0 << TargetRange{} << mg << u"accent, dot accent"_s << 220.0;
        QTest::newRow("dips, latest 69.9") << readings({100, 60, 50, 100}) << 69.9 << TargetRange{} << mg
                                           << u"accent red accent, dot red"_s << 220.0;
        QTest::newRow("mmol/L, up to 300") << readings({55, 300}) << 300.0 << TargetRange{}
                                           << GlucoseUnit::mmolPerL << u"red accent, dot accent"_s << 320.0;
        QTest::newRow("own range 80-250") << readings({100, 75, 100}) << 79.9 << TargetRange{80, 250} << mg
                                          << u"accent red accent, dot red"_s << 270.0;
    }

    void marks()
    {
        const auto [history, latest, targets, unit, top] =
            fetch<QList<GlucoseReading>, double, TargetRange, GlucoseUnit, double>("history", "latest",
                                                                                   "targets", "unit", "top");
        GlucoseSnapshot snapshot;
        snapshot.latest = GlucoseReading{history.constLast().date, latest, {}, false, false};
        snapshot.history = history;
        snapshot.unit = unit;
        snapshot.targets = targets;
        const auto store = GlucoseStore::fromSnapshot(snapshot);
        GlucoseChartView view(store.get());
        const QImage image = view.grab().toImage(); // never shown, as picture export draws it
        const QPalette palette = view.palette();
        const Geometry &g = view.painter().geometry();
        const double f = unit == GlucoseUnit::mmolPerL ? 18.0182 : 1;
        QCOMPARE(g.yDomain, (GlucoseChartDomain{40 / f, top / f}));
        const auto y = [&](double v) { return g.plot.bottom() - g.plot.height() * (v - 40) / (top - 40); };
        QCOMPARE(*g.band, QRectF(QPointF(g.plot.left(), y(targets.highMgPerDl)),
                                 QPointF(g.plot.right(), y(targets.lowMgPerDl))));
        for (qsizetype i = 1; i < g.lines.size(); ++i) {
            QCOMPARE(g.lines[i].points.first(), g.lines[i - 1].points.last());
            QCOMPARE(g.lines[i].points.first().y(), y(targets.lowMgPerDl));
        }
        QCOMPARE(*g.dot, QPointF(g.plot.right(), y(latest)));
        QStringList tones;
        for (const Geometry::Line &line : g.lines)
            tones.append(line.isBelowRedLine ? u"red"_s : u"accent"_s);
        const QColor dot = image.pixelColor(g.dot->toPoint());
        tones.last() += dot == style::red(palette)      ? u", dot red"_s
                        : dot == style::accent(palette) ? u", dot accent"_s
                                                        : dot.name();
        QTEST(tones.join(u' '), "tones");
    }

    // Made before any reading, on a real store: the open chart draws the first readings with their time
    // axis; closed, it shows a new reading once open again; signing out empties it.
    void followsHistory()
    {
        LiveStore live;
        GlucoseChartView view(live.store.get());
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view) && view.showsEmptyState());
        QCoro::waitFor(live.store->signIn(live.account().email, live.account().password)); // never throws
        QTRY_VERIFY(!view.showsEmptyState() && view.painter().geometry().dot);
        QStringList hours;
        for (const Geometry::Tick &tick : view.painter().geometry().timeTicks)
            hours.append(tick.label.text());
        QVERIFY2(hours.size() >= 3 && hours.filter(u":00"_s) == hours, qPrintable(hours.join(u' ')));

        view.hide();
        const QList<QPolygonF> before = lines(view);
        live.service.advance(std::chrono::minutes(5));
        QCoro::waitFor(live.store->refresh());
        view.show();
        QTRY_VERIFY(lines(view) != before);
        live.store->signOut();
        QTRY_VERIFY(view.showsEmptyState());
    }
};

QTEST_MAIN(TestGlucoseChartView)
#include "tst_glucosechartview.moc"
