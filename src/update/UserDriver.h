#pragma once

#include "update/AppcastItem.h"

#include <QString>

#include <functional>

namespace glinta {

struct UpdateState
{
    // The user asked for this check (menu item, banner); otherwise the daily schedule started it.
    bool userInitiated = false;
};

enum class UpdateChoice
{
    install,
    remindLater,
    skip,
};

// How the updater talks to the user. It never decides what to show; the driver does.
class UserDriver
{
public:
    virtual ~UserDriver() = default;

    // An update was found; `reply` must be called once with the user's choice (or remindLater when the
    // driver decides not to ask now).
    virtual void showUpdateFound(const AppcastItem &update, const UpdateState &state,
                                 std::function<void(UpdateChoice)> reply) = 0;
    // A check the user asked for found nothing newer.
    virtual void showUpdateNotFound() = 0;
    // A check the user asked for failed; `message` says why, for people.
    virtual void showUpdaterError(const QString &message) = 0;
    // The check the user asked for has started; the driver may show progress.
    virtual void showCheckingForUpdates() {}
};

// What the application may tell the standard driver about showing updates.
class UserDriverDelegate
{
public:
    virtual ~UserDriverDelegate() = default;

    // True: a scheduled check's update is not shown at once; the application reminds gently instead.
    virtual bool supportsGentleScheduledUpdateReminders() const { return false; }
    // The driver is about to handle an update; `handleShowingUpdate` says whether it will show it itself.
    virtual void standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate,
                                                           const AppcastItem &update,
                                                           const UpdateState &state)
    {
        Q_UNUSED(handleShowingUpdate);
        Q_UNUSED(update);
        Q_UNUSED(state);
    }
    // The driver's update window has the user's attention.
    virtual void standardUserDriverDidReceiveUserAttentionForUpdate(const AppcastItem &update)
    {
        Q_UNUSED(update);
    }
};

} // namespace glinta
