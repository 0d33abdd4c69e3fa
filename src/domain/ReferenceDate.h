#pragma once

#include <QDateTime>

#include <optional>

namespace glinta {

// Dates in the snapshot file are seconds (with fraction) since 2001-01-01 00:00:00 UTC, the encoding
// the widget side already expects.
double secondsSinceReferenceDate(const QDateTime &date);
// Millisecond precision; no date for a non-finite value or one outside what QDateTime holds.
std::optional<QDateTime> dateFromSecondsSinceReferenceDate(double seconds);

} // namespace glinta
