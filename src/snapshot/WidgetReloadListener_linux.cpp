#include "snapshot/WidgetReloadListener.h"

#include "snapshot/WidgetReloadSignal_linux.h"
#include "support/Logging.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace glinta {

// QDBusConnection connects by name only; the bus signal goes straight on as our own. Any sender: the
// application that publishes has no well-known name on the bus.
WidgetReloadListener::WidgetReloadListener(QObject *parent) : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCInfo(lcWidget, "No session bus, so the widget cannot be told to reload");
        return;
    }
    m_listening = bus.connect(QString(), QString(widgetReloadSignal::objectPath),
                              QString(widgetReloadSignal::interfaceName),
                              QString(widgetReloadSignal::signalName), this, SIGNAL(reloadRequested()));
    if (!m_listening)
        qCInfo(lcWidget).noquote() << u"The widget cannot follow reload requests: "_s +
                                          bus.lastError().message();
}

WidgetReloadListener::~WidgetReloadListener()
{
    if (!m_listening)
        return;
    QDBusConnection::sessionBus().disconnect(
        QString(), QString(widgetReloadSignal::objectPath), QString(widgetReloadSignal::interfaceName),
        QString(widgetReloadSignal::signalName), this, SIGNAL(reloadRequested()));
}

} // namespace glinta
