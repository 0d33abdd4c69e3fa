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

GlucoseSnapshot snapshot(GlucoseReading latest, QList<GlucoseReading> readings = {},
                         GlucoseUnit unit = GlucoseUnit::mgPerDl, double low = 70, double high = 180)
{
    return {latest, std::move(readings), unit, std::nullopt, low, high, taken};
}

// Shown a minute after the reading unless told otherwise.
GlucoseEntry entry(std::optional<GlucoseSnapshot> published, qint64 msAfterReading = 60'000)
{
    return {taken.addMSecs(msAfterReading), std::move(published)};
}

QString text(const QWidget &view, const QString &name)
{
    const auto *label = view.findChild<QLabel *>(name);
    return label ? label->text() : u"<missing>"_s;
}

} // namespace

class TestGlucoseWidgetView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Reached from a face with a reading: the entry replaces the face.
    void emptyState_data()
    {
        QTest::addColumn<WidgetFamily>("family");
        QTest::addColumn<std::optional<GlucoseSnapshot>>("published");
        GlucoseSnapshot noLatest = snapshot(reading(100), history({100, 110}));
        noLatest.latest.reset();
        QTest::newRow("small, nothing published") << small << std::optional<GlucoseSnapshot>();
        QTest::newRow("large, history without latest") << large << std::optional(noLatest);
    }

    void emptyState()
    {
        QFETCH(WidgetFamily, family);
        QFETCH(std::optional<GlucoseSnapshot>, published);
        GlucoseWidgetView view(entry(snapshot(reading(100), history({100}))), family);
        view.setEntry(entry(published));
        QCOMPARE(text(view, u"emptyText"_s), u"Open Glinta and sign in"_s);
        QVERIFY(!view.findChild<QLabel *>(u"emptySymbol"_s)->pixmap().isNull());
        QVERIFY(!view.findChild<QLabel *>(u"value"_s));
        QVERIFY(!view.chart());
    }

    // Against the entry's own instant; a new entry updates the face in place.
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
        GlucoseWidgetView view(entry(snapshot(reading(150))), family);
        GlucoseSnapshot published = snapshot(reading(100));
        published.connectionName = connectionName;
        view.setEntry(entry(published, msAfterReading));
        QTEST(text(view, u"connection"_s), "header");
        QTEST(!view.findChild<QLabel *>(u"stale"_s)->isHidden(), "stale");
        QCOMPARE(view.findChild<QLabel *>(u"stale"_s)->accessibleName(), u"Data is stale"_s);
        QTEST(text(view, u"age"_s), "age");
        QCOMPARE(text(view, u"value"_s), u"100"_s);
    }

    // The service's flags first, then the snapshot's own target range; recoloured in either scheme.
    void value_data()
    {
        QTest::addColumn<GlucoseSnapshot>("published");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("tint");
        QTest::addColumn<QString>("spokenTrend");
        const auto mg = GlucoseUnit::mgPerDl;
        QTest::newRow("isLow above range")
            << snapshot(reading(250, true)) << u"250"_s << u"red"_s << QString();
        QTest::newRow("isHigh in range")
            << snapshot(reading(120, false, true)) << u"120"_s << u"orange"_s << QString();
        QTest::newRow("exactly 70, rising") << snapshot(reading(70, false, false, TrendArrow::rising))
                                            << u"70"_s << u"primary"_s << u"rising"_s;
        QTest::newRow("exactly 180") << snapshot(reading(180)) << u"180"_s << u"primary"_s << QString();
        QTest::newRow("below its own 80")
            << snapshot(reading(75), {}, mg, 80, 160) << u"75"_s << u"red"_s << QString();
        QTest::newRow("above its own 160")
            << snapshot(reading(165), {}, mg, 80, 160) << u"165"_s << u"orange"_s << QString();
        QTest::newRow("mmol/L") << snapshot(reading(100), {}, GlucoseUnit::mmolPerL) << u"5.5"_s
                                << u"primary"_s << QString();
    }

    void value()
    {
        QFETCH(GlucoseSnapshot, published);
        QFETCH(QString, tint);
        QFETCH(QString, spokenTrend);
        GlucoseWidgetView view(entry(published));
        QTEST(text(view, u"value"_s), "value");
        QCOMPARE(text(view, u"unit"_s), rawValue(published.unit));
        // No trend, no arrow and nothing for a screen reader to say.
        QCOMPARE(!view.findChild<QLabel *>(u"trend"_s)->isHidden(), !spokenTrend.isEmpty());
        QCOMPARE(view.findChild<QLabel *>(u"trend"_s)->accessibleName(), spokenTrend);
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            const QColor expected = tint == u"red"_s      ? style::red(palette)
                                    : tint == u"orange"_s ? style::orange(palette)
                                                          : style::primaryText(palette);
            QCOMPARE(view.findChild<QLabel *>(u"value"_s)->palette().color(QPalette::WindowText), expected);
        }
    }

    // The chart in the medium and large faces, the statistics in the large one; the size asked for wins
    // over the host's. Both count against the snapshot's own range, in its unit, over its history.
    void faceFollowsFamily_data()
    {
        QTest::addColumn<OptionalFamily>("familyOverride");
        QTest::addColumn<WidgetFamily>("hostFamily");
        QTest::addColumn<WidgetFamily>("family");
        QTest::addColumn<QStringList>("statistics");
        QTest::addColumn<double>("chartTop");
        const QStringList statistics{u"7.6"_s, u"50%"_s, u"4"_s};
        const double top = 270 / 18.0182;
        QTest::newRow("small") << OptionalFamily() << small << small << QStringList() << 0.0;
        QTest::newRow("medium") << OptionalFamily() << medium << medium << QStringList() << top;
        QTest::newRow("large") << OptionalFamily() << large << large << statistics << top;
        QTest::newRow("override large wins") << OptionalFamily(large) << small << large << statistics << top;
        QTest::newRow("override small wins")
            << OptionalFamily(small) << large << small << QStringList() << 0.0;
    }

    void faceFollowsFamily()
    {
        QFETCH(OptionalFamily, familyOverride);
        QFETCH(WidgetFamily, hostFamily);
        GlucoseWidgetView view(
            entry(snapshot(reading(100), history({75, 100, 250, 120}), GlucoseUnit::mmolPerL, 80, 160)),
            familyOverride);
        view.setFamily(hostFamily);
        QTEST(view.family(), "family");
        QStringList statistics;
        if (view.findChild<QLabel *>(u"statisticsCaption"_s))
            statistics = {text(view, u"average"_s), text(view, u"inRange"_s), text(view, u"readingCount"_s)};
        QTEST(statistics, "statistics");
        QTEST(view.chart() ? view.chart()->yDomain().upper : 0.0, "chartTop");
    }

    // The medium column is 100 wide: three-digit values with an arrow must still leave the unit whole.
    void mediumKeepsTheUnitWhole()
    {
        GlucoseWidgetView view(
            entry(snapshot(reading(188, false, false, TrendArrow::risingQuickly), history({188}))), medium);
        view.resize(332, 138);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        const auto *unit = view.findChild<QLabel *>(u"unit"_s);
        QVERIFY(unit->width() >= unit->sizeHint().width());
    }

    // Children only: the background is the host's, so anything here was drawn by the view.
    void rendersInBothSchemes()
    {
        GlucoseWidgetView view(entry(snapshot(reading(120), history({90, 60, 55, 80, 140, 200, 120}))),
                               large);
        view.resize(364, 364);
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            view.setPalette(palette);
            view.layout()->activate();
            QImage image(728, 728, QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(2);
            image.fill(Qt::transparent);
            view.render(&image, {}, {}, QWidget::DrawChildren);
            QSet<QRgb> colours;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x)
                    colours.insert(image.pixel(x, y));
            }
            for (const QColor &drawn :
                 {style::accent(palette), style::red(palette), style::primaryText(palette)})
                QVERIFY2(colours.contains(drawn.rgba()), qPrintable(drawn.name()));
        }
    }
};

QTEST_MAIN(TestGlucoseWidgetView)
#include "tst_glucosewidgetview.moc"