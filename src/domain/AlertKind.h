#pragma once

#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

namespace glinta {

enum class AlertKind
{
    urgentLow,
    low,
    high,
    fallingFast,
    risingFast,
    noReadings,
    signedOut,
};

// The order Settings lists them in.
inline constexpr std::array allAlertKinds{
    AlertKind::urgentLow,  AlertKind::low,        AlertKind::high,     AlertKind::fallingFast,
    AlertKind::risingFast, AlertKind::noReadings, AlertKind::signedOut};

// "urgentLow", "low", …: the names alerts are kept under in the preferences and the snapshot.
QString alertKindName(AlertKind kind);
std::optional<AlertKind> alertKindFromName(QStringView name);

// The alert's one line, as a notification's summary, on the panel and in the tooltip: the kind, and for a
// glucose alert the newest value and arrow in the user's unit, as in "Low: 62 ↘".
QString alertTitle(AlertKind kind, const std::optional<GlucoseReading> &latest, GlucoseUnit unit);

// The notification's body: the person's name, when known, and how old the newest reading is, as in
// "Ann Lee · 2 min ago"; for the signed-out alert, what to do instead of the age.
QString alertBody(AlertKind kind, const std::optional<GlucoseReading> &latest,
                  const std::optional<QString> &name, const QDateTime &now);

// Red for lows, orange for the rest: what the panel and the status line colour the alert with.
inline bool isLowAlert(AlertKind kind)
{
    return kind == AlertKind::urgentLow || kind == AlertKind::low;
}

} // namespace glinta
