#include "snapshot/WidgetReloader.h"

namespace glinta {

// Nothing to send: the widget still reads the snapshot again every minute.
void WidgetReloader::reloadAllTimelines() {}

} // namespace glinta
