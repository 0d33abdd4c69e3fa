#include "domain/MenuBarTitle.h"
#include "menubar/TrayIconEngine.h"
#include "menubar/TrayIconPainter.h"

#include <QIcon>
#include <QPainter>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// 124, rising, as the tray gets it.
MenuBarTitle reading(bool stale, bool update)
{
    MenuBarTitle title;
    title.showsSymbol = false;
    title.value = u"124"_s;
    title.trend = TrendArrow::rising;
    title.isStale = stale;
    title.updateWaiting = update;
    return title;
}

// The strongest alpha, and whether any pixel is close to `colour`, inside `region` (in pixels).
struct RegionLook
{
    int maxAlpha = 0;
    bool has = false;
};

RegionLook look(const QImage &image, const QRect &region, const QColor &colour)
{
    RegionLook result;
    for (int y = region.top(); y <= region.bottom(); ++y) {
        for (int x = region.left(); x <= region.right(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            result.maxAlpha = std::max(result.maxAlpha, pixel.alpha());
            if (pixel.alpha() > 200 && std::abs(pixel.red() - colour.red()) < 40 &&
                std::abs(pixel.green() - colour.green()) < 40 && std::abs(pixel.blue() - colour.blue()) < 40)
                result.has = true;
        }
    }
    return result;
}

} // namespace

// The tray's title (its text and what a screen reader says) and the icon drawn from it.
class TestTrayIcon : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void title_data()
    {
        QTest::addColumn<double>("mgPerDl"); // negative: no reading at all
        QTest::addColumn<std::optional<TrendArrow>>("trend");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<qint64>("ageMs");
        QTest::addColumn<std::optional<QString>>("waiting");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("spoken");

        const auto rising = std::optional(TrendArrow::rising);
        const std::optional<TrendArrow> none;
        const auto mg = GlucoseUnit::mgPerDl;
        const std::optional<QString> noUpdate;
        const auto update = std::optional(u"1.4"_s);

        QTest::newRow("no reading, update waiting")
            << -1.0 << rising << mg << 0LL << update << QString() << u"Glinta: no glucose data"_s;
        QTest::newRow("exactly 900 s") << 124.0 << rising << mg << 900000LL << noUpdate << u"124 \u2197"_s
                                       << u"Glucose 124 mg/dL, rising"_s;
        QTest::newRow("900 s and 1 ms")
            << 124.0 << rising << mg << 900001LL << noUpdate << u"124 \u2197 \u26A0\uFE0E"_s
            << u"Glucose 124 mg/dL, rising, data is stale"_s;
        QTest::newRow("stale, update waiting")
            << 124.0 << rising << mg << 901000LL << update << u"124 \u2197 \u26A0\uFE0E \u2022"_s
            << u"Glucose 124 mg/dL, rising, data is stale, update 1.4 available"_s;
        QTest::newRow("mmol/L") << 124.0 << rising << GlucoseUnit::mmolPerL << 0LL << noUpdate
                                << u"6.9 \u2197"_s << u"Glucose 6.9 mmol/L, rising"_s;
        QTest::newRow("no trend, empty waiting version")
            << 88.0 << none << mg << 0LL << std::optional(QString()) << u"88 \u2022"_s
            << u"Glucose 88 mg/dL, update  available"_s;
    }

    void title()
    {
        QFETCH(double, mgPerDl);
        QFETCH(std::optional<TrendArrow>, trend);
        QFETCH(GlucoseUnit, unit);
        QFETCH(qint64, ageMs);
        QFETCH(std::optional<QString>, waiting);
        const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), Qt::UTC);
        std::optional<GlucoseReading> latest;
        if (mgPerDl >= 0)
            latest = GlucoseReading{taken, mgPerDl, trend, false, false};
        const MenuBarTitle title = menuBarTitle(latest, unit, taken.addMSecs(ageMs), waiting);
        QCOMPARE(title.showsSymbol, !latest);
        QTEST(title.text, "text");
        QTEST(title.accessibilityLabel, "spoken");
    }

    // Stale data is unmistakable: the value dimmed and an orange warning in the top corner; a waiting
    // update is a blue dot in the bottom one. The value fills the middle band in the panel's ink.
    void badges_data()
    {
        QTest::addColumn<bool>("stale");
        QTest::addColumn<bool>("update");
        QTest::newRow("fresh") << false << false;
        QTest::newRow("stale") << true << false;
        QTest::newRow("update waiting") << false << true;
    }

    void badges()
    {
        QFETCH(bool, stale);
        QFETCH(bool, update);
        const int size = 22;
        const QImage image = paintTrayIcon(reading(stale, update), size, 1, Qt::black);
        const int valueAlpha =
            look(image, QRect(size / 4, size * 2 / 5, size / 2, size / 5), Qt::black).maxAlpha;
        if (stale)
            QVERIFY2(valueAlpha < 160, qPrintable(QString::number(valueAlpha)));
        else
            QCOMPARE(valueAlpha, 255);
        QCOMPARE(look(image, QRect(size * 3 / 4, 0, size / 4, size / 4), QColor(0xF5, 0xA6, 0x23)).has,
                 stale);
        QCOMPARE(look(image, QRect(0, size * 3 / 4, size / 4, size / 4), QColor(0x2F, 0x80, 0xED)).has,
                 update);
    }

    // The icon the tray gets draws at whatever size and ratio the tray asks for, and keeps no picture of
    // an earlier size: a wrong size in the tray is a blurred or clipped value.
    void engineSizes()
    {
        QIcon icon(new TrayIconEngine(reading(false, false), Qt::black));
        for (const auto &[logical, ratio] : {std::pair{22, 2.0}, {32, 1.0}, {22, 2.0}, {16, 1.5}}) {
            const QPixmap pixmap = icon.pixmap(QSize(logical, logical), ratio);
            QCOMPARE(pixmap.deviceIndependentSize(), QSizeF(logical, logical));
            QCOMPARE(pixmap.devicePixelRatio(), ratio);
        }

        // An XEmbed tray paints its slot through the icon: the sharp picture of the slot's device pixels.
        QImage slot(QSize(22, 22) * 2, QImage::Format_ARGB32_Premultiplied);
        slot.setDevicePixelRatio(2);
        slot.fill(Qt::transparent);
        QPainter painter(&slot);
        icon.paint(&painter, QRect(0, 0, 22, 22));
        painter.end();
        QCOMPARE(look(slot, QRect(11, 18, 22, 8), Qt::black).maxAlpha, 255);
        QCOMPARE(slot, icon.pixmap(QSize(22, 22), 2.0).toImage().convertToFormat(slot.format()));
    }
};

QTEST_MAIN(TestTrayIcon)
#include "tst_trayicon.moc"
