#pragma once

#include "store/AlertEngine.h"

#include <QDBusConnection>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

namespace glinta {

// Shows alerts as desktop notifications (org.freedesktop.Notifications): one per kind, replaced when it
// goes off again, with snooze actions. Where no notification server answers, the fallback shows it
// instead (the tray's own message); a failure to notify is logged, never fatal.
class DesktopNotifier : public QObject
{
    Q_OBJECT

public:
    struct Notice
    {
        QString summary;
        QString body;
        // Urgency "critical" rather than "normal".
        bool critical = false;
        bool sound = true;
    };
    using Fallback = std::function<void(const Notice &)>;

    // `icon` goes along as image data, so the notification has Glinta's icon even when no icon theme
    // holds it (a build run from its own folder).
    DesktopNotifier(QDBusConnection bus, QImage icon, Fallback fallback, QObject *parent = nullptr);

    void show(AlertKind kind, const Notice &notice);
    void close(AlertKind kind);

Q_SIGNALS:
    void snoozeRequested(glinta::AlertKind kind, std::chrono::minutes duration);

private Q_SLOTS:
    void onActionInvoked(uint id, const QString &action);
    void onNotificationClosed(uint id, uint reason);

private:
    std::optional<AlertKind> kindOf(uint id) const;

    QDBusConnection m_bus;
    QImage m_icon;
    Fallback m_fallback;
    QHash<AlertKind, uint> m_ids;
};

} // namespace glinta
