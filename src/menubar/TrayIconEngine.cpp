#include "menubar/TrayIconEngine.h"

#include "menubar/TrayIconPainter.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// Hosts that want pictures up front (StatusNotifierItem) take these; none has to scale one.
constexpr int offeredSizes[] = {16, 22, 24, 32, 48, 64};

} // namespace

TrayIconEngine::TrayIconEngine(MenuBarTitle title, QColor ink) : m_title(std::move(title)), m_ink(ink) {}

void TrayIconEngine::paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state)
{
    const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
    const int side = std::min(rect.width(), rect.height());
    const int pixels = static_cast<int>(std::ceil(side * ratio));
    const QPixmap picture = pixmap(QSize(pixels, pixels), mode, state);
    painter->drawPixmap(
        QRect(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2, side, side),
        picture);
}

// Sizes here are in device pixels: QIcon asks for the logical size times the pixel ratio.
QPixmap TrayIconEngine::pixmap(const QSize &size, QIcon::Mode, QIcon::State)
{
    const int side = std::max(1, std::min(size.width(), size.height()));
    if (m_last.isNull() || m_last.width() != side)
        m_last = QPixmap::fromImage(paintTrayIcon(m_title, side, 1.0, m_ink));
    return m_last;
}

QSize TrayIconEngine::actualSize(const QSize &size, QIcon::Mode, QIcon::State)
{
    const int side = std::min(size.width(), size.height());
    return {side, side};
}

QList<QSize> TrayIconEngine::availableSizes(QIcon::Mode, QIcon::State)
{
    QList<QSize> sizes;
    for (const int side : offeredSizes)
        sizes.append(QSize(side, side));
    return sizes;
}

QIconEngine *TrayIconEngine::clone() const
{
    return new TrayIconEngine(*this);
}

QString TrayIconEngine::key() const
{
    return u"glinta-tray"_s;
}

} // namespace glinta
