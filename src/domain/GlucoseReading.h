#pragma once

#include "domain/TargetRange.h"
#include "domain/TrendArrow.h"

#include <QDateTime>
#include <QJsonValue>

#include <optional>

namespace glinta {

class JsonWriter;
namespace json {
class Path;
}

// One measurement, always in mg/dL and never rounded in storage.
struct GlucoseReading
{
    QDateTime date;
    double mgPerDl = 0.0;
    std::optional<TrendArrow> trend;
    bool isHigh = false;
    bool isLow = false;

    friend bool operator==(const GlucoseReading &, const GlucoseReading &) = default;
};

// More than 15 minutes old at `now`, to the millisecond: exactly 900 s is still fresh. A reading dated
// after `now` (a clock behind the phone's) is fresh.
bool isStale(const GlucoseReading &reading, const QDateTime &now);

// Where a reading stands against a target range: the service's own high and low flags first, then the
// range's bounds (inclusive).
enum class GlucoseRange
{
    low,
    inRange,
    high,
};
GlucoseRange glucoseRange(const GlucoseReading &reading, const TargetRange &range);

// The reading's JSON object: "date" (seconds since 2001-01-01 UTC), "mgPerDl", "trend" (left out when
// absent), "isHigh", "isLow", in that order.
void writeJson(JsonWriter &writer, const GlucoseReading &reading);
// Throws DecodingError for a missing key, a wrong type, a trend outside 1...5 or an unusable date.
GlucoseReading readingFromJson(const QJsonValue &value, const json::Path &at);

} // namespace glinta
