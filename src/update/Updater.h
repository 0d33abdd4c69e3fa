#pragma once

#include <QObject>

namespace glinta {

// What the views need of the update machinery: whether a check may start now, and starting one.
class Updater : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // False while a check or an offered update is in progress, and when this build has no feed.
    virtual bool canCheckForUpdates() const = 0;
    // A check the user asked for: whatever it finds is shown.
    virtual void checkForUpdates() = 0;

Q_SIGNALS:
    void canCheckForUpdatesChanged();
};

} // namespace glinta
