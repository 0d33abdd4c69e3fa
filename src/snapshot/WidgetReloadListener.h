#pragma once

#include <QObject>

namespace glinta {

// The widget's side of WidgetReloader: follows the reload signal on the session bus. Without a session bus
// nothing can ask for a reload, so it says so once and stays silent.
class WidgetReloadListener : public QObject
{
    Q_OBJECT

public:
    explicit WidgetReloadListener(QObject *parent = nullptr);
    ~WidgetReloadListener() override;

    // False without a session bus, or when the bus refused the match rule.
    bool isListening() const { return m_listening; }

Q_SIGNALS:
    void reloadRequested();

private Q_SLOTS:
    // QDBusConnection connects by slot name only.
    void onReloadAllTimelines();

private:
    bool m_listening = false;
};

} // namespace glinta
