#include "DashboardView.h"

namespace glinta {

DashboardView::DashboardView(GlucoseStore *, Updater *, bool, WindowRegistry *, QWidget *parent)
    : QWidget(parent)
{}

} // namespace glinta
