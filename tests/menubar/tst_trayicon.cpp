#include "TrayIconPainter.h"

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
    void drawnAtDevicePixelRatio_data()
    {
        QTest::addColumn<qreal>("ratio");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }

    void drawnAtDevicePixelRatio()
    {
        QFETCH(qreal, ratio);
        const QImage image =
            paintTrayIcon(reading(u"124"_s, TrendArrow::rising, false, false), 22, ratio, Qt::black);
        QCOMPARE(image.size(), QSize(22, 22) * ratio);
        QCOMPARE(image.devicePixelRatio(), ratio);
        // The value fills the middle band, in the panel's ink.
        QVERIFY(look(image, QRect(0, 7 * ratio, 22 * ratio, 8 * ratio), Qt::black).has);
    }

    void symbolWithoutReading()
    {
        const QImage image = paintTrayIcon(MenuBarTitle{}, 22, 2, Qt::white);
        QVERIFY(look(image, image.rect(), Qt::white).has);
        QVERIFY(!look(image, image.rect(), Qt::black).has);
    }

    void badges_data()
    {
        QTest::addColumn<bool>("stale");
        QTest::addColumn<bool>("update");
        QTest::newRow("fresh") << false << false;
        QTest::newRow("stale") << true << false;
        QTest::newRow("update waiting") << false << true;
        QTest::newRow("both") << true << true;
    }

    void badges()
    {
        QFETCH(bool, stale);
        QFETCH(bool, update);
        const QImage image =
            paintTrayIcon(reading(u"124"_s, TrendArrow::rising, stale, update), 22, 2, Qt::black);
        const int size = image.width();
        const QRect middle(size / 4, size * 2 / 5, size / 2, size / 5);
        const QRect topRight(size * 3 / 4, 0, size / 4, size / 4);
        const QRect bottomLeft(0, size * 3 / 4, size / 4, size / 4);

        // Stale data is unmistakable: the value dimmed and a warning in the top corner.
        const int valueAlpha = look(image, middle, Qt::black).maxAlpha;
        if (stale)
            QVERIFY2(valueAlpha < 160, qPrintable(QString::number(valueAlpha)));
        else
            QCOMPARE(valueAlpha, 255);
        QCOMPARE(look(image, topRight, orange).has, stale);
        QCOMPARE(look(image, bottomLeft, blue).has, update);
    }
};

QTEST_MAIN(TestTrayIcon)
#include "tst_trayicon.moc"
