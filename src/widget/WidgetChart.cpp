#include "widget/WidgetChart.h"

#include "snapshot/GlucoseSnapshot.h"

#include <QPainter>

#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

WidgetChart::WidgetChart(bool showsTimeAxis, QWidget *parent) : QWidget(parent)
{
    setAccessibleName(u"Glucose history chart"_s);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    GlucoseChartPainter::Input input;
    input.showsTimeAxis = showsTimeAxis;
    m_painter.setInput(std::move(input));
}

void WidgetChart::setSnapshot(const GlucoseSnapshot &snapshot)
{
    // No dot and no value axis: the face above the chart already says the newest value.
    m_painter.setInput({
        .history = snapshot.history,
        .latest = std::nullopt,
        .unit = snapshot.unit,
        .targets = snapshot.targets,
        .redLineMgPerDl = snapshot.targets.lowMgPerDl,
        .showsValueAxis = false,
        .showsTimeAxis = showsTimeAxis(),
        .bandOpacity = 0.12,
    });
    update();
}

GlucoseChartDomain WidgetChart::yDomain() const
{
    const GlucoseChartPainter::Input &input = m_painter.input();
    return chartYDomain(input.history, input.unit, input.targets);
}

int WidgetChart::timeAxisHeight() const
{
    return showsTimeAxis() ? int(std::ceil(GlucoseChartPainter::timeAxisHeight())) : 0;
}

QSize WidgetChart::sizeHint() const
{
    return {200, 120 + timeAxisHeight()};
}

QSize WidgetChart::minimumSizeHint() const
{
    return {40, 40 + timeAxisHeight()};
}

void WidgetChart::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_painter.paint(painter, QRectF(contentsRect()), palette());
}

} // namespace glinta
