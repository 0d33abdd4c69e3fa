#include "client/ServiceMapping.h"

#include "client/ServiceTimestamp.h"
#include "support/Logging.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

std::optional<GlucoseReading> reading(const LLUMeasurement &measurement)
{
    // The UTC text gives the true instant wherever the sharer and the follower are; the local one only
    // when both live in the same zone, so it is the fallback.
    std::optional<QDateTime> date;
    if (measurement.factoryTimestamp)
        date = parseServiceTimestampUtc(*measurement.factoryTimestamp);
    if (!date)
        date = parseServiceTimestamp(measurement.timestamp);
    if (!date) {
        qCCritical(lcGlucoseStore, "Could not parse timestamp %s", qUtf8Printable(measurement.timestamp));
        return std::nullopt;
    }
    GlucoseReading result;
    result.date = *date;
    result.mgPerDl = measurement.valueInMgPerDl;
    if (measurement.trendArrow)
        result.trend = trendArrowFromRawValue(*measurement.trendArrow);
    result.isHigh = measurement.isHigh.value_or(false);
    result.isLow = measurement.isLow.value_or(false);
    return result;
}

GraphReadings readings(const LLUGraphData &graph)
{
    GraphReadings result;
    QList<GlucoseReading> &history = result.history;
    history.reserve(graph.graphData.size() + 1);
    for (const LLUMeasurement &measurement : graph.graphData) {
        if (auto mapped = reading(measurement))
            history.append(std::move(*mapped));
    }
    std::stable_sort(history.begin(), history.end(),
                     [](const GlucoseReading &a, const GlucoseReading &b) { return a.date < b.date; });

    // The connection's measurement is the current one and wins even when a history point is as new;
    // it only extends the history when it is strictly newer.
    std::optional<GlucoseReading> current;
    if (graph.connection && graph.connection->glucoseMeasurement)
        current = reading(*graph.connection->glucoseMeasurement);
    if (current) {
        if (history.isEmpty() || current->date > history.constLast().date)
            history.append(*current);
        result.latest = std::move(current);
    } else if (!history.isEmpty()) {
        // Chosen before duplicates go, so of two newest points at one instant the later one in the
        // service's order is the latest, while the history keeps the first.
        result.latest = history.constLast();
    }

    const auto duplicate =
        std::unique(history.begin(), history.end(),
                    [](const GlucoseReading &a, const GlucoseReading &b) { return a.date == b.date; });
    history.erase(duplicate, history.end());

    if (graph.connection)
        result.displayName = displayName(*graph.connection);
    return result;
}

std::optional<QString> displayName(const LLUConnection &connection)
{
    QStringList parts;
    if (connection.firstName)
        parts.append(*connection.firstName);
    if (connection.lastName)
        parts.append(*connection.lastName);
    QString joined = parts.join(u' ');
    if (joined.isEmpty())
        return std::nullopt;
    return joined;
}

} // namespace glinta
