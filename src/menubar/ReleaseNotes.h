#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace glinta {

// One released version as the What's New window lists it.
struct ReleaseNote
{
    QString version;
    QString date; // the month of release, shown as it is
    QStringList changes;
};

// Every release, newest first; written by hand with each release and never reordered.
const QList<ReleaseNote> &releaseNotes();

} // namespace glinta
