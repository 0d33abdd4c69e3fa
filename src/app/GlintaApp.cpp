#include "GlintaApp.h"

#include "AboutView.h"
#include "Clock.h"
#include "GlucosePanelView.h"
#include "GlucoseStore.h"
#include "KeychainStore.h"
#include "LibreLinkUpClient.h"
#include "Logging.h"
#include "LoginView.h"
#include "MenuBarLabel.h"
#include "Preferences.h"
#include "SharedSnapshotStore.h"
#include "StatusItem.h"
#include "WidgetReloader.h"
#include "WindowRegistry.h"

#ifdef GLINTA_DEV_SERVICE_ADDRESS
#include "DecodingError.h"
#include "ServiceAddressFile.h"

#include <QDir>
#include <QFileInfo>
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
    m_client = std::make_unique<LibreLinkUpClient>(&m_network, environment.endpoints, 60s);
    m_keychain = std::make_unique<KeychainStore>();
    m_snapshots = std::make_unique<SharedSnapshotStore>(environment.snapshotParent);
    m_preferences = std::make_unique<Preferences>(std::move(environment.settings));
    m_widgets = std::make_unique<WidgetReloader>();
    m_clock = makeSystemClock();
    m_store = std::make_unique<GlucoseStore>(
        GlucoseStore::Services{m_client.get(), m_keychain.get(), m_snapshots.get(), m_preferences.get(),
                               m_widgets.get(), m_clock.get(), environment.build});

    m_windows = std::make_unique<WindowRegistry>();
    GlucoseStore *store = m_store.get();
    WindowRegistry *windows = m_windows.get();
    m_windows->declare(u"login"_s, u"Sign In to Glinta"_s,
                       [store, windows] { return new LoginView(store, windows); });
    m_windows->declare(u"about"_s, u"About Glinta"_s,
                       [build = environment.build] { return new AboutView(build); });

    auto *panel = new GlucosePanelView(store, m_preferences.get(), nullptr, false, windows);
    connect(panel, &GlucosePanelView::quitRequested, this, &GlintaApp::quitRequested);
    m_label = std::make_unique<MenuBarLabel>(store, m_preferences.get());
    m_statusItem = std::make_unique<StatusItem>(m_label.get(), panel);
    connect(m_statusItem.get(), &StatusItem::fallbackWindowClosed, this, &GlintaApp::quitRequested);
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
    m_windows.reset();
}

void GlintaApp::start()
{
    m_store->start();
    m_statusItem->show();
}

} // namespace glinta
