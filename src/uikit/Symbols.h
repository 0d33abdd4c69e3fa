#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

namespace glinta {

// The bundled monochrome symbols ("drop.fill", "drop.circle", "gearshape", "arrow.clockwise",
// "clock.badge.exclamationmark", "exclamationmark.triangle", "arrow.down.circle.fill"), tinted like text so
// they follow the palette.
QPixmap symbolPixmap(const QString &name, const QColor &color, int logicalSize, qreal devicePixelRatio);
QIcon symbolIcon(const QString &name, const QColor &color, int logicalSize = 16);

// The application's own icon, in colour.
QIcon applicationIcon();

} // namespace glinta
