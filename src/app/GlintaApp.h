#pragma once

#include "client/ServiceEndpoints.h"
#include "domain/AlertKind.h"
#include "support/BuildInfo.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QSettings>

#include <memory>

namespace glinta {

class AlertMonitor;
class AppcastUpdater;
class DesktopNotifier;
class Clock;
class GlucosePanelView;
class GlucoseStore;
class KeychainStore;
class LibreLinkUpClient;
class LoginItem;
class MenuBarLabel;
class Preferences;
class SharedSnapshotStore;
class StandardUserDriver;
class StatusItem;
class UpdateWatcher;
class WidgetReloader;
class WindowRegistry;

// The program as a whole: the one store, the status item with its panel, and the windows views open by
// identifier. Everything lives until the process ends.
class GlintaApp : public QObject
{
    Q_OBJECT

public:
    // Where the program's state and service live; the user's own unless a test or the demo says otherwise.
    struct Environment
    {
        ServiceEndpoints endpoints;
        std::unique_ptr<QSettings> settings;
        QString snapshotParent;
        BuildInfo build;

        // The user's settings, snapshot directory and this build; the production service, or in a
        // development build the one named by the address file beside the settings, when there is one.
        static Environment user();
    };

    explicit GlintaApp(Environment environment, QObject *parent = nullptr);
    ~GlintaApp() override;

    // Starts the store (the first refresh runs at once when an e-mail is saved) and the update schedule, and
    // shows the status item.
    void start();

    GlucoseStore *store() const { return m_store.get(); }
    StatusItem *statusItem() const { return m_statusItem.get(); }
    WindowRegistry *windows() const { return m_windows.get(); }
    AppcastUpdater *updater() const { return m_updater.get(); }

Q_SIGNALS:
    void quitRequested();

private Q_SLOTS:
    // Once the status item is first on screen: the picture export, when the preferences ask for it.
    void runLaunchTask();
    void notify(glinta::AlertKind kind);

private:
    // Apart, since a request to the service that is given up drops its manager's connections.
    QNetworkAccessManager m_serviceNetwork;
    QNetworkAccessManager m_updateNetwork;
    std::unique_ptr<LibreLinkUpClient> m_client;
    std::unique_ptr<KeychainStore> m_keychain;
    std::unique_ptr<SharedSnapshotStore> m_snapshots;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<WidgetReloader> m_widgets;
    std::unique_ptr<Clock> m_clock;
    std::unique_ptr<GlucoseStore> m_store;
    std::unique_ptr<AlertMonitor> m_alerts;
    std::unique_ptr<DesktopNotifier> m_notifier;
    std::unique_ptr<UpdateWatcher> m_updateWatcher;
    std::unique_ptr<StandardUserDriver> m_userDriver;
    std::unique_ptr<AppcastUpdater> m_updater;
    std::unique_ptr<LoginItem> m_loginItem;
    std::unique_ptr<WindowRegistry> m_windows;
    std::unique_ptr<MenuBarLabel> m_label;
    std::unique_ptr<StatusItem> m_statusItem;
};

} // namespace glinta
