#include "app/StandardUserDriver.h"

#include "app/UpdateWindow.h"
#include "menubar/WindowRegistry.h"
#include "support/BuildInfo.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace glinta {

StandardUserDriver::StandardUserDriver(UserDriverDelegate *delegate, QObject *parent)
    : StandardUserDriver(delegate, BuildInfo::current().shortVersion, parent)
{}

StandardUserDriver::StandardUserDriver(UserDriverDelegate *delegate, QString runningVersion, QObject *parent)
    : QObject(parent), m_delegate(delegate), m_runningVersion(std::move(runningVersion))
{}

// An offer still on screen is not answered here: its updater may be the one being torn down.
StandardUserDriver::~StandardUserDriver() = default;

void StandardUserDriver::showUpdateFound(const AppcastItem &update, const UpdateState &state,
                                         std::function<void(UpdateChoice)> reply)
{
    const bool gentle = m_delegate && m_delegate->supportsGentleScheduledUpdateReminders();
    const bool handleShowingUpdate = state.userInitiated || !gentle;
    if (m_delegate)
        m_delegate->standardUserDriverWillHandleShowingUpdate(handleShowingUpdate, update, state);
    if (!handleShowingUpdate) {
        // The delegate reminds; the updater hears "later" once it is out of this call.
        post(std::move(reply), UpdateChoice::remindLater);
        return;
    }

    m_checkCancelled = false;
    resolveOffer(UpdateChoice::remindLater, true);
    m_pendingReply = std::move(reply);
    ensureWindow()->showOffer(update, m_runningVersion);
    present();
    if (m_delegate)
        m_delegate->standardUserDriverDidReceiveUserAttentionForUpdate(update);
}

void StandardUserDriver::showUpdateNotFound()
{
    if (!takeCheckOutcome())
        return;
    resolveOffer(UpdateChoice::remindLater, true);
    ensureWindow()->showUpToDate(m_runningVersion);
    present();
}

void StandardUserDriver::showUpdaterError(const QString &message)
{
    if (!takeCheckOutcome())
        return;
    resolveOffer(UpdateChoice::remindLater, true);
    ensureWindow()->showFailure(message);
    present();
}

void StandardUserDriver::showCheckingForUpdates()
{
    m_checkCancelled = false;
    resolveOffer(UpdateChoice::remindLater, true);
    ensureWindow()->showChecking();
    present();
}

bool StandardUserDriver::takeCheckOutcome()
{
    return !std::exchange(m_checkCancelled, false);
}

UpdateWindow *StandardUserDriver::ensureWindow()
{
    if (!m_window) {
        m_window = std::make_unique<UpdateWindow>();
        connect(m_window.get(), &UpdateWindow::chosen, this,
                [this](UpdateChoice choice) { resolveOffer(choice, false); });
        connect(m_window.get(), &UpdateWindow::closed, this, &StandardUserDriver::windowClosed);
    }
    return m_window.get();
}

void StandardUserDriver::present()
{
    UpdateWindow *window = m_window.get();
    window->adjustSize();
    if (!window->isVisible())
        centreOnScreen(window);
    activateWindow(window);
}

void StandardUserDriver::resolveOffer(UpdateChoice choice, bool posted)
{
    if (!m_pendingReply)
        return;
    auto reply = std::exchange(m_pendingReply, nullptr);
    if (posted)
        post(std::move(reply), choice);
    else
        reply(choice);
}

void StandardUserDriver::post(std::function<void(UpdateChoice)> reply, UpdateChoice choice)
{
    if (!reply)
        return;
    QMetaObject::invokeMethod(
        this, [reply = std::move(reply), choice] { reply(choice); }, Qt::QueuedConnection);
}

void StandardUserDriver::windowClosed()
{
    if (m_window->mode() == UpdateWindow::Mode::checking)
        m_checkCancelled = true;
    // Closing an offer without choosing is "later"; after a button this finds nothing to answer.
    resolveOffer(UpdateChoice::remindLater, false);
}

} // namespace glinta
