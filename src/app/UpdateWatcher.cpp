#include "app/UpdateWatcher.h"

#include "store/Preferences.h"
#include "support/Logging.h"

namespace glinta {

UpdateWatcher::UpdateWatcher(Preferences *preferences) : m_preferences(preferences) {}

bool UpdateWatcher::supportsGentleScheduledUpdateReminders() const
{
    return true;
}

void UpdateWatcher::standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate,
                                                              const AppcastItem &update,
                                                              const UpdateState &state)
{
    // Whether the driver shows the window itself does not matter: the badge is for scheduled finds.
    Q_UNUSED(handleShowingUpdate);
    // The user asked, so the update window is already in front of them.
    if (state.userInitiated)
        return;
    if (m_preferences)
        m_preferences->setAvailableUpdateVersion(update.displayVersionString);
    qCInfo(lcUpdates, "Update %s waiting; badging the menu bar", qUtf8Printable(update.displayVersionString));
}

void UpdateWatcher::standardUserDriverDidReceiveUserAttentionForUpdate(const AppcastItem &update)
{
    Q_UNUSED(update);
    // Seeing the window is not acting on it: the badge goes only when the user clicks it away.
    qCInfo(lcUpdates, "Sparkle showed its window; badge stays until acted on");
}

} // namespace glinta
