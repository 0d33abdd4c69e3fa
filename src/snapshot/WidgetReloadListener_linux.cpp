#include "snapshot/WidgetReloadListener.h"

#include "support/Logging.h"

#include "snapshot/WidgetReloader.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {} // namespace

WidgetReloadListener::WidgetReloadListener(QObject *parent) : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCInfo(lcWidget, "No session bus, so the widget cannot be told to reload");
        return;
    }
    // Any sender: the application that publishes has no well-known name on the bus.
    m_listening =
        bus.connect(QString(), QString(WidgetReloader::objectPath), QString(WidgetReloader::interfaceName),
                    QString(WidgetReloader::signalName), this, SLOT(onReloadAllTimelines()));
    if (!m_listening)
        qCInfo(lcWidget).noquote() << u"The widget cannot follow reload requests: "_s +
                                          bus.lastError().message();
}

WidgetReloadListener::~WidgetReloadListener()
{
    if (!m_listening)
        return;
    QDBusConnection::sessionBus().disconnect(
        QString(), QString(WidgetReloader::objectPath), QString(WidgetReloader::interfaceName),
        QString(WidgetReloader::signalName), this, SLOT(onReloadAllTimelines()));
}

void WidgetReloadListener::onReloadAllTimelines()
{
    Q_EMIT reloadRequested();
}

} // namespace glinta
