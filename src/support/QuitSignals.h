#pragma once

#include <QObject>

#include <memory>

namespace glinta {

// The system's requests to end the program (SIGINT, SIGTERM and SIGHUP on Linux) end it through the event
// loop, like Quit does, so the lock, the socket and the keyring jobs are cleaned up rather than cut off.
// Where the side knows no such requests, received() never comes and the program ends as usual.
class QuitSignals : public QObject
{
    Q_OBJECT

public:
    explicit QuitSignals(QObject *parent = nullptr);
    ~QuitSignals() override;

Q_SIGNALS:
    void received();

private:
    // Whatever the side watches the requests with.
    std::unique_ptr<QObject> m_watcher;
};

} // namespace glinta
