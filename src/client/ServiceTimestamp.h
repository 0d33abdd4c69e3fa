#pragma once

#include <QDateTime>
#include <QStringView>
#include <QTimeZone>

#include <optional>

namespace glinta {

// Reads the service's "M/d/yyyy h:mm:ss a" timestamps (C locale, AM/PM) as wall-clock time in the
// system time zone, captured once on first use and kept for the life of the process. A local time that
// falls in a daylight-saving gap never happened and gives no date; one in the repeated hour gives the
// earlier instant. The result is in UTC.
std::optional<QDateTime> parseServiceTimestamp(QStringView text);
// The same text read as UTC, as the service writes "FactoryTimestamp".
std::optional<QDateTime> parseServiceTimestampUtc(QStringView text);

// The zone every timestamp is read in.
const QTimeZone &serviceTimeZone();

} // namespace glinta
