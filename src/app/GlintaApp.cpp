#include "app/GlintaApp.h"

#include "app/DesktopNotifier.h"
#include "app/ImageExport.h"
#include "app/StandardUserDriver.h"
#include "app/StatusItem.h"
#include "app/StatusNotifierItem.h"
#include "app/UpdateWatcher.h"
#include "client/LibreLinkUpClient.h"
#include "menubar/AboutView.h"
#include "menubar/GearMenu.h"
#include "menubar/GlucosePanelView.h"
#include "menubar/LoginView.h"
#include "menubar/MenuBarLabel.h"
#include "menubar/SettingsView.h"
#include "menubar/WhatsNewView.h"
#include "menubar/WindowRegistry.h"
#include "persistence/KeychainStore.h"
#include "persistence/LoginItem.h"
#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloader.h"
#include "store/AlertMonitor.h"
#include "store/GlucoseStore.h"
#include "store/Preferences.h"
#include "support/Clock.h"
#include "support/Logging.h"
#include "update/AppcastUpdater.h"

#include <QApplication>
#include <QDesktopServices>

#ifdef GLINTA_DEV_SERVICE_ADDRESS
#include "client/ServiceAddressFile.h"
#include "support/DecodingError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
// An address file is a few hundred bytes.
constexpr qint64 maximumAddressFileSize = 64 * 1024;
} // namespace
#endif

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

GlintaApp::Environment GlintaApp::Environment::user()
{
    Environment environment;
    environment.settings = Preferences::userSettings();
    environment.snapshotParent = SharedSnapshotStore::defaultContainerParent();
    environment.build = BuildInfo::current();
    environment.endpoints = ServiceEndpoints::production();
#ifdef GLINTA_DEV_SERVICE_ADDRESS
    const QString path = QFileInfo(environment.settings->fileName()).dir().filePath(serviceAddressFileName);
    if (QFileInfo::exists(path)) {
        try {
            environment.endpoints = readServiceAddressFile(path);
            // The same file may name a feed, so a session can see the update path end to end.
            QFile file(path);
            if (file.open(QIODevice::ReadOnly)) {
                const QJsonValue feed = QJsonDocument::fromJson(file.read(maximumAddressFileSize))
                                            .object()
                                            .value("updateFeedURL"_L1);
                if (feed.isString())
                    environment.build.updateFeedUrl = feed.toString();
            }
            qCInfo(lcApp, "Development build: using the service address file in the configuration directory");
        } catch (const Error &error) {
            // Never fall back to the real service in a setup that meant a simulated one.
            qCCritical(lcApp, "The service address file cannot be used: %s", qPrintable(error.description()));
            environment.endpoints = ServiceEndpoints();
        }
    }
#endif
    return environment;
}

GlintaApp::GlintaApp(Environment environment, QObject *parent) : QObject(parent)
{
    // The service answers within seconds; a minute covers a slow mobile link without hanging forever.
    m_client = std::make_unique<LibreLinkUpClient>(&m_serviceNetwork, environment.endpoints, 60s);
    m_keychain = std::make_unique<KeychainStore>();
    m_snapshots = std::make_unique<SharedSnapshotStore>(environment.snapshotParent);
    m_preferences = std::make_unique<Preferences>(std::move(environment.settings));
    m_widgets = std::make_unique<WidgetReloader>();
    m_clock = makeSystemClock();
    m_store = std::make_unique<GlucoseStore>(
        GlucoseStore::Services{m_client.get(), m_keychain.get(), m_snapshots.get(), m_preferences.get(),
                               m_widgets.get(), m_clock.get(), environment.build});

    m_updateWatcher = std::make_unique<UpdateWatcher>(m_preferences.get());
    m_userDriver =
        std::make_unique<StandardUserDriver>(m_updateWatcher.get(), environment.build.shortVersion);
    m_updater = std::make_unique<AppcastUpdater>(&m_updateNetwork, QUrl(environment.build.updateFeedUrl),
                                                 environment.build, m_preferences.get(), m_clock.get(),
                                                 m_userDriver.get());
    connect(m_updater.get(), &AppcastUpdater::installRequested, this,
            [](const QUrl &downloadPage) { QDesktopServices::openUrl(downloadPage); });
    m_loginItem = std::make_unique<LoginItem>();

    m_windows = std::make_unique<WindowRegistry>();
    GlucoseStore *store = m_store.get();
    WindowRegistry *windows = m_windows.get();
    m_windows->declare(u"login"_s, u"Sign In to Glinta"_s,
                       [store, windows] { return new LoginView(store, windows); });
    m_windows->declare(
        u"settings"_s, u"Glinta Settings"_s,
        [this, store, windows, preferences = m_preferences.get(), loginItem = m_loginItem.get()] {
            return new SettingsView(store, preferences, loginItem, windows,
                                    m_statusItem && m_statusItem->usesOwnItem());
        });
    m_windows->declare(u"whats-new"_s, u"What's New in Glinta"_s,
                       [version = environment.build.shortVersion] { return new WhatsNewView(version); });
    m_windows->declare(u"about"_s, u"About Glinta"_s,
                       [build = environment.build] { return new AboutView(build); });

    m_label = std::make_unique<MenuBarLabel>(store, m_preferences.get());
    StatusItem::Parts parts;
    parts.makePanel = [this, store, windows] {
        auto *panel = new GlucosePanelView(store, m_preferences.get(), m_updater.get(), false, windows);
        connect(panel, &GlucosePanelView::quitRequested, this, &GlintaApp::quitRequested);
        connect(panel, &GlucosePanelView::snoozeRequested, m_alerts.get(), &AlertMonitor::snooze);
        return panel;
    };
    parts.makeMenu = [this, windows] {
        return makeGearMenu(
            windows, m_updater.get(), [this] { Q_EMIT quitRequested(); }, nullptr);
    };
    parts.ownItem = std::make_unique<StatusNotifierItem>();
    m_statusItem = std::make_unique<StatusItem>(m_label.get(), m_preferences.get(), std::move(parts));
    connect(m_statusItem.get(), &StatusItem::fallbackWindowClosed, this, &GlintaApp::quitRequested);
    // Queued: the export is a launch task of its own, not part of showing the item.
    connect(m_statusItem.get(), &StatusItem::firstShown, this, &GlintaApp::runLaunchTask,
            Qt::QueuedConnection);
    m_alerts = std::make_unique<AlertMonitor>(store, m_preferences.get());
    m_notifier = std::make_unique<DesktopNotifier>(
        QApplication::windowIcon().pixmap(64).toImage(), [this](const auto &notice) {
            // Glinta's own item cannot show a message; it asks the host for attention instead.
            if (m_statusItem->usesOwnItem()) {
                qCWarning(lcAlerts,
                          "No notification server; the alert shows in the status item and the panel");
                return;
            }
            // Without a tray either, the panel's alert line is all there is.
            if (m_statusItem->usesFallbackWindow() || !m_statusItem->trayIcon()->isVisible()) {
                qCWarning(lcAlerts, "No notification server and no tray to show an alert in");
                return;
            }
            m_statusItem->trayIcon()->showMessage(notice.summary, notice.body,
                                                  notice.critical ? QSystemTrayIcon::Critical
                                                                  : QSystemTrayIcon::Warning);
        });
    connect(m_alerts.get(), &AlertMonitor::raised, this, &GlintaApp::notify);
    connect(m_alerts.get(), &AlertMonitor::closed, m_notifier.get(), &DesktopNotifier::close);
    connect(m_notifier.get(), &DesktopNotifier::snoozeRequested, m_alerts.get(), &AlertMonitor::snooze);

    // A window opened from the panel takes the focus; the popup would only hide behind it.
    connect(m_windows.get(), &WindowRegistry::opened, this, [this] {
        if (!m_statusItem->usesFallbackWindow())
            m_statusItem->panelWindow()->hide();
    });
}

GlintaApp::~GlintaApp()
{
    // The views hold the store; they go first.
    m_statusItem.reset();
    m_label.reset();
    m_alerts.reset();
    m_windows.reset();
    m_updater.reset();
}

void GlintaApp::runLaunchTask()
{
    runLaunchExport(*m_preferences, m_updater.get());
}

void GlintaApp::notify(AlertKind kind)
{
    DesktopNotifier::Notice notice;
    notice.summary = alertTitle(kind, m_store->latest(), m_store->unit());
    notice.body = alertBody(kind, m_store->latest(), m_store->connectionName(), m_store->now());
    notice.critical = isLowAlert(kind);
    notice.sound = m_preferences->alertSound();
    qCInfo(lcAlerts, "Alert: %s", qUtf8Printable(alertKindName(kind)));
    m_notifier->show(kind, notice);
}

void GlintaApp::start()
{
    m_store->start();
    m_alerts->start();
    m_updater->start();
    m_statusItem->show();
}

} // namespace glinta
