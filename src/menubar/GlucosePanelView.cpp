#include "menubar/GlucosePanelView.h"

#include "menubar/DashboardView.h"
#include "menubar/SignInPromptView.h"
#include "menubar/UpdateBannerView.h"
#include "store/GlucoseStore.h"

#include <QVBoxLayout>

namespace glinta {

GlucosePanelView::GlucosePanelView(GlucoseStore *store, Preferences *preferences, Updater *updater,
                                   bool rendersForImage, WindowRegistry *windows, QWidget *parent)
    : QWidget(parent), m_store(store), m_updater(updater), m_rendersForImage(rendersForImage),
      m_windows(windows), m_layout(new QVBoxLayout(this))
{
    setFixedWidth(panelWidth);
    m_layout->setContentsMargins(14, 14, 14, 14);
    m_layout->setSpacing(10);
    // The update row first; it takes no space while no update waits.
    m_layout->addWidget(new UpdateBannerView(updater, preferences, this));

    connect(store, &GlucoseStore::savedEmailChanged, this, &GlucosePanelView::chooseContent);
    connect(store, &GlucoseStore::statusChanged, this, &GlucosePanelView::chooseContent);
    chooseContent();
}

void GlucosePanelView::chooseContent()
{
    const bool signedIn =
        m_store->savedEmail().has_value() && m_store->status().kind != GlucoseStore::Status::Kind::loggedOut;
    // Most status changes keep the same view, and with it the dashboard's state.
    if (m_showsDashboard == signedIn)
        return;
    m_showsDashboard = signedIn;

    if (m_content) {
        // Later, not now: the old view may be the one whose action led here.
        m_content->hide();
        m_layout->removeWidget(m_content);
        m_content->deleteLater();
    }
    if (signedIn) {
        auto *dashboard = new DashboardView(m_store, m_updater, m_rendersForImage, m_windows, this);
        connect(dashboard, &DashboardView::quitRequested, this, &GlucosePanelView::quitRequested);
        connect(dashboard, &DashboardView::snoozeRequested, this, &GlucosePanelView::snoozeRequested);
        m_content = dashboard;
    } else {
        auto *prompt = new SignInPromptView(m_store, m_windows, this);
        connect(prompt, &SignInPromptView::quitRequested, this, &GlucosePanelView::quitRequested);
        m_content = prompt;
    }
    // Full width when it can use it, centred when it cannot.
    m_layout->addWidget(m_content);
}

} // namespace glinta
