#pragma once

#include "domain/AlertKind.h"
#include "domain/GlucoseReading.h"
#include "domain/TargetRange.h"

#include <QDateTime>
#include <QHash>
#include <QList>

#include <chrono>
#include <optional>

namespace glinta {

// The user's choices that decide alerts.
struct AlertSettings
{
    TargetRange range;
    // The urgent line is the round number of the unit the user reads.
    GlucoseUnit unit = GlucoseUnit::mgPerDl;
    // Urgent low, low, high, no readings and signed out are on by default; the fast trends are not.
    QHash<AlertKind, bool> enabled;

    bool isEnabled(AlertKind kind) const;
};

// What alerts remember, across restarts too: when each last went off, on which reading, until when it
// is snoozed, and which are active (their condition holds and their notification is up).
struct AlertState
{
    QHash<AlertKind, QDateTime> lastRaised;
    QHash<AlertKind, QDateTime> lastReading;
    QHash<AlertKind, QDateTime> snoozedUntil;
    QHash<AlertKind, bool> active;

    friend bool operator==(const AlertState &, const AlertState &) = default;
};

// JSON text for the preferences, and back; text that does not read gives an empty state.
QByteArray encodeAlertState(const AlertState &state);
AlertState decodeAlertState(const QByteArray &text);

struct AlertAction
{
    enum class Type
    {
        raise,
        close,
    };
    Type type;
    AlertKind kind;

    friend bool operator==(const AlertAction &, const AlertAction &) = default;
};

// Decides which alerts go off, repeat or end. Pure: the caller keeps the state, shows what it says and
// calls it again whenever a reading arrives, the clock ticks or the loop stops.
class AlertEngine
{
public:
    // 55 mg/dL, or 3.0 mmol/L (54.05 mg/dL) for a user who reads mmol/L.
    static double urgentLowMgPerDl(GlucoseUnit unit);
    static constexpr std::chrono::minutes noReadingsAge{20};

    // How long a holding condition stays quiet before it goes off again; nothing for once per episode.
    static std::optional<std::chrono::minutes> repeatInterval(AlertKind kind);

    // `blind`: the poll loop stopped on a credential problem.
    static QList<AlertAction> evaluate(const std::optional<GlucoseReading> &latest, const QDateTime &now,
                                       bool blind, const AlertSettings &settings, AlertState &state);
};

} // namespace glinta
