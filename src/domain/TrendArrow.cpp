#include "domain/TrendArrow.h"

using namespace Qt::StringLiterals;

namespace glinta {

std::optional<TrendArrow> trendArrowFromRawValue(std::int64_t rawValue)
{
    if (rawValue < 1 || rawValue > 5)
        return std::nullopt;
    return static_cast<TrendArrow>(rawValue);
}

QString symbol(TrendArrow trend)
{
    switch (trend) {
    case TrendArrow::fallingQuickly:
        return u"\u2193"_s;
    case TrendArrow::falling:
        return u"\u2198"_s;
    case TrendArrow::steady:
        return u"\u2192"_s;
    case TrendArrow::rising:
        return u"\u2197"_s;
    case TrendArrow::risingQuickly:
        return u"\u2191"_s;
    }
    Q_UNREACHABLE();
    return {};
}

QString spokenName(TrendArrow trend)
{
    switch (trend) {
    case TrendArrow::fallingQuickly:
        return u"falling quickly"_s;
    case TrendArrow::falling:
        return u"falling"_s;
    case TrendArrow::steady:
        return u"steady"_s;
    case TrendArrow::rising:
        return u"rising"_s;
    case TrendArrow::risingQuickly:
        return u"rising quickly"_s;
    }
    Q_UNREACHABLE();
    return {};
}

} // namespace glinta
