#include "persistence/KeychainStore.h"

#include "persistence/KeychainLockProbe.h"

#include <QObject>
#include <QScopeGuard>
#include <QStringDecoder>
#include <QTimer>

#include <qcoro/qcorosignal.h>
#include <qt6keychain/keychain.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// Keeps a job alive until it has finished, also when the operation that started it stopped waiting:
// QtKeychain's backends call back into the job by raw pointer, so deleting a running job is a
// use-after-free. A job that finishes after the time-out is deleted then, its result unread.
class JobKeeper : public QObject
{
    Q_OBJECT

public:
    explicit JobKeeper(std::chrono::milliseconds timeout)
    {
        m_timer.setSingleShot(true);
        m_timer.setInterval(std::max(timeout, std::chrono::milliseconds(1)));
        connect(&m_timer, &QTimer::timeout, this, &JobKeeper::settle);
    }

    // True when the job finished in time; false when the time ran out first.
    QCoro::Task<bool> run(QKeychain::Job *job)
    {
        job->setAutoDelete(false);
        job->setInsecureFallback(false);
        connect(job, &QKeychain::Job::finished, this, &JobKeeper::jobFinished);
        m_timer.start();
        job->start();
        // A job may finish inside start(), before anyone listens for the signal.
        if (!m_settled)
            co_await qCoro(this, &JobKeeper::settled);
        co_return m_finished;
    }

    // The operation is done with the job; the keeper and the job go once the job has finished too.
    void release()
    {
        m_released = true;
        if (m_finished)
            deleteLater();
    }

Q_SIGNALS:
    void settled();

private:
    void jobFinished()
    {
        m_finished = true;
        m_timer.stop();
        settle();
        if (m_released)
            deleteLater();
    }

    void settle()
    {
        if (m_settled)
            return;
        m_settled = true;
        Q_EMIT settled();
    }

    QTimer m_timer;
    bool m_settled = false;
    bool m_finished = false;
    bool m_released = false;
};

// libsecret takes C strings, so a null character would cut the text short; in an account name that
// could address another account's item.
void requireStorable(const QString &text, const QString &what)
{
    if (text.contains(QChar(0)) || !text.isValidUtf16())
        throw KeychainError::unexpectedStatus(QKeychain::OtherError,
                                              what + u" contains a character the keyring cannot store."_s);
}

std::optional<QString> decodeText(const QByteArray &bytes)
{
    // Stateless and keeping a leading byte-order mark, so the text comes back exactly as it was saved.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

KeychainError failure(const QKeychain::Job &job)
{
    return KeychainError::unexpectedStatus(job.error(), job.errorString());
}

QCoro::Task<void> save(QString service, std::chrono::milliseconds timeout, QString password, QString account)
{
    requireStorable(account, u"The account name"_s);
    requireStorable(password, u"The password"_s);
    auto *keeper = new JobKeeper(timeout);
    const auto release = qScopeGuard([keeper] { keeper->release(); });
    auto *job = new QKeychain::WritePasswordJob(service, keeper);
    job->setKey(account);
    // Text rather than binary data: QtKeychain stores binary data base64-encoded, which no other
    // keyring tool shows as the password.
    job->setTextData(password);
    if (!co_await keeper->run(job))
        throw KeychainError::timedOut();
    if (job->error() != QKeychain::NoError)
        throw failure(*job);
}

QCoro::Task<std::optional<QString>> read(QString service, std::chrono::milliseconds timeout, QString account)
{
    requireStorable(account, u"The account name"_s);
    auto *keeper = new JobKeeper(timeout);
    const auto release = qScopeGuard([keeper] { keeper->release(); });
    auto *job = new QKeychain::ReadPasswordJob(service, keeper);
    job->setKey(account);
    if (!co_await keeper->run(job))
        throw KeychainError::timedOut();
    switch (job->error()) {
    case QKeychain::NoError:
        co_return decodeText(job->binaryData());
    case QKeychain::EntryNotFound:
        if (co_await keychainKnownLocked(timeout))
            throw KeychainError::locked();
        co_return std::nullopt;
    default:
        throw failure(*job);
    }
}

QCoro::Task<void> remove(QString service, std::chrono::milliseconds timeout, QString account)
{
    requireStorable(account, u"The account name"_s);
    auto *keeper = new JobKeeper(timeout);
    const auto release = qScopeGuard([keeper] { keeper->release(); });
    auto *job = new QKeychain::DeletePasswordJob(service, keeper);
    job->setKey(account);
    if (!co_await keeper->run(job))
        throw KeychainError::timedOut();
    if (job->error() != QKeychain::NoError && job->error() != QKeychain::EntryNotFound)
        throw failure(*job);
    // A locked collection refuses the deletion without an error; the password would stay behind.
    if (co_await keychainKnownLocked(timeout))
        throw KeychainError::locked();
}

} // namespace

KeychainError::KeychainError(int code, QString message) : m_code(code), m_message(std::move(message)) {}

KeychainError KeychainError::unexpectedStatus(int code, QString message)
{
    return KeychainError(code, std::move(message));
}

KeychainError KeychainError::timedOut()
{
    return KeychainError(timedOutCode, u"The keyring did not answer in time."_s);
}

KeychainError KeychainError::locked()
{
    return KeychainError(lockedCode, u"The keyring is locked."_s);
}

QString KeychainError::description() const
{
    const QString message = m_message.trimmed();
    return u"Keychain error: "_s + (message.isEmpty() ? u"status "_s + QString::number(m_code) : message);
}

KeychainStore::KeychainStore(QString service, std::chrono::milliseconds timeout)
    : m_service(std::move(service)), m_timeout(timeout)
{}

KeychainStore::~KeychainStore() = default;

// The coroutines take copies rather than `this`: a store may go before the keyring has answered.
QCoro::Task<void> KeychainStore::savePassword(QString password, QString account) const
{
    return save(m_service, m_timeout, std::move(password), std::move(account));
}

QCoro::Task<std::optional<QString>> KeychainStore::readPassword(QString account) const
{
    return read(m_service, m_timeout, std::move(account));
}

QCoro::Task<void> KeychainStore::deletePassword(QString account) const
{
    return remove(m_service, m_timeout, std::move(account));
}

} // namespace glinta

#include "KeychainStore.moc"
