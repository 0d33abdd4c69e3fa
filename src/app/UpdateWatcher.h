#pragma once

#include "update/UserDriver.h"

#include <QPointer>

namespace glinta {

class Preferences;

// What the update driver tells the application about updates it finds. An update that a scheduled
// check finds is not put in front of the user at once (such alerts opened behind other windows and
// went unseen); its version is recorded instead, which badges the tray icon and shows the panel's
// update row. The only writer of the waiting version.
class UpdateWatcher : public UserDriverDelegate
{
public:
    explicit UpdateWatcher(Preferences *preferences);

    bool supportsGentleScheduledUpdateReminders() const override;
    void standardUserDriverWillHandleShowingUpdate(bool handleShowingUpdate, const AppcastItem &update,
                                                   const UpdateState &state) override;
    void standardUserDriverDidReceiveUserAttentionForUpdate(const AppcastItem &update) override;

private:
    QPointer<Preferences> m_preferences;
};

} // namespace glinta
