#pragma once

#include <QObject>

namespace glinta {

// The widget's side of WidgetReloader: follows the application's reload requests. Where none can arrive
// (no session bus on Linux, or a side without the signal), it stays silent and the widget reads the
// snapshot on its minute alone.
class WidgetReloadListener : public QObject
{
    Q_OBJECT

public:
    explicit WidgetReloadListener(QObject *parent = nullptr);
    ~WidgetReloadListener() override;

    // False when no request can arrive.
    bool isListening() const { return m_listening; }

Q_SIGNALS:
    void reloadRequested();

private:
    bool m_listening = false;
};

} // namespace glinta
