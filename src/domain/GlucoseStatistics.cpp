#include "domain/GlucoseStatistics.h"

#include <cmath>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace glinta {

QString averageText(const QList<GlucoseReading> &history, GlucoseUnit unit)
{
    if (history.isEmpty())
        return u"\u2013"_s;
    double sum = 0.0;
    for (const GlucoseReading &reading : history)
        sum += reading.mgPerDl;
    return format(unit, sum / static_cast<double>(history.size()));
}

QString inRangeText(const QList<GlucoseReading> &history, const TargetRange &range)
{
    if (history.isEmpty())
        return u"\u2013"_s;
    qsizetype inRange = 0;
    for (const GlucoseReading &reading : history) {
        // Written so that NaN, which compares false both ways, counts as out of range.
        if (reading.mgPerDl >= range.lowMgPerDl && reading.mgPerDl <= range.highMgPerDl)
            ++inRange;
    }
    const double percentage = static_cast<double>(inRange) / static_cast<double>(history.size()) * 100.0;
    return QString::number(static_cast<std::int64_t>(std::round(percentage))) + u'%';
}

QString readingCountText(const QList<GlucoseReading> &history)
{
    return QString::number(history.size());
}

} // namespace glinta
