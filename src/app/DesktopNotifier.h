#pragma once

#include "store/AlertEngine.h"

#include <QImage>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

namespace glinta {

// Shows alerts as the desktop's notifications: one per kind, replaced when it goes off again, with snooze
// actions. Where no notification server answers, or the side has none, the fallback shows it instead (the
// tray's own message); a failure to notify is logged, never fatal.
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
    DesktopNotifier(QImage icon, Fallback fallback, QObject *parent = nullptr);
    ~DesktopNotifier() override;

    void show(AlertKind kind, const Notice &notice);
    void close(AlertKind kind);

Q_SIGNALS:
    void snoozeRequested(glinta::AlertKind kind, std::chrono::minutes duration);

private:
    // The side's link to the notification server.
    class Server;

    Fallback m_fallback;
    std::unique_ptr<Server> m_server;
};

} // namespace glinta
