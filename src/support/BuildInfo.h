#pragma once

#include <QString>

namespace glinta {

// What this build calls itself. A value, so tests can hand the store any build they like.
struct BuildInfo
{
    // The marketing version, such as 1.3.5.
    QString shortVersion;
    // The build number; a change of it at launch wakes the widgets.
    QString buildNumber;
    // The appcast the updater reads; empty when this build checks for no updates.
    QString updateFeedUrl = {};

    static BuildInfo current();

    friend bool operator==(const BuildInfo &, const BuildInfo &) = default;
};

} // namespace glinta
