#pragma once

#include <QWidget>

namespace glinta {

class GlucoseStore;
class Updater;
class WindowRegistry;

// The signed-in panel: reading, failure, chart, statistics and controls.
class DashboardView : public QWidget
{
    Q_OBJECT

public:
    DashboardView(GlucoseStore *store, Updater *updater, bool rendersForImage, WindowRegistry *windows,
                  QWidget *parent = nullptr);
};

} // namespace glinta
