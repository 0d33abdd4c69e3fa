#include "TrayIconEngine.h"
#include "TrayIconPainter.h"

#include <QIcon>
#include <QPainter>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

MenuBarTitle reading(const QString &value, std::optional<TrendArrow> trend, bool stale, bool update)
{
    MenuBarTitle title;
    title.showsSymbol = false;
    title.value = value;
    title.trend = trend;
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

const QColor orange(0xF5, 0xA6, 0x23);
const QColor blue(0x2F, 0x80, 0xED);

} // namespace

class TestTrayIcon : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void symbolWithoutReading()
    {
        const QImage image = paintTrayIcon(MenuBarTitle{}, 22, 2, Qt::white);
        QVERIFY(look(image, image.rect(), Qt::white).has);
        QVERIFY(!look(image, image.rect(), Qt::black).has);
    }

    // Stale data is unmistakable: the value dimmed and a warning in the top corner. Drawn at the screen's
    // ratio, the value filling the middle band in the panel's ink.
    void badges_data()
    {
        QTest::addColumn<bool>("stale");
        QTest::addColumn<bool>("update");
        QTest::addColumn<qreal>("ratio");
        QTest::newRow("fresh, 1x") << false << false << 1.0;
        QTest::newRow("fresh") << false << false << 2.0;
        QTest::newRow("stale") << true << false << 2.0;
        QTest::newRow("update waiting") << false << true << 2.0;
        QTest::newRow("both, 1x") << true << true << 1.0;
    }

    void badges()
    {
        QFETCH(bool, stale);
        QFETCH(bool, update);
        QFETCH(qreal, ratio);
        const QImage image =
            paintTrayIcon(reading(u"124"_s, TrendArrow::rising, stale, update), 22, ratio, Qt::black);
        QCOMPARE(image.size(), QSize(22, 22) * ratio);
        QCOMPARE(image.devicePixelRatio(), ratio);
        const int size = image.width();
        const int valueAlpha =
            look(image, QRect(size / 4, size * 2 / 5, size / 2, size / 5), Qt::black).maxAlpha;
        if (stale)
            QVERIFY2(valueAlpha < 160, qPrintable(QString::number(valueAlpha)));
        else
            QCOMPARE(valueAlpha, 255);
        QCOMPARE(look(image, QRect(size * 3 / 4, 0, size / 4, size / 4), orange).has, stale);
        QCOMPARE(look(image, QRect(0, size * 3 / 4, size / 4, size / 4), blue).has, update);
    }

    // The icon the tray gets draws at whatever size and ratio the tray asks for, and keeps no picture of
    // an earlier size: a wrong size in the tray is a blurred or clipped value.
    void engineSizes()
    {
        QIcon icon(new TrayIconEngine(reading(u"124"_s, TrendArrow::rising, false, false), Qt::black));
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
