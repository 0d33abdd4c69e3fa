#pragma once

#include "domain/AlertKind.h"

#include <QPointer>
#include <QWidget>

#include <chrono>
#include <optional>

class QVBoxLayout;

namespace glinta {

class GlucoseStore;
class Preferences;
class Updater;
class WindowRegistry;

// What the status item opens: the dashboard, or the sign-in prompt when nobody is signed in.
class GlucosePanelView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int panelWidth = 340;

    GlucosePanelView(GlucoseStore *store, Preferences *preferences, Updater *updater, bool rendersForImage,
                     WindowRegistry *windows, QWidget *parent = nullptr);

    // The dashboard or the sign-in prompt, whichever is showing.
    QWidget *content() const { return m_content; }

Q_SIGNALS:
    void quitRequested();
    void snoozeRequested(glinta::AlertKind kind, std::chrono::minutes duration);

private:
    void chooseContent();

    GlucoseStore *m_store;
    Updater *m_updater;
    bool m_rendersForImage;
    WindowRegistry *m_windows;
    QVBoxLayout *m_layout;
    QPointer<QWidget> m_content;
    std::optional<bool> m_showsDashboard;
};

} // namespace glinta
