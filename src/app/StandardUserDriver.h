#pragma once

#include "update/UserDriver.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace glinta {

class UpdateWindow;

// The update driver the application uses: it puts offers and the outcome of checks the user started in
// one "Software Update" window, and leaves a scheduled check's update to the delegate when the delegate
// reminds gently (the tray badge and the panel's row) instead.
//
// A check the user cancels (closing the window while it checks) is not called back: if its result is
// an update, it is shown anyway, as the user wanted one; "up to date" or a failure is dropped.
class StandardUserDriver : public QObject, public UserDriver
{
    Q_OBJECT

public:
    // The running version is this build's short version.
    explicit StandardUserDriver(UserDriverDelegate *delegate, QObject *parent = nullptr);
    StandardUserDriver(UserDriverDelegate *delegate, QString runningVersion, QObject *parent = nullptr);
    ~StandardUserDriver() override;

    void showUpdateFound(const AppcastItem &update, const UpdateState &state,
                         std::function<void(UpdateChoice)> reply) override;
    void showUpdateNotFound() override;
    void showUpdaterError(const QString &message) override;
    void showCheckingForUpdates() override;

    // The window, once anything has been shown; hidden when closed.
    UpdateWindow *window() const { return m_window.get(); }

private:
    UpdateWindow *ensureWindow();
    void present();
    // A check's outcome for the window; false when the user gave up on that check.
    bool takeCheckOutcome();
    // Replies to the offer on screen, if any. Posted when the updater itself is the caller.
    void resolveOffer(UpdateChoice choice, bool posted);
    // Replies from the event loop, so that the updater is never called back inside its own call.
    void post(std::function<void(UpdateChoice)> reply, UpdateChoice choice);
    void windowClosed();

    UserDriverDelegate *m_delegate;
    QString m_runningVersion;
    std::unique_ptr<UpdateWindow> m_window;
    std::function<void(UpdateChoice)> m_pendingReply;
    bool m_checkCancelled = false;
};

} // namespace glinta
