#include "domain/GlucoseChartSeries.h"

#include "domain/GlucoseConstants.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace glinta {

GlucoseChartDomain chartYDomain(const QList<GlucoseReading> &history, GlucoseUnit unit,
                                const TargetRange &range)
{
    // A high target above the usual top keeps its band on the chart.
    const double minimumTop = std::max(chartMinimumTopMgPerDl, range.highMgPerDl + chartHeadroomMgPerDl);
    double top = minimumTop;
    if (!history.isEmpty()) {
        // Started below every value and compared with ">" so that a NaN reading cannot become the top.
        double largest = -std::numeric_limits<double>::infinity();
        for (const GlucoseReading &reading : history) {
            if (reading.mgPerDl > largest)
                largest = reading.mgPerDl;
        }
        top = std::max(largest + chartHeadroomMgPerDl, minimumTop);
    }
    double bottom = chartFloorMgPerDl;
    if (unit == GlucoseUnit::mmolPerL) {
        bottom /= mgPerDlPerMmolPerL;
        top /= mgPerDlPerMmolPerL;
    }
    return {bottom, top};
}

namespace {

// The instant between `from` and `to` at `fraction` of the way, to the millisecond.
QDateTime interpolate(const QDateTime &from, const QDateTime &to, double fraction)
{
    // Only non-finite readings can make the fraction leave [0, 1]; pin it rather than land off the chart.
    if (!(fraction >= 0.0))
        fraction = 0.0;
    fraction = std::min(fraction, 1.0);
    const qint64 span = from.msecsTo(to);
    return from.addMSecs(std::llround(static_cast<double>(span) * fraction));
}

} // namespace

QList<GlucoseChartSegment> chartSegments(const QList<GlucoseReading> &readings, double redLine)
{
    QList<GlucoseChartSegment> segments;
    if (readings.isEmpty())
        return segments;

    QList<GlucoseChartPoint> open;
    const auto appendIfLater = [&open](GlucoseChartPoint point) {
        if (open.isEmpty() || point.date > open.constLast().date)
            open.append(std::move(point));
    };
    const auto close = [&segments, &open](bool below) {
        segments.append(GlucoseChartSegment{segments.size(), below, std::exchange(open, {})});
    };

    const GlucoseReading &first = readings.constFirst();
    open.append({first.date, first.mgPerDl});
    bool below = first.mgPerDl < redLine;

    for (qsizetype i = 1; i < readings.size(); ++i) {
        const GlucoseReading &previous = readings.at(i - 1);
        const GlucoseReading &current = readings.at(i);
        const bool currentBelow = current.mgPerDl < redLine;
        if (currentBelow != below) {
            const double fraction = (redLine - previous.mgPerDl) / (current.mgPerDl - previous.mgPerDl);
            const GlucoseChartPoint crossing{interpolate(previous.date, current.date, fraction), redLine};
            appendIfLater(crossing);
            close(below);
            open.append(crossing);
            below = currentBelow;
        }
        appendIfLater({current.date, current.mgPerDl});
    }
    close(below);
    return segments;
}

} // namespace glinta
