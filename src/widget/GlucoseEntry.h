#pragma once

#include "snapshot/GlucoseSnapshot.h"

#include <QDateTime>

#include <optional>

namespace glinta {

// One moment of the widget's timeline: when it is shown, and what the application last published.
struct GlucoseEntry
{
    QDateTime date;
    // None when the application is signed out or has published nothing.
    std::optional<GlucoseSnapshot> snapshot;

    friend bool operator==(const GlucoseEntry &, const GlucoseEntry &) = default;
};

} // namespace glinta
