#pragma once

#include "domain/AlertKind.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace glinta {

// What the status item shows: a pure function of the newest reading, the unit, the store's clock and the
// waiting update.
struct MenuBarTitle
{
    // No reading: the item shows the "drop.circle" icon instead of text.
    bool showsSymbol = true;
    // The whole title, as in 124 ↗ ⚠︎ •; empty with the symbol.
    QString text;
    // The widest title the unit is likely to give, for a host that sizes a text label ahead of time.
    QString labelGuide;
    // What a screen reader says for the item.
    QString accessibilityLabel;

    // The pieces, for drawing an icon that cannot fit the whole text.
    QString value;
    std::optional<TrendArrow> trend;
    bool isStale = false;
    bool updateWaiting = false;
    // The alert that holds, as in "Low: 62 ↘"; empty when none does.
    QString alert;

    friend bool operator==(const MenuBarTitle &, const MenuBarTitle &) = default;
};

MenuBarTitle menuBarTitle(const std::optional<GlucoseReading> &latest, GlucoseUnit unit, const QDateTime &now,
                          const std::optional<QString> &waitingVersion,
                          std::optional<AlertKind> alert = std::nullopt);

} // namespace glinta
