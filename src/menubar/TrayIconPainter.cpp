#include "menubar/TrayIconPainter.h"

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr qreal staleOpacity = 0.45;
const QColor warningColor(0xF5, 0xA6, 0x23);
const QColor updateColor(0x2F, 0x80, 0xED);

// The largest bold font whose rendering of `text` fits `box`.
QFont fittedFont(const QString &text, const QSizeF &box)
{
    QFont font(u"DejaVu Sans"_s);
    font.setBold(true);
    font.setPixelSize(100);
    const QRectF bounds = QFontMetricsF(font).tightBoundingRect(text);
    const qreal scale = std::min(box.width() / bounds.width(), box.height() / bounds.height());
    font.setPixelSize(std::max(1, static_cast<int>(100 * scale)));
    return font;
}

void drawCentred(QPainter &painter, const QString &text, const QRectF &box)
{
    const QFont font = fittedFont(text, box.size());
    painter.setFont(font);
    const QRectF bounds = QFontMetricsF(font).tightBoundingRect(text);
    const QPointF origin(box.center().x() - bounds.center().x(), box.center().y() - bounds.center().y());
    painter.drawText(origin, text);
}

// "drop.circle": a ring with a drop inside.
void drawDropCircle(QPainter &painter, qreal size, const QColor &ink)
{
    const qreal stroke = std::max(1.0, size / 14.0);
    painter.setPen(QPen(ink, stroke));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(QRectF(stroke, stroke, size - 2 * stroke, size - 2 * stroke));

    const qreal w = size * 0.34;
    const qreal top = size * 0.22;
    const qreal bottom = size * 0.76;
    QPainterPath drop;
    drop.moveTo(size / 2, top);
    drop.cubicTo(size / 2 + w * 0.2, top + (bottom - top) * 0.3, size / 2 + w / 2, bottom - w * 0.8,
                 size / 2 + w / 2, bottom - w / 2);
    drop.arcTo(QRectF(size / 2 - w / 2, bottom - w, w, w), 0, -180);
    drop.cubicTo(size / 2 - w / 2, bottom - w * 0.8, size / 2 - w * 0.2, top + (bottom - top) * 0.3, size / 2,
                 top);
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    painter.drawPath(drop);
}

} // namespace

QImage paintTrayIcon(const MenuBarTitle &title, int logicalSize, qreal devicePixelRatio, const QColor &ink)
{
    const int pixels = std::max(1, qRound(logicalSize * devicePixelRatio));
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const qreal size = logicalSize;

    if (title.showsSymbol) {
        drawDropCircle(painter, size, ink);
        return image;
    }

    // Badges take the corners; the value keeps the middle band at full width.
    const qreal badge = size * 0.38;
    const QRectF valueBox(0, size * 0.2, size, size * 0.6);
    const bool arrowFits = title.trend && title.value.size() <= 2;

    painter.setPen(ink);
    painter.setOpacity(title.isStale ? staleOpacity : 1.0);
    if (arrowFits) {
        const QRectF numberBox(valueBox.left(), valueBox.top(), valueBox.width() * 0.66, valueBox.height());
        const QRectF arrowBox(numberBox.right(), valueBox.top(), valueBox.width() * 0.34, valueBox.height());
        drawCentred(painter, title.value, numberBox);
        drawCentred(painter, symbol(*title.trend), arrowBox);
    } else {
        drawCentred(painter, title.value, valueBox.adjusted(size * 0.02, 0, -size * 0.02, 0));
    }
    painter.setOpacity(1.0);

    if (title.isStale) {
        QPainterPath triangle;
        const QRectF corner(size - badge, 0, badge, badge * 0.9);
        triangle.moveTo(corner.center().x(), corner.top());
        triangle.lineTo(corner.right(), corner.bottom());
        triangle.lineTo(corner.left(), corner.bottom());
        triangle.closeSubpath();
        painter.setPen(Qt::NoPen);
        painter.setBrush(warningColor);
        painter.drawPath(triangle);
        painter.setPen(Qt::black);
        drawCentred(painter, u"!"_s, corner.adjusted(badge * 0.3, badge * 0.3, -badge * 0.3, -badge * 0.05));
    }
    if (title.updateWaiting) {
        const qreal dot = badge * 0.7;
        painter.setPen(Qt::NoPen);
        painter.setBrush(updateColor);
        painter.drawEllipse(QRectF(0, size - dot, dot, dot));
    }
    return image;
}

} // namespace glinta
