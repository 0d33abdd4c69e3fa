#pragma once

#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"

#include <QDateTime>
#include <QList>

namespace glinta {

// One vertex of a chart line, always in mg/dL; conversion happens only when plotting.
struct GlucoseChartPoint
{
    QDateTime date;
    double mgPerDl = 0.0;

    friend bool operator==(const GlucoseChartPoint &, const GlucoseChartPoint &) = default;
};

// A run of the line wholly on one side of the red line. Neighbours share their crossing point, so the
// two colours meet on the line without a gap.
struct GlucoseChartSegment
{
    qsizetype id = 0;
    bool isBelowRedLine = false;
    QList<GlucoseChartPoint> points;

    friend bool operator==(const GlucoseChartSegment &, const GlucoseChartSegment &) = default;
};

struct GlucoseChartDomain
{
    double lower = 0.0;
    double upper = 0.0;

    friend bool operator==(const GlucoseChartDomain &, const GlucoseChartDomain &) = default;
};

// 40 up to the larger of 220 and the highest reading plus 20, in the display unit.
GlucoseChartDomain chartYDomain(const QList<GlucoseReading> &history, GlucoseUnit unit,
                                const TargetRange &range = {});

// Splits readings (oldest first, as the store keeps them; not sorted here) into segments at `redLine`
// mg/dL. A value equal to the red line is not below it; a reading not later than the point before it is
// left out of the line.
QList<GlucoseChartSegment> chartSegments(const QList<GlucoseReading> &readings, double redLine);

} // namespace glinta
