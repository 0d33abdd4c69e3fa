#include "domain/ReferenceDate.h"

#include <cmath>

namespace glinta {

namespace {

constexpr qint64 referenceDateMSecsSinceEpoch = 978307200000; // 2001-01-01T00:00:00Z
// Far beyond any real reading, and small enough that the millisecond arithmetic cannot overflow.
constexpr double maximumSeconds = 1.0e14;

} // namespace

double secondsSinceReferenceDate(const QDateTime &date)
{
    return static_cast<double>(date.toMSecsSinceEpoch() - referenceDateMSecsSinceEpoch) / 1000.0;
}

std::optional<QDateTime> dateFromSecondsSinceReferenceDate(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) > maximumSeconds)
        return std::nullopt;
    const qint64 msecs = std::llround(seconds * 1000.0) + referenceDateMSecsSinceEpoch;
    QDateTime date = QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
    if (!date.isValid())
        return std::nullopt;
    return date;
}

} // namespace glinta
