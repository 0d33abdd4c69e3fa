#include "app/SingleInstance.h"

#include "support/Logging.h"

#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

namespace {

const QByteArray showRequest = "show\n"_ba;

} // namespace

SingleInstance::SingleInstance(const QString &profileDirectory, const QString &runtimeDirectory,
                               QObject *parent)
    : QObject(parent)
{
    const QByteArray profile = QDir::cleanPath(QDir(profileDirectory).absolutePath()).toUtf8();
    const QString key =
        QString::fromLatin1(QCryptographicHash::hash(profile, QCryptographicHash::Sha256).toHex().left(16));
    const QDir runtime(runtimeDirectory);
    m_lockPath = runtime.filePath(u"glinta-"_s + key + u".lock"_s);
    m_socketPath = runtime.filePath(u"glinta-"_s + key + u".socket"_s);

    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (!socket->canReadLine())
                    return;
                if (socket->readLine() == showRequest)
                    Q_EMIT activationRequested();
                socket->disconnectFromServer();
            });
        }
    });
}

SingleInstance::~SingleInstance() = default;

bool SingleInstance::claim()
{
    m_lock = std::make_unique<QLockFile>(m_lockPath);
    // Only a dead holder makes the lock stale, never its age: Glinta runs for weeks.
    m_lock->setStaleLockTime(0ms);
    if (!m_lock->tryLock(0ms)) {
        if (m_lock->error() == QLockFile::LockFailedError)
            return false;
        qCWarning(lcApp, "Could not take the single-instance lock in the runtime directory; "
                         "a second launch will not find this one");
        return true;
    }
    // A socket left by a holder that died would refuse the name.
    QLocalServer::removeServer(m_socketPath);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server.listen(m_socketPath))
        qCWarning(lcApp, "Could not listen for later launches: %s", qPrintable(m_server.errorString()));
    return true;
}

void SingleInstance::notifyRunning()
{
    auto *socket = new QLocalSocket(this);
    auto finished = std::make_shared<bool>(false);
    auto finish = [this, socket, finished](bool ok) {
        if (*finished)
            return;
        *finished = true;
        socket->deleteLater();
        Q_EMIT delivered(ok);
    };
    connect(socket, &QLocalSocket::connected, socket, [socket] { socket->write(showRequest); });
    // The holder hangs up once it has read the request.
    connect(socket, &QLocalSocket::disconnected, this, [finish] { finish(true); });
    connect(socket, &QLocalSocket::errorOccurred, this,
            [finish, socket](QLocalSocket::LocalSocketError error) {
                finish(error == QLocalSocket::PeerClosedError && socket->bytesToWrite() == 0);
            });
    // A holder that is stuck must not keep this launch waiting.
    QTimer::singleShot(3s, socket, [finish] { finish(false); });
    socket->connectToServer(m_socketPath);
}

} // namespace glinta
