#pragma once

#include "client/LLURecords.h"
#include "domain/GlucoseReading.h"

#include <QList>
#include <QString>

#include <optional>

// From the service's records to Glinta's own readings. Pure, apart from the shared timestamp zone.
namespace glinta {

struct GraphReadings
{
    std::optional<GlucoseReading> latest;
    // Oldest first, no two readings at the same instant.
    QList<GlucoseReading> history;
    std::optional<QString> displayName;
};

// Dated by "FactoryTimestamp" (UTC) when it parses, else by "Timestamp" in the system zone; nothing,
// logged, when neither parses. Unknown trend codes give no trend.
std::optional<GlucoseReading> reading(const LLUMeasurement &measurement);
GraphReadings readings(const LLUGraphData &graph);
// First and last name joined by a space, each only when present; nothing when that leaves no text.
std::optional<QString> displayName(const LLUConnection &connection);

} // namespace glinta
