#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QObject>
#include <QString>

#include <memory>

namespace glinta {

// One running Glinta per profile. The lock and the socket live in the runtime directory under a name
// derived from the configuration directory, so a demo or a test with a profile of its own never meets
// the user's own Glinta.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    SingleInstance(const QString &profileDirectory, const QString &runtimeDirectory,
                   QObject *parent = nullptr);
    ~SingleInstance() override;

    // True when this process now holds the profile and listens for later launches; false when another
    // process holds it. A runtime directory that cannot be used is said once and counts as holding it.
    bool claim();

    // Asks the process that holds the profile to bring its panel forward; delivered() says how it went.
    void notifyRunning();

    QString socketPath() const { return m_socketPath; }

Q_SIGNALS:
    void activationRequested();
    void delivered(bool ok);

private:
    QString m_lockPath;
    QString m_socketPath;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer m_server;
};

} // namespace glinta
