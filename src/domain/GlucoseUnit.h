#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

namespace glinta {

enum class GlucoseUnit
{
    mgPerDl,
    mmolPerL,
};

// The order a unit picker lists them in.
inline constexpr std::array allGlucoseUnits{GlucoseUnit::mgPerDl, GlucoseUnit::mmolPerL};

// "mg/dL" or "mmol/L": stored in preferences and the snapshot, and printed after values.
QString rawValue(GlucoseUnit unit);
// Exact, case-sensitive match of the raw value.
std::optional<GlucoseUnit> glucoseUnitFromRawValue(QStringView rawValue);

// The one way a glucose value becomes text: whole mg/dL rounded half away from zero, or mmol/L with one
// decimal and "." whatever the locale. Values outside what a signed 64-bit integer holds, and
// non-finite ones, read as an en dash.
QString format(GlucoseUnit unit, double mgPerDl);

} // namespace glinta
