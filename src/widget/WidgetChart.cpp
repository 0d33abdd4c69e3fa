#include "widget/WidgetChart.h"

#include "snapshot/GlucoseSnapshot.h"
#include "uikit/SystemStyle.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPolygonF>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr qreal lineWidth = 2;
constexpr qreal bandOpacity = 0.12;
// Keeps a line at the very top or bottom of the range from being cut in half by the widget's edge.
constexpr qreal plotInset = lineWidth;
constexpr int axisGap = 2;

double plotted(double mgPerDl, GlucoseUnit unit)
{
    return unit == GlucoseUnit::mmolPerL ? mgPerDl / mgPerDlPerMmolPerL : mgPerDl;
}

QColor withOpacity(QColor color, qreal opacity)
{
    color.setAlphaF(color.alphaF() * opacity);
    return color;
}

// Round times of day, local time, no more than four of them over the span.
QList<QDateTime> timeTicks(const QDateTime &first, const QDateTime &last)
{
    const qint64 spanMs = first.msecsTo(last);
    if (spanMs <= 0)
        return {first.toLocalTime()};
    // Each divides a day, so the ticks fall on the same times every day.
    static constexpr qint64 stepsMinutes[] = {15, 30, 60, 120, 180, 240, 360, 720, 1440};
    qint64 stepMinutes = stepsMinutes[std::size(stepsMinutes) - 1];
    for (const qint64 candidate : stepsMinutes) {
        if (spanMs / (candidate * 60'000) <= 3) {
            stepMinutes = candidate;
            break;
        }
    }
    const QDateTime localFirst = first.toLocalTime();
    QDateTime tick(localFirst.date(), QTime(0, 0), Qt::LocalTime);
    while (tick < first)
        tick = tick.addSecs(stepMinutes * 60);
    QList<QDateTime> ticks;
    for (; tick <= last; tick = tick.addSecs(stepMinutes * 60))
        ticks.append(tick);
    return ticks;
}

} // namespace

WidgetChart::WidgetChart(bool showsTimeAxis, QWidget *parent)
    : QWidget(parent), m_showsTimeAxis(showsTimeAxis)
{
    setAccessibleName(u"Glucose history chart"_s);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void WidgetChart::setSnapshot(const GlucoseSnapshot &snapshot)
{
    m_history = snapshot.history;
    m_unit = snapshot.unit;
    m_targets = snapshot.targets;
    update();
}

GlucoseChartDomain WidgetChart::yDomain() const
{
    return chartYDomain(m_history, m_unit, m_targets);
}

int WidgetChart::timeAxisHeight() const
{
    return m_showsTimeAxis ? QFontMetrics(style::font(style::TextStyle::caption2)).height() + axisGap : 0;
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
    // No readings, no marks: an empty plot is left blank rather than given a band of no width.
    if (m_history.isEmpty())
        return;

    QRectF plot = QRectF(contentsRect()).adjusted(plotInset, plotInset, -plotInset, -plotInset);
    plot.setBottom(plot.bottom() - timeAxisHeight());
    if (plot.width() <= 0 || plot.height() <= 0)
        return;

    const QPalette colours = palette();
    const QDateTime &first = m_history.constFirst().date;
    const QDateTime &last = m_history.constLast().date;
    const qint64 spanMs = first.msecsTo(last);
    const GlucoseChartDomain domain = yDomain();
    const auto x = [&](const QDateTime &date) {
        if (spanMs <= 0)
            return plot.center().x();
        return plot.left() + plot.width() * qreal(first.msecsTo(date)) / qreal(spanMs);
    };
    const auto y = [&](double mgPerDl) {
        const double value = plotted(mgPerDl, m_unit);
        return plot.bottom() - plot.height() * (value - domain.lower) / (domain.upper - domain.lower);
    };

    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);

    if (m_showsTimeAxis) {
        const QFont font = style::font(style::TextStyle::caption2);
        const QFontMetrics metrics(font);
        painter.setFont(font);
        const QRectF bounds = contentsRect();
        qreal freeFrom = bounds.left();
        for (const QDateTime &tick : timeTicks(first, last)) {
            const qreal at = x(tick);
            painter.setPen(QPen(style::quaternaryFill(colours), 1));
            painter.drawLine(QPointF(at, plot.top()), QPointF(at, plot.bottom()));

            const QString label = tick.toString(u"HH:mm"_s);
            const qreal width = metrics.horizontalAdvance(label);
            const qreal left = std::clamp(at - width / 2, bounds.left(), bounds.right() - width);
            // Labels that would run into the one before are left out rather than overprinted.
            if (left < freeFrom)
                continue;
            painter.setPen(style::secondaryText(colours));
            painter.drawText(QRectF(left, plot.bottom() + axisGap, width, metrics.height()), Qt::AlignCenter,
                             label);
            freeFrom = left + width + metrics.horizontalAdvance(u' ');
        }
    }

    painter.setPen(Qt::NoPen);
    painter.setBrush(withOpacity(style::green(colours), bandOpacity));
    painter.drawRect(
        QRectF(QPointF(x(first), y(m_targets.highMgPerDl)), QPointF(x(last), y(m_targets.lowMgPerDl))));

    // Straight lines through every vertex, so that neighbouring segments meet exactly on the red line.
    painter.setBrush(Qt::NoBrush);
    for (const GlucoseChartSegment &segment : chartSegments(m_history, m_targets.lowMgPerDl)) {
        QPolygonF line;
        line.reserve(segment.points.size());
        for (const GlucoseChartPoint &point : segment.points)
            line.append({x(point.date), y(point.mgPerDl)});
        QPen pen(segment.isBelowRedLine ? style::red(colours) : style::accent(colours), lineWidth);
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        painter.setPen(pen);
        painter.drawPolyline(line);
    }
}

} // namespace glinta
