#include "store/AlertEngine.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

namespace {

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
    if (isStale(*latest, now))
        return std::nullopt;
    const double value = latest->mgPerDl;
    const bool urgent = value < AlertEngine::urgentLowMgPerDl(settings.unit);
    switch (kind) {
    case AlertKind::urgentLow:
        return urgent;
    case AlertKind::low:
        // Below the urgent line the urgent alert speaks for both, unless it is off.
        return value < settings.range.lowMgPerDl && !(urgent && settings.isEnabled(AlertKind::urgentLow));
    case AlertKind::high:
        return value > settings.range.highMgPerDl;
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

QByteArray encodeAlertState(const AlertState &state)
{
    QJsonObject kinds;
    for (const AlertKind kind : allAlertKinds) {
        QJsonObject entry;
        const auto put = [&entry, kind](const QString &key, const QHash<AlertKind, QDateTime> &times) {
            if (times.contains(kind))
                entry.insert(key, times.value(kind).toUTC().toString(Qt::ISODateWithMs));
        };
        put(u"lastRaised"_s, state.lastRaised);
        put(u"lastReading"_s, state.lastReading);
        put(u"snoozedUntil"_s, state.snoozedUntil);
        if (state.active.value(kind))
            entry.insert(u"active"_s, true);
        if (!entry.isEmpty())
            kinds.insert(alertKindName(kind), entry);
    }
    return QJsonDocument(kinds).toJson(QJsonDocument::Compact);
}

AlertState decodeAlertState(const QByteArray &text)
{
    AlertState state;
    const QJsonObject kinds = QJsonDocument::fromJson(text).object();
    for (auto it = kinds.begin(); it != kinds.end(); ++it) {
        const std::optional<AlertKind> kind = alertKindFromName(it.key());
        if (!kind)
            continue;
        const QJsonObject entry = it.value().toObject();
        const auto take = [&entry, kind](const QString &key, QHash<AlertKind, QDateTime> &times) {
            const QDateTime time = QDateTime::fromString(entry.value(key).toString(), Qt::ISODateWithMs);
            if (time.isValid())
                times.insert(*kind, time.toUTC());
        };
        take(u"lastRaised"_s, state.lastRaised);
        take(u"lastReading"_s, state.lastReading);
        take(u"snoozedUntil"_s, state.snoozedUntil);
        if (entry.value(u"active"_s).toBool())
            state.active.insert(*kind, true);
    }
    return state;
}

bool AlertSettings::isEnabled(AlertKind kind) const
{
    if (kind == AlertKind::signedOut)
        return true;
    const bool byDefault = kind != AlertKind::fallingFast && kind != AlertKind::risingFast;
    return enabled.value(kind, byDefault);
}

double AlertEngine::urgentLowMgPerDl(GlucoseUnit unit)
{
    return unit == GlucoseUnit::mmolPerL ? 3.0 * mgPerDlPerMmolPerL : 55.0;
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
    for (const AlertKind kind : allAlertKinds) {
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
