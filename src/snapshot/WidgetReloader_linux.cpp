#include "snapshot/WidgetReloader.h"

#include "snapshot/WidgetReloadSignal_linux.h"
#include "support/Logging.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace glinta {

void WidgetReloader::reloadAllTimelines()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (!m_saidNoBus) {
            qCInfo(lcGlucoseStore, "No session bus, so no widget can be told to reload");
            m_saidNoBus = true;
        }
        return;
    }
    bus.send(QDBusMessage::createSignal(QString(widgetReloadSignal::objectPath),
                                        QString(widgetReloadSignal::interfaceName),
                                        QString(widgetReloadSignal::signalName)));
}

} // namespace glinta
