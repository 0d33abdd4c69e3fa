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
        // The process keeps the bus it first chose, so once is enough.
        static bool saidNoBus = false;
        if (!saidNoBus) {
            qCInfo(lcGlucoseStore, "No session bus, so no widget can be told to reload");
            saidNoBus = true;
        }
        return;
    }
    bus.send(QDBusMessage::createSignal(QString(widgetReloadSignal::objectPath),
                                        QString(widgetReloadSignal::interfaceName),
                                        QString(widgetReloadSignal::signalName)));
}

} // namespace glinta
