#pragma once

#include <QWidget>

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
    GlucosePanelView(GlucoseStore *store, Preferences *preferences, Updater *updater, bool rendersForImage,
                     WindowRegistry *windows, QWidget *parent = nullptr);
};

} // namespace glinta
