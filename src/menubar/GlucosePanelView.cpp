#include "GlucosePanelView.h"

namespace glinta {

GlucosePanelView::GlucosePanelView(GlucoseStore *, Preferences *, Updater *, bool, WindowRegistry *,
                                   QWidget *parent)
    : QWidget(parent)
{}

} // namespace glinta
