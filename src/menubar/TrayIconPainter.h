#pragma once

#include "domain/MenuBarTitle.h"

#include <QColor>
#include <QImage>

namespace glinta {

// The status item's picture. Tray slots are square and small, so the title cannot simply be squeezed in:
// the value fills the slot, the arrow sits beside it only when it fits, stale data is dimmed with a
// warning badge in the top corner, and a waiting update is a dot in the bottom corner. The tooltip
// carries the whole title.
QImage paintTrayIcon(const MenuBarTitle &title, int logicalSize, qreal devicePixelRatio, const QColor &ink);

} // namespace glinta
