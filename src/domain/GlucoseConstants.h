#pragma once

#include <chrono>

namespace glinta {

// Every glucose figure inside Glinta is in mg/dL; mmol/L exists only on screen.
inline constexpr double mgPerDlPerMmolPerL = 18.0182;

inline constexpr double targetLowMgPerDl = 70.0;
inline constexpr double targetHighMgPerDl = 180.0;

inline constexpr double chartFloorMgPerDl = 40.0;
inline constexpr double chartHeadroomMgPerDl = 20.0;
inline constexpr double chartMinimumTopMgPerDl = 220.0;

inline constexpr std::chrono::seconds staleReadingAge{900};

} // namespace glinta
