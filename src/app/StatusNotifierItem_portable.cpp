#include "app/StatusNotifierItem.h"

#include <utility>

namespace glinta {

// No session bus on this side, so no host to register with; the tray icon is all there is.
class StatusNotifierItem::Exported
{};

StatusNotifierItem::StatusNotifierItem(const QString &, QObject *parent) : QObject(parent) {}

StatusNotifierItem::~StatusNotifierItem() = default;

bool StatusNotifierItem::hostAvailable() const
{
    return false;
}

void StatusNotifierItem::start() {}

bool StatusNotifierItem::isRegistered() const
{
    return false;
}

void StatusNotifierItem::setLook(const Look &look)
{
    m_look = look;
}

} // namespace glinta
