#pragma once

#include "domain/MenuBarTitle.h"

#include <QColor>
#include <QIconEngine>
#include <QPixmap>

namespace glinta {

// Draws the tray picture at the size and pixel ratio the tray host asks for, when it asks. An XEmbed
// tray paints one slot, so drawing every candidate size up front on each new reading was wasted work.
// The last picture is kept because the host repaints the slot on every expose.
class TrayIconEngine : public QIconEngine
{
public:
    TrayIconEngine(MenuBarTitle title, QColor ink);

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State state) override;
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override;
    QSize actualSize(const QSize &size, QIcon::Mode mode, QIcon::State state) override;
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override;
    QIconEngine *clone() const override;
    QString key() const override;

private:
    MenuBarTitle m_title;
    QColor m_ink;
    QPixmap m_last;
};

} // namespace glinta
