#include "uikit/GlucoseChartPainter.h"

#include "uikit/SystemStyle.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPalette>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr qreal lineWidth = 2;
constexpr qreal dotDiameter = 8;
constexpr qreal axisGap = 2;
constexpr qreal valueLabelGap = 4;
// Between two time labels, so that they read as two.
constexpr qreal timeLabelSpacing = 8;
constexpr std::array hourSteps{2, 3, 4};

double plotted(double mgPerDl, GlucoseUnit unit)
{
    return unit == GlucoseUnit::mmolPerL ? mgPerDl / mgPerDlPerMmolPerL : mgPerDl;
}

// A step of 1, 2 or 5 times a power of ten giving about four lines, so the labels read as round values
// while the range itself stays exactly as computed.
double valueTickInterval(double span)
{
    const double raw = span / 4;
    if (!std::isfinite(raw) || raw <= 0)
        return 1;
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    const double normalized = raw / magnitude;
    const double step = normalized < 1.5 ? 1 : normalized < 3.5 ? 2 : normalized < 7.5 ? 5 : 10;
    return step * magnitude;
}

// Like std::clamp, but a chart smaller than its label (where `last` < `first`) pins it to `first`
// instead of being undefined.
qreal pinned(qreal value, qreal first, qreal last)
{
    return std::max(first, std::min(value, last));
}

QFont labelFont()
{
    return style::font(style::TextStyle::caption2);
}

} // namespace

qreal GlucoseChartPainter::timeAxisHeight()
{
    return QFontMetricsF(labelFont()).height() + axisGap;
}

QList<QDateTime> GlucoseChartPainter::hourTicks(const QDateTime &from, const QDateTime &to, qreal width,
                                                qreal labelWidth)
{
    const qint64 spanMs = from.msecsTo(to);
    if (spanMs < 0)
        return {};
    // Back to the local whole hour, which is not a whole hour in UTC where the offset has minutes.
    const QTime local = from.toLocalTime().time();
    QDateTime hour = from.addMSecs(-qint64(local.minute() * 60'000 + local.second() * 1000 + local.msec()));
    if (hour < from)
        hour = hour.addSecs(3600);
    QList<std::pair<QDateTime, int>> hours; // with the local hour of the day
    for (; hour <= to; hour = hour.addSecs(3600))
        hours.append({hour, hour.toLocalTime().time().hour()});

    const auto every = [&hours](int step) {
        QList<QDateTime> ticks;
        for (const auto &[tick, hourOfDay] : std::as_const(hours)) {
            if (hourOfDay % step == 0)
                ticks.append(tick);
        }
        return ticks;
    };
    const auto fits = [&](const QList<QDateTime> &ticks) {
        for (qsizetype i = 1; i < ticks.size(); ++i) {
            if (qreal(ticks[i - 1].msecsTo(ticks[i])) * width < labelWidth * qreal(spanMs))
                return false;
        }
        return true;
    };
    QList<QDateTime> ticks;
    for (const int step : hourSteps) {
        ticks = every(step);
        if (fits(ticks))
            break;
    }
    // Under two hours without an even hour in them: the one whole hour there is, if any.
    return ticks.isEmpty() ? every(1) : ticks;
}

void GlucoseChartPainter::setInput(Input input)
{
    if (input == m_input)
        return;
    m_input = std::move(input);
    m_laidOutIn.reset();
}

void GlucoseChartPainter::paint(QPainter &painter, const QRectF &bounds, const QPalette &palette)
{
    if (m_laidOutIn != bounds) {
        layOut(bounds);
        m_laidOutIn = bounds;
    }
    const Geometry &g = m_geometry;
    if (g.plot.isEmpty())
        return;

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);

    // Sharp one-pixel lines on whole pixels. Filled as rectangles (with the half pixel a square cap adds
    // at each end) they cover what stroked lines did at a ninth of the cost: antialiased stroking goes
    // pixel by pixel, and the open panel draws the grid on every poll.
    const QColor grid = style::quaternaryFill(palette);
    for (const Geometry::Tick &tick : g.valueTicks)
        painter.fillRect(QRectF(g.plot.left() - 0.5, std::floor(tick.at), g.plot.width() + 1, 1), grid);
    for (const Geometry::Tick &tick : g.timeTicks)
        painter.fillRect(QRectF(std::floor(tick.at), g.plot.top() - 0.5, 1, g.plot.height() + 1), grid);

    if (g.band)
        painter.fillRect(*g.band, style::withOpacity(style::green(palette), m_input.bandOpacity));

    const QColor accent = style::accent(palette);
    const QColor red = style::red(palette);
    QPen line(accent, lineWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    for (const Geometry::Line &segment : g.lines) {
        line.setColor(segment.isBelowRedLine ? red : accent);
        painter.setPen(line);
        painter.drawPolyline(segment.points);
    }

    if (g.dot) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(g.dotIsBelowRedLine ? red : accent);
        painter.drawEllipse(*g.dot, dotDiameter / 2, dotDiameter / 2);
    }

    painter.setFont(m_font);
    painter.setPen(style::secondaryText(palette));
    for (const QList<Geometry::Tick> *ticks : {&g.valueTicks, &g.timeTicks}) {
        for (const Geometry::Tick &tick : *ticks)
            painter.drawStaticText(tick.labelTopLeft, tick.label);
    }
    painter.restore();
}

// Labels are shaped once and kept while their text stays: most changes only move them.
QStaticText GlucoseChartPainter::label(const QString &text, const QList<Geometry::Tick> &before) const
{
    for (const Geometry::Tick &tick : before) {
        if (tick.label.text() == text)
            return tick.label;
    }
    QStaticText label(text);
    label.setTextFormat(Qt::PlainText);
    label.prepare(QTransform(), m_font);
    return label;
}

void GlucoseChartPainter::layOut(const QRectF &bounds)
{
    const Geometry before = std::exchange(m_geometry, {});
    const QList<GlucoseReading> &history = m_input.history;
    if (history.isEmpty())
        return;
    Geometry &g = m_geometry;
    m_font = labelFont();
    const QFontMetricsF metrics(m_font);
    const GlucoseUnit unit = m_input.unit;
    g.yDomain = chartYDomain(history, unit, m_input.targets);

    // Round values from the bottom of the range up; their labels decide how much room the axis takes.
    QList<double> values;
    qreal valueLabelWidth = 0;
    if (m_input.showsValueAxis) {
        const double interval = valueTickInterval(g.yDomain.upper - g.yDomain.lower);
        const int decimals = std::max(0, int(-std::floor(std::log10(interval))));
        const double tolerance = interval * 1e-9;
        for (double value = std::ceil(g.yDomain.lower / interval - 1e-9) * interval;
             value <= g.yDomain.upper + tolerance; value += interval) {
            const QString text = QString::number(std::abs(value) < tolerance ? 0.0 : value, 'f', decimals);
            values.append(value);
            g.valueTicks.append({0, label(text, before.valueTicks), {}});
            valueLabelWidth = std::max(valueLabelWidth, metrics.horizontalAdvance(text));
        }
    }

    // Room for the stroke, or the dot, where the plot's edge is the chart's.
    const qreal inset = m_input.latest ? dotDiameter / 2 : lineWidth;
    g.plot =
        bounds.adjusted(inset, inset, m_input.showsValueAxis ? -(valueLabelWidth + valueLabelGap) : -inset,
                        m_input.showsTimeAxis ? -timeAxisHeight() : -inset);
    if (g.plot.width() <= 0 || g.plot.height() <= 0) {
        m_geometry = {};
        return;
    }

    // The span of the readings, nothing added: the first one is at the left edge, the newest at the right.
    QDateTime first = history.constFirst().date;
    QDateTime last = history.constLast().date;
    if (m_input.latest) {
        first = std::min(first, m_input.latest->date);
        last = std::max(last, m_input.latest->date);
    }
    const qint64 spanMs = first.msecsTo(last);
    const QRectF plot = g.plot;
    const auto x = [&](const QDateTime &date) {
        if (spanMs <= 0)
            return plot.center().x();
        return plot.left() + plot.width() * qreal(first.msecsTo(date)) / qreal(spanMs);
    };
    const GlucoseChartDomain domain = g.yDomain;
    const auto y = [&](double value) {
        return plot.bottom() - plot.height() * (value - domain.lower) / (domain.upper - domain.lower);
    };
    const auto yMgPerDl = [&](double mgPerDl) { return y(plotted(mgPerDl, unit)); };

    g.band = QRectF(QPointF(x(history.constFirst().date), yMgPerDl(m_input.targets.highMgPerDl)),
                    QPointF(x(history.constLast().date), yMgPerDl(m_input.targets.lowMgPerDl)));

    // Straight lines through every vertex, so that neighbouring segments meet exactly on the red line.
    for (const GlucoseChartSegment &segment : chartSegments(history, m_input.redLineMgPerDl)) {
        Geometry::Line line{{}, segment.isBelowRedLine};
        line.points.reserve(segment.points.size());
        for (const GlucoseChartPoint &point : segment.points)
            line.points.append({x(point.date), yMgPerDl(point.mgPerDl)});
        g.lines.append(std::move(line));
    }

    if (m_input.latest) {
        g.dot = QPointF(x(m_input.latest->date), yMgPerDl(m_input.latest->mgPerDl));
        g.dotIsBelowRedLine = m_input.latest->mgPerDl < m_input.redLineMgPerDl;
    }

    const qreal labelHeight = metrics.height();
    for (qsizetype i = 0; i < g.valueTicks.size(); ++i) {
        Geometry::Tick &tick = g.valueTicks[i];
        tick.at = y(values[i]);
        const qreal top = pinned(tick.at - labelHeight / 2, bounds.top(), bounds.bottom() - labelHeight);
        tick.labelTopLeft = {plot.right() + valueLabelGap, top};
    }

    if (m_input.showsTimeAxis) {
        const qreal labelWidth = metrics.horizontalAdvance(u"00:00"_s) + timeLabelSpacing;
        qreal freeFrom = bounds.left();
        for (const QDateTime &hour : hourTicks(first, last, plot.width(), labelWidth)) {
            const QString text = hour.toLocalTime().toString(u"HH:mm"_s);
            const qreal at = x(hour);
            const qreal width = metrics.horizontalAdvance(text);
            const qreal left = pinned(at - width / 2, bounds.left(), bounds.right() - width);
            // Pushed in from an edge, a label could still meet its neighbour: it is left out instead.
            if (left < freeFrom)
                continue;
            freeFrom = left + width + timeLabelSpacing;
            g.timeTicks.append({at, label(text, before.timeTicks), {left, plot.bottom() + axisGap}});
        }
    }
}

} // namespace glinta
