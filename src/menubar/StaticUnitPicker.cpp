#include "menubar/StaticUnitPicker.h"

#include "uikit/SystemStyle.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>

namespace glinta {

namespace {

constexpr qreal outerRadius = 7;
constexpr qreal innerRadius = 5;
constexpr int insidePadding = 2;
constexpr int segmentGap = 2;
constexpr int labelPadding = 3;

QPainterPath roundedRect(const QRectF &rect, qreal radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

} // namespace

StaticUnitPicker::StaticUnitPicker(GlucoseUnit unit, QWidget *parent) : QWidget(parent), m_unit(unit)
{
    setFont(style::font(style::TextStyle::caption));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setAccessibleName(tr("Unit"));
}

void StaticUnitPicker::setUnit(GlucoseUnit unit)
{
    if (unit == m_unit)
        return;
    m_unit = unit;
    update();
}

QSize StaticUnitPicker::sizeHint() const
{
    const QFontMetrics metrics(font());
    int widest = 0;
    for (GlucoseUnit unit : allGlucoseUnits)
        widest = std::max(widest, metrics.horizontalAdvance(rawValue(unit)));
    const int segments = int(allGlucoseUnits.size());
    return {2 * insidePadding + segments * (widest + 12) + (segments - 1) * segmentGap,
            2 * insidePadding + 2 * labelPadding + metrics.height()};
}

QSize StaticUnitPicker::minimumSizeHint() const
{
    return sizeHint();
}

void StaticUnitPicker::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette &colours = palette();

    QColor background = style::quaternaryFill(colours);
    background.setAlphaF(background.alphaF() * 0.5);
    painter.fillPath(roundedRect(QRectF(rect()), outerRadius), background);

    const QRectF inside =
        QRectF(rect()).adjusted(insidePadding, insidePadding, -insidePadding, -insidePadding);
    const int segments = int(allGlucoseUnits.size());
    const qreal segmentWidth = (inside.width() - (segments - 1) * segmentGap) / segments;
    for (int i = 0; i < segments; ++i) {
        const GlucoseUnit unit = allGlucoseUnits[std::size_t(i)];
        const QRectF segment(inside.left() + i * (segmentWidth + segmentGap), inside.top(), segmentWidth,
                             inside.height());
        if (unit == m_unit) {
            // A faint contact shadow just outside the highlight's edge.
            painter.fillPath(roundedRect(segment.adjusted(-0.5, -0.5, 0.5, 0.5), innerRadius + 0.5),
                             QColor(0, 0, 0, 84));
            const QColor highlight =
                style::isDark(colours) ? QColor(0x63, 0x63, 0x66) : colours.color(QPalette::Base);
            painter.fillPath(roundedRect(segment, innerRadius), highlight);
        }
        painter.setPen(style::primaryText(colours));
        painter.drawText(segment, Qt::AlignCenter, rawValue(unit));
    }
}

} // namespace glinta
