#pragma once

#include <QObject>

namespace glinta {

// What the views need of the update machinery: whether a check may start now, and starting one.
class Updater : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    virtual bool canCheckForUpdates() const = 0;
    virtual void checkForUpdates() = 0;
};

} // namespace glinta
