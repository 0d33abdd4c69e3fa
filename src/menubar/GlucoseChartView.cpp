#include "GlucoseChartView.h"

namespace glinta {

GlucoseChartView::GlucoseChartView(GlucoseStore *, QWidget *parent) : QWidget(parent) {}

} // namespace glinta
