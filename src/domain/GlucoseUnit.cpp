#include "domain/GlucoseUnit.h"

#include "domain/GlucoseConstants.h"

#include <charconv>
#include <cmath>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString enDash = u"\u2013"_s;

// 2^63: the first magnitude a signed 64-bit integer cannot hold.
constexpr double int64Bound = 9223372036854775808.0;

} // namespace

QString rawValue(GlucoseUnit unit)
{
    switch (unit) {
    case GlucoseUnit::mgPerDl:
        return u"mg/dL"_s;
    case GlucoseUnit::mmolPerL:
        return u"mmol/L"_s;
    }
    Q_UNREACHABLE();
    return {};
}

std::optional<GlucoseUnit> glucoseUnitFromRawValue(QStringView rawValue)
{
    if (rawValue == u"mg/dL")
        return GlucoseUnit::mgPerDl;
    if (rawValue == u"mmol/L")
        return GlucoseUnit::mmolPerL;
    return std::nullopt;
}

QString format(GlucoseUnit unit, double mgPerDl)
{
    if (!std::isfinite(mgPerDl))
        return enDash;
    // std::round rounds halves away from zero, unlike qRound's edge behaviour on negatives.
    const double rounded = std::round(mgPerDl);
    if (rounded < -int64Bound || rounded >= int64Bound)
        return enDash;

    switch (unit) {
    case GlucoseUnit::mgPerDl:
        return QString::number(static_cast<std::int64_t>(rounded));
    case GlucoseUnit::mmolPerL: {
        // to_chars is locale-independent and rounds like printf("%.1f") in the C locale.
        char buffer[32];
        const auto result = std::to_chars(std::begin(buffer), std::end(buffer), mgPerDl / mgPerDlPerMmolPerL,
                                          std::chars_format::fixed, 1);
        return QString::fromLatin1(buffer, result.ptr - buffer);
    }
    }
    Q_UNREACHABLE();
    return {};
}

} // namespace glinta
