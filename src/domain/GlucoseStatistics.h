#pragma once

#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"

#include <QList>
#include <QString>

// The statistics row under the chart. Each takes the store's history as it is: no cut by time here.
namespace glinta {

// Mean of the history in mg/dL, formatted in `unit`; an en dash for no readings.
QString averageText(const QList<GlucoseReading> &history, GlucoseUnit unit);
// Whole percentage of readings with low <= value <= high, halves away from zero, as in 83%; an en dash
// for no readings.
QString inRangeText(const QList<GlucoseReading> &history, const TargetRange &range);
QString readingCountText(const QList<GlucoseReading> &history);

} // namespace glinta
