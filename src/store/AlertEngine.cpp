#include "AlertEngine.h"

#include <array>

using namespace std::chrono_literals;

namespace glinta {

namespace {

constexpr std::array allKinds{AlertKind::urgentLow,   AlertKind::low,        AlertKind::high,
                              AlertKind::fallingFast, AlertKind::risingFast, AlertKind::noReadings,
                              AlertKind::signedOut};

// Whether the kind's condition holds; nothing when it cannot be judged now.
std::optional<bool> holds(AlertKind kind, const std::optional<GlucoseReading> &latest, const QDateTime &now,
                          bool blind, const AlertSettings &settings)
{
    if (kind == AlertKind::signedOut)
        return blind;
    if (!latest)
        return std::nullopt;
    const qint64 ageMs = latest->date.msecsTo(now);
    if (kind == AlertKind::noReadings)
        return ageMs > std::chrono::milliseconds(AlertEngine::noReadingsAge).count();
    // Glucose alerts are judged on fresh readings only: an old value is the no-readings alert's matter.
    if (ageMs > std::chrono::milliseconds(AlertEngine::freshReadingAge).count())
        return std::nullopt;
    const double value = latest->mgPerDl;
    const bool urgent = value < AlertEngine::urgentLowMgPerDl;
    switch (kind) {
    case AlertKind::urgentLow:
        return urgent;
    case AlertKind::low:
        // Below the urgent line the urgent alert speaks for both, unless it is off.
        return value < settings.targetLowMgPerDl && !(urgent && settings.isEnabled(AlertKind::urgentLow));
    case AlertKind::high:
        return value > settings.targetHighMgPerDl;
    case AlertKind::fallingFast:
        return latest->trend == TrendArrow::fallingQuickly;
    case AlertKind::risingFast:
        return latest->trend == TrendArrow::risingQuickly;
    case AlertKind::noReadings:
    case AlertKind::signedOut:
        break;
    }
    return std::nullopt;
}

bool isGlucoseAlert(AlertKind kind)
{
    return kind != AlertKind::noReadings && kind != AlertKind::signedOut;
}

} // namespace

bool AlertSettings::isEnabled(AlertKind kind) const
{
    if (kind == AlertKind::signedOut)
        return true;
    const bool byDefault = kind != AlertKind::fallingFast && kind != AlertKind::risingFast;
    return enabled.value(kind, byDefault);
}

std::optional<std::chrono::minutes> AlertEngine::repeatInterval(AlertKind kind)
{
    switch (kind) {
    case AlertKind::urgentLow:
        return 5min;
    case AlertKind::low:
        return 15min;
    case AlertKind::high:
        return 60min;
    case AlertKind::noReadings:
        return 30min;
    case AlertKind::fallingFast:
    case AlertKind::risingFast:
    case AlertKind::signedOut:
        break;
    }
    return std::nullopt;
}

QList<AlertAction> AlertEngine::evaluate(const std::optional<GlucoseReading> &latest, const QDateTime &now,
                                         bool blind, const AlertSettings &settings, AlertState &state)
{
    QList<AlertAction> actions;
    for (const AlertKind kind : allKinds) {
        const bool active = state.active.value(kind);
        const std::optional<bool> condition =
            settings.isEnabled(kind) ? holds(kind, latest, now, blind, settings) : std::optional(false);
        if (!condition)
            continue;
        if (!*condition) {
            if (active) {
                state.active.remove(kind);
                actions.append({AlertAction::Type::close, kind});
            }
            continue;
        }

        if (state.snoozedUntil.contains(kind) && now < state.snoozedUntil.value(kind))
            continue;
        // At most once per reading, so a tick of the clock alone never repeats a glucose alert.
        if (isGlucoseAlert(kind) && state.lastReading.value(kind) == latest->date)
            continue;
        // The pace holds across episodes too, so a value wavering at a threshold does not alert at every
        // crossing, and across restarts, since the state is kept.
        const std::optional<std::chrono::minutes> interval = repeatInterval(kind);
        const QDateTime last = state.lastRaised.value(kind);
        if (interval ? last.isValid() && last.msecsTo(now) < std::chrono::milliseconds(*interval).count()
                     : active)
            continue;
        state.active.insert(kind, true);
        state.lastRaised.insert(kind, now);
        if (latest)
            state.lastReading.insert(kind, latest->date);
        actions.append({AlertAction::Type::raise, kind});
    }
    return actions;
}

} // namespace glinta
