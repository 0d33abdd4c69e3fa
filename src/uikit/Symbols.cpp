#include "uikit/Symbols.h"

#include <QPainter>
#include <QSvgRenderer>

#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

QPixmap symbolPixmap(const QString &name, const QColor &color, int logicalSize, qreal devicePixelRatio)
{
    const int pixels = std::max(1, static_cast<int>(std::ceil(logicalSize * devicePixelRatio)));
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QSvgRenderer renderer(u":/glinta/symbols/"_s + name + u".svg"_s);
    Q_ASSERT_X(renderer.isValid(), "symbolPixmap", "unknown symbol");
    {
        QPainter painter(&image);
        renderer.render(&painter);
        // The drawings are black; keep their coverage and take the colour.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color);
    }
    image.setDevicePixelRatio(devicePixelRatio);
    return QPixmap::fromImage(std::move(image));
}

QIcon symbolIcon(const QString &name, const QColor &color, int logicalSize)
{
    QIcon icon;
    icon.addPixmap(symbolPixmap(name, color, logicalSize, 1.0));
    icon.addPixmap(symbolPixmap(name, color, logicalSize, 2.0));
    return icon;
}

QIcon applicationIcon()
{
    return QIcon(u":/glinta/symbols/glinta.svg"_s);
}

} // namespace glinta
