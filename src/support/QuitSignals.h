#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace glinta {

// SIGINT, SIGTERM and SIGHUP end the program through the event loop, like Quit does, so the lock, the
// socket and the keyring jobs are cleaned up rather than cut off.
class QuitSignals : public QObject
{
    Q_OBJECT

public:
    explicit QuitSignals(QObject *parent = nullptr);
    ~QuitSignals() override;

Q_SIGNALS:
    void received();

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace glinta
