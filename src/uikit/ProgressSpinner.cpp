#include "uikit/ProgressSpinner.h"

#include "uikit/SystemStyle.h"

#include <QPainter>

#include <cmath>

namespace glinta {

namespace {

constexpr int spokes = 12;

} // namespace

ProgressSpinner::ProgressSpinner(int diameter, QWidget *parent) : QWidget(parent), m_diameter(diameter)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(tr("In progress"));
    m_timer.setInterval(1000 / spokes);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_step = (m_step + 1) % spokes;
        update();
    });
}

QSize ProgressSpinner::sizeHint() const
{
    return {m_diameter, m_diameter};
}

void ProgressSpinner::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal radius = std::min(width(), height()) / 2.0;
    painter.translate(width() / 2.0, height() / 2.0);
    QColor ink = style::primaryText(palette());
    QPen pen(ink, std::max(1.5, radius / 5.0), Qt::SolidLine, Qt::RoundCap);
    for (int i = 0; i < spokes; ++i) {
        // The spoke at the current step is darkest; the ones behind it fade.
        const int behind = (m_step - i + spokes) % spokes;
        ink.setAlphaF(0.15 + 0.75 * (1.0 - behind / double(spokes)));
        pen.setColor(ink);
        painter.setPen(pen);
        painter.drawLine(QPointF(0, -radius * 0.45), QPointF(0, -radius * 0.9));
        painter.rotate(360.0 / spokes);
    }
}

void ProgressSpinner::showEvent(QShowEvent *)
{
    m_timer.start();
}

void ProgressSpinner::hideEvent(QHideEvent *)
{
    m_timer.stop();
}

} // namespace glinta
