#include "GlucoseWidgetView.h"
#include "SystemStyle.h"
#include "WidgetChart.h"

#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using OptionalSnapshot = std::optional<GlucoseSnapshot>;
using OptionalFamily = std::optional<WidgetFamily>;

const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());
const auto small = WidgetFamily::systemSmall;
const auto medium = WidgetFamily::systemMedium;
const auto large = WidgetFamily::systemLarge;

GlucoseReading reading(double mgPerDl, bool isLow = false, bool isHigh = false,
                       std::optional<TrendArrow> trend = {})
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

GlucoseSnapshot snapshot(GlucoseReading latest, QList<GlucoseReading> readings = {})
{
    GlucoseSnapshot result;
    result.latest = latest;
    result.history = std::move(readings);
    result.updatedAt = taken;
    return result;
}

// Shown a minute after the reading unless told otherwise.
GlucoseEntry entry(OptionalSnapshot published, qint64 msAfterReading = 60'000)
{
    return {taken.addMSecs(msAfterReading), std::move(published)};
}

QString text(const QWidget &view, const QString &name)
{
    const auto *label = view.findChild<QLabel *>(name);
    return label ? label->text() : u"<missing>"_s;
}

bool shown(const QWidget &view, const QString &name)
{
    const auto *widget = view.findChild<QWidget *>(name);
    return widget && !widget->isHidden();
}

QColor textColor(const QWidget &view, const QString &name)
{
    return view.findChild<QLabel *>(name)->palette().color(QPalette::WindowText);
}

qsizetype pixelsOf(const QImage &image, const QColor &color)
{
    qsizetype count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += image.pixel(x, y) == color.rgba();
    }
    return count;
}

} // namespace

class TestGlucoseWidgetView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyState_data()
    {
        QTest::addColumn<WidgetFamily>("family");
        QTest::addColumn<OptionalSnapshot>("published");

        GlucoseSnapshot noLatest;
        noLatest.history = history({100, 110});
        for (const auto &[name, family] : {std::pair{"small", small}, {"medium", medium}, {"large", large}}) {
            QTest::addRow("%s, nothing published", name) << family << OptionalSnapshot();
            QTest::addRow("%s, history without latest", name) << family << OptionalSnapshot(noLatest);
        }
    }

    void emptyState()
    {
        QFETCH(WidgetFamily, family);
        QFETCH(OptionalSnapshot, published);

        const GlucoseWidgetView view(entry(published), family);
        QCOMPARE(text(view, u"emptyText"_s), u"Open Glinta and sign in"_s);
        QVERIFY(!view.findChild<QLabel *>(u"emptySymbol"_s)->pixmap().isNull());
        QVERIFY(!view.findChild<QLabel *>(u"value"_s));
        QVERIFY(!view.chart());
    }

    void headerAndAge_data()
    {
        QTest::addColumn<WidgetFamily>("family");
        QTest::addColumn<std::optional<QString>>("connectionName");
        QTest::addColumn<qint64>("msAfterReading");
        QTest::addColumn<QString>("header");
        QTest::addColumn<bool>("stale");
        QTest::addColumn<QString>("age");

        QTest::newRow("named, fresh")
            << small << std::optional(u"Mum"_s) << 60'000LL << u"Mum"_s << false << u"1 min ago"_s;
        QTest::newRow("unnamed, exactly 15 min")
            << small << std::optional<QString>() << 900'000LL << u"Glinta"_s << false << u"15 min ago"_s;
        QTest::newRow("a millisecond later")
            << medium << std::optional<QString>() << 900'001LL << u"Glinta"_s << true << u"15 min ago"_s;
        QTest::newRow("a later entry reads older")
            << large << std::optional(u"Mum"_s) << 3'720'000LL << u"Mum"_s << true << u"1 hr, 2 min ago"_s;
    }

    void headerAndAge()
    {
        QFETCH(WidgetFamily, family);
        QFETCH(std::optional<QString>, connectionName);
        QFETCH(qint64, msAfterReading);

        GlucoseSnapshot published = snapshot(reading(100));
        published.connectionName = connectionName;
        const GlucoseWidgetView view(entry(published, msAfterReading), family);
        QTEST(text(view, u"connection"_s), "header");
        QTEST(shown(view, u"stale"_s), "stale");
        QCOMPARE(view.findChild<QLabel *>(u"stale"_s)->accessibleName(), u"Data is stale"_s);
        QTEST(text(view, u"age"_s), "age");
    }

    void value_data()
    {
        QTest::addColumn<GlucoseReading>("latest");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("low");
        QTest::addColumn<double>("high");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("tint");
        QTest::addColumn<QString>("spokenTrend");

        const auto mg = GlucoseUnit::mgPerDl;
        QTest::newRow("isLow above range")
            << reading(250, true) << mg << 70.0 << 180.0 << u"250"_s << u"red"_s << QString();
        QTest::newRow("isHigh in range")
            << reading(120, false, true) << mg << 70.0 << 180.0 << u"120"_s << u"orange"_s << QString();
        QTest::newRow("exactly 70, rising") << reading(70, false, false, TrendArrow::rising) << mg << 70.0
                                            << 180.0 << u"70"_s << u"primary"_s << u"rising"_s;
        QTest::newRow("exactly 180") << reading(180) << mg << 70.0 << 180.0 << u"180"_s << u"primary"_s
                                     << QString();
        QTest::newRow("below its own 80")
            << reading(75) << mg << 80.0 << 160.0 << u"75"_s << u"red"_s << QString();
        QTest::newRow("above its own 160")
            << reading(165) << mg << 80.0 << 160.0 << u"165"_s << u"orange"_s << QString();
        QTest::newRow("mmol/L") << reading(100) << GlucoseUnit::mmolPerL << 70.0 << 180.0 << u"5.5"_s
                                << u"primary"_s << QString();
    }

    void value()
    {
        QFETCH(GlucoseReading, latest);
        QFETCH(GlucoseUnit, unit);
        QFETCH(double, low);
        QFETCH(double, high);
        QFETCH(QString, tint);
        QFETCH(QString, spokenTrend);

        GlucoseSnapshot published = snapshot(latest);
        published.unit = unit;
        published.targetLowMgPerDl = low;
        published.targetHighMgPerDl = high;
        GlucoseWidgetView view(entry(published));
        QTEST(text(view, u"value"_s), "value");
        QCOMPARE(text(view, u"unit"_s), rawValue(unit));
        // No trend, no arrow and nothing for a screen reader to say.
        QCOMPARE(shown(view, u"trend"_s), !spokenTrend.isEmpty());
        QCOMPARE(text(view, u"trend"_s).isEmpty(), spokenTrend.isEmpty());
        QCOMPARE(view.findChild<QLabel *>(u"trend"_s)->accessibleName(), spokenTrend);
        // Both schemes, so that a palette change recolours what is already there.
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            const QColor expected = tint == u"red"_s      ? style::red(palette)
                                    : tint == u"orange"_s ? style::orange(palette)
                                                          : style::primaryText(palette);
            QCOMPARE(textColor(view, u"value"_s), expected);
            QCOMPARE(textColor(view, u"unit"_s), style::secondaryText(palette));
        }
    }

    void statisticsAndChart_data()
    {
        QTest::addColumn<QList<GlucoseReading>>("readings");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<double>("low");
        QTest::addColumn<QStringList>("statistics");
        QTest::addColumn<double>("bottom");
        QTest::addColumn<double>("top");

        const auto mg = GlucoseUnit::mgPerDl;
        QTest::newRow("empty history") << QList<GlucoseReading>() << mg << 70.0
                                       << QStringList{u"\u2013"_s, u"\u2013"_s, u"0"_s} << 40.0 << 220.0;
        QTest::newRow("peak 250") << history({100, 250, 50}) << mg << 70.0
                                  << QStringList{u"133"_s, u"33%"_s, u"3"_s} << 40.0 << 270.0;
        QTest::newRow("peak 150") << history({150, 100}) << mg << 70.0
                                  << QStringList{u"125"_s, u"100%"_s, u"2"_s} << 40.0 << 220.0;
        // Counted against the snapshot's 80 to 160, not the panel's 70 to 180.
        QTest::newRow("own range") << history({75, 100, 170, 120}) << mg << 80.0
                                   << QStringList{u"116"_s, u"50%"_s, u"4"_s} << 40.0 << 220.0;
        QTest::newRow("mmol/L") << history({100, 110}) << GlucoseUnit::mmolPerL << 70.0
                                << QStringList{u"5.8"_s, u"100%"_s, u"2"_s} << 40 / 18.0182 << 220 / 18.0182;
    }

    void statisticsAndChart()
    {
        QFETCH(QList<GlucoseReading>, readings);
        QFETCH(GlucoseUnit, unit);
        QFETCH(double, low);
        QFETCH(QStringList, statistics);

        GlucoseSnapshot published = snapshot(reading(100), readings);
        published.unit = unit;
        published.targetLowMgPerDl = low;
        published.targetHighMgPerDl = low == 80.0 ? 160.0 : 180.0;
        const GlucoseWidgetView view(entry(published), large);
        QCOMPARE(
            (QStringList{text(view, u"average"_s), text(view, u"inRange"_s), text(view, u"readingCount"_s)}),
            statistics);
        QVERIFY(view.chart());
        QTEST(view.chart()->yDomain().lower, "bottom");
        QTEST(view.chart()->yDomain().upper, "top");
    }

    void faceFollowsFamily_data()
    {
        QTest::addColumn<OptionalFamily>("familyOverride");
        QTest::addColumn<WidgetFamily>("hostFamily");
        QTest::addColumn<WidgetFamily>("family");
        QTest::addColumn<bool>("chart");
        QTest::addColumn<bool>("statistics");

        QTest::newRow("small") << OptionalFamily() << small << small << false << false;
        QTest::newRow("medium") << OptionalFamily() << medium << medium << true << false;
        QTest::newRow("large") << OptionalFamily() << large << large << true << true;
        QTest::newRow("override large wins") << OptionalFamily(large) << small << large << true << true;
        QTest::newRow("override small wins") << OptionalFamily(small) << large << small << false << false;
    }

    void faceFollowsFamily()
    {
        QFETCH(OptionalFamily, familyOverride);
        QFETCH(WidgetFamily, hostFamily);

        GlucoseWidgetView view(entry(snapshot(reading(100), history({100}))), familyOverride);
        view.setFamily(hostFamily);
        QTEST(view.family(), "family");
        QTEST(view.chart() != nullptr, "chart");
        QTEST(view.findChild<QLabel *>(u"statisticsCaption"_s) != nullptr, "statistics");
        QCOMPARE(text(view, u"value"_s), u"100"_s);
    }

    // The medium column is 100 wide: three-digit values with an arrow must still leave the unit whole.
    void mediumKeepsTheUnitWhole()
    {
        GlucoseWidgetView view(
            entry(snapshot(reading(188, false, false, TrendArrow::risingQuickly), history({188}))),
            WidgetFamily::systemMedium);
        view.resize(332, 138);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const auto *unit = view.findChild<QLabel *>(u"unit"_s);
        QVERIFY(unit->width() >= unit->sizeHint().width());
    }

    void setEntryUpdatesInPlace()
    {
        GlucoseWidgetView view(entry(snapshot(reading(100))));
        view.setEntry(entry(snapshot(reading(150)), 1'000'000));
        QCOMPARE(text(view, u"value"_s), u"150"_s);
        QVERIFY(shown(view, u"stale"_s));
        view.setEntry(entry({}));
        QCOMPARE(text(view, u"emptyText"_s), u"Open Glinta and sign in"_s);
        QVERIFY(!view.findChild<QLabel *>(u"value"_s));
    }

    void rendersInBothSchemes()
    {
        GlucoseSnapshot published = snapshot(reading(120), history({90, 60, 55, 80, 140, 200, 120}));
        published.connectionName = u"Mum"_s;
        GlucoseWidgetView view(entry(published), large);
        view.resize(364, 364);
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            view.layout()->activate();
            QImage image(728, 728, QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(2);
            image.fill(Qt::transparent);
            // Children only: the background is the host's, so anything here was drawn by the view.
            view.render(&image, {}, {}, QWidget::DrawChildren);
            QVERIFY(pixelsOf(image, style::accent(palette)) > 0);
            QVERIFY(pixelsOf(image, style::red(palette)) > 0);
            QVERIFY(pixelsOf(image, style::primaryText(palette)) > 0);
        }
    }
};

QTEST_MAIN(TestGlucoseWidgetView)
#include "tst_glucosewidgetview.moc"
