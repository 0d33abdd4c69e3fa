#include "store/GlucoseStore.h"

#include "client/ClientError.h"
#include "client/ServiceMapping.h"
#include "persistence/KeychainStore.h"
#include "snapshot/GlucoseSnapshot.h"
#include "snapshot/SharedSnapshotStore.h"
#include "snapshot/WidgetReloader.h"
#include "store/Preferences.h"
#include "support/Clock.h"
#include "support/Logging.h"

#include <QCryptographicHash>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// Every resumption re-checks both: the store may be gone, and the cycle may have been cancelled.
void ensureLive(const QPointer<GlucoseStore> &self, const CancellationToken &cancel)
{
    if (!self)
        throw CancelledError();
    cancel.throwIfCancelled();
}

// Equal assignments notify nobody.
template <typename T> bool assign(T &field, const T &value)
{
    if (field == value)
        return false;
    field = value;
    return true;
}

QString describe(const std::exception &error)
{
    if (const auto *ours = dynamic_cast<const Error *>(&error))
        return ours->description();
    return QString::fromLocal8Bit(error.what());
}

QString rateLimitedText(const QDateTime &nextTry)
{
    return ClientError::rateLimited(std::nullopt).description() + u" Next try at "_s +
           nextTry.toLocalTime().toString(u"HH:mm"_s) + u'.';
}

// A sign-in not even tried, because the last one was refused for its rate and its wait is not over.
class LoginHeldBack : public Error
{
public:
    explicit LoginHeldBack(QDateTime nextTry) : m_nextTry(std::move(nextTry)) {}
    QString description() const override { return rateLimitedText(m_nextTry); }

private:
    QDateTime m_nextTry;
};

// The settings file keeps only a digest of whom the user chose, never the service's id for them.
QString choiceKey(const QString &patientId)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(patientId.toUtf8(), QCryptographicHash::Sha256).toHex());
}

} // namespace

QString GlucoseStore::StoreError::description() const
{
    return u"No saved LibreLinkUp credentials."_s;
}

GlucoseStore::GlucoseStore(QObject *parent) : QObject(parent), m_now(QDateTime::currentDateTimeUtc()) {}

GlucoseStore::GlucoseStore(const Services &services, QObject *parent)
    : QObject(parent), m_services(services), m_now(services.clock->now())
{
    Preferences &preferences = *m_services.preferences;
    m_unit = preferences.glucoseUnit();
    m_targetRange = preferences.targetRange();
    m_savedEmail = preferences.libreLinkUpEmail();
    if (const auto remembered = preferences.serviceAppVersion()) {
        const auto version = AppVersion::parse(*remembered);
        // A newer build brings a newer version of its own; an unreadable one is no use either.
        if (version && m_services.client && *version > m_services.client->appVersion())
            m_services.client->setAppVersion(*version);
        else
            preferences.removeServiceAppVersion();
    }
    preferences.checkBuildChange(m_services.build, *m_services.widgets);
    preferences.clearInstalledUpdateBadge(m_services.build);
}

std::unique_ptr<GlucoseStore> GlucoseStore::fromSnapshot(const GlucoseSnapshot &snapshot, QObject *parent)
{
    std::unique_ptr<GlucoseStore> store(new GlucoseStore(parent));
    store->m_unit = snapshot.unit;
    store->m_targetRange = snapshot.targets;
    store->m_savedEmail = u"jane.doe@example.com"_s;
    store->m_latest = snapshot.latest;
    store->m_history = snapshot.history;
    store->m_connectionName = snapshot.connectionName.value_or(u"LibreLinkUp"_s);
    store->m_lastUpdated = snapshot.updatedAt;
    store->m_status = Status::active();
    return store;
}

GlucoseStore::~GlucoseStore()
{
    // The loops would end at their next check anyway; this also aborts what they have in flight.
    if (m_pollToken)
        m_pollToken->cancel();
    if (m_clockToken)
        m_clockToken->cancel();
    m_accountToken.cancel();
}

void GlucoseStore::start()
{
    if (!m_services.clock || m_clockToken)
        return;
    m_clockToken = CancellationToken();
    clockLoop(this, *m_clockToken);
    if (m_savedEmail)
        startPolling();
}

void GlucoseStore::setUnit(GlucoseUnit unit)
{
    if (assign(m_unit, unit))
        Q_EMIT unitChanged();
    if (!m_services.preferences)
        return;
    m_services.preferences->setGlucoseUnit(unit);
    publishSnapshot();
}

void GlucoseStore::setTargetRange(const TargetRange &range)
{
    if (!assign(m_targetRange, range))
        return;
    Q_EMIT targetRangeChanged();
    if (!m_services.preferences)
        return;
    m_services.preferences->setTargetRange(range);
    publishSnapshot();
}

void GlucoseStore::setActiveAlert(std::optional<AlertKind> alert)
{
    if (!assign(m_activeAlert, alert))
        return;
    Q_EMIT activeAlertChanged();
    if (m_services.snapshots && m_savedEmail)
        publishSnapshot();
}

QCoro::Task<void> GlucoseStore::signIn(QString email, QString password)
{
    const QPointer<GlucoseStore> self(this);
    // A sign-out cancels it, whenever it comes.
    const CancellationToken account = m_accountToken;
    if (m_status.kind != Status::Kind::connecting)
        setStatus(Status::connecting());

    LibreLinkUpClient::Session session;
    std::exception_ptr failure = (co_await withServiceAppVersion([&]() -> QCoro::Task<void> {
                                     session = co_await login(email, password, account);
                                 })).error;
    if (!self)
        co_return;
    if (failure) {
        failSignIn(failure);
        co_return;
    }
    // Another account's person is not this one's to follow. Signed out, nothing is left to forget.
    if (m_savedEmail && m_savedEmail->compare(email, Qt::CaseInsensitive) != 0)
        forgetFollowed();
    m_session = session;

    try {
        co_await m_services.keychain->savePassword(password, email);
    } catch (const std::exception &) {
        failure = std::current_exception();
    }
    if (!self)
        co_return;
    if (account.isCancelled()) {
        // Signed out while the keyring took its time: what it saved must not stay behind.
        if (!failure)
            forgetPassword(m_services.keychain, email);
        co_return;
    }
    if (failure) {
        failSignIn(failure);
        co_return;
    }

    m_services.preferences->setLibreLinkUpEmail(email);
    setSavedEmail(email);
    startPolling();
}

void GlucoseStore::failSignIn(const std::exception_ptr &failure)
{
    QString description;
    try {
        std::rethrow_exception(failure);
    } catch (const CancelledError &) {
        return;
    } catch (const ClientError &error) {
        description = error.kind() == ClientError::Kind::rateLimited ? backOff(error) : error.description();
    } catch (const std::exception &error) {
        description = describe(error);
    }
    qCCritical(lcGlucoseStore, "Login failed: %s", qUtf8Printable(description));
    setStatus(Status::failed(description));
}

QCoro::Task<LibreLinkUpClient::Session> GlucoseStore::login(QString email, QString password,
                                                            CancellationToken cancel)
{
    const QPointer<GlucoseStore> self(this);
    if (m_backOff.holdsLogin(m_services.clock->now()))
        throw LoginHeldBack(*m_backOff.nextTry());
    try {
        co_return co_await m_services.client->login(email, password, cancel);
    } catch (const ClientError &error) {
        if (self && error.kind() == ClientError::Kind::rateLimited)
            m_loginRateLimited = true;
        throw;
    }
}

void GlucoseStore::signOut()
{
    if (m_pollToken) {
        m_pollToken->cancel();
        m_pollToken.reset();
    }
    m_accountToken.cancel();
    m_accountToken = CancellationToken();
    m_session.reset();

    if (m_savedEmail)
        forgetPassword(m_services.keychain, *m_savedEmail);
    m_services.preferences->removeLibreLinkUpEmail();
    setSavedEmail(std::nullopt);
    forgetFollowed();

    if (m_status.kind != Status::Kind::loggedOut)
        setStatus(Status::loggedOut());
}

void GlucoseStore::forgetFollowed()
{
    m_patientId.reset();
    m_services.preferences->removeFollowedPatientId();
    if (!m_people.isEmpty() || m_choiceMissing) {
        m_people.clear();
        m_choiceMissing = false;
        Q_EMIT peopleChanged();
    }
    setLatest(std::nullopt);
    setHistory({});
    setConnectionName(std::nullopt);
    setLastUpdated(std::nullopt);

    try {
        m_services.snapshots->clear();
    } catch (const Error &error) {
        qCCritical(lcGlucoseStore, "Could not clear widget snapshot: %s",
                   qUtf8Printable(error.description()));
    }
    m_services.widgets->reloadAllTimelines();
}

QCoro::Task<void> GlucoseStore::forgetPassword(KeychainStore *keychain, QString account)
{
    try {
        co_await keychain->deletePassword(account);
    } catch (const std::exception &error) {
        qCCritical(lcGlucoseStore, "Could not remove saved password: %s", qUtf8Printable(describe(error)));
    }
}

void GlucoseStore::startPolling()
{
    if (m_pollToken)
        m_pollToken->cancel();
    m_pollToken = CancellationToken();
    setCredentialFailure(false);
    if (m_status.kind != Status::Kind::connecting && m_status.kind != Status::Kind::active)
        setStatus(Status::connecting());
    pollLoop(this, *m_pollToken);
}

QCoro::Task<void> GlucoseStore::pollLoop(QPointer<GlucoseStore> self, CancellationToken cancel)
{
    for (;;) {
        if (!self || cancel.isCancelled())
            co_return;
        co_await self->refresh(cancel);
        if (!self || self->m_credentialFailure)
            co_return;
        // A Refresh cycle that changes the plan cuts the pause short and the new one starts from then.
        for (bool paused = false; !paused;) {
            const CancellationToken pause;
            const auto link = cancel.onCancel([pause] { pause.cancel(); });
            self->m_pauseToken = pause;
            try {
                co_await self->m_services.clock->sleep(self->m_nextPause, pause);
                paused = true;
            } catch (const CancelledError &) {
                if (!self || cancel.isCancelled())
                    co_return;
            }
        }
    }
}

void GlucoseStore::planPause(std::chrono::seconds pause)
{
    if (pause == m_nextPause)
        return;
    m_nextPause = pause;
    if (m_pauseToken)
        m_pauseToken->cancel();
}

QString GlucoseStore::backOff(const ClientError &rateLimited)
{
    const std::optional<QByteArray> retryAfter = rateLimited.retryAfter();
    planPause(m_backOff.limited(retryAfter ? std::optional<QByteArrayView>(*retryAfter) : std::nullopt,
                                m_services.clock->now(), std::exchange(m_loginRateLimited, false)));
    return rateLimitedText(*m_backOff.nextTry());
}

QCoro::Task<GlucoseStore::Failure>
GlucoseStore::withServiceAppVersion(std::function<QCoro::Task<void>()> attempt)
{
    const QPointer<GlucoseStore> self(this);
    for (bool retried = false;; retried = true) {
        std::exception_ptr failure;
        try {
            co_await attempt();
        } catch (...) {
            failure = std::current_exception();
        }
        if (!self || !failure || retried || !adoptAppVersion(failure))
            co_return Failure{failure};
    }
}

bool GlucoseStore::adoptAppVersion(const std::exception_ptr &failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const ClientError &error) {
        const std::optional<AppVersion> asked = error.minimumVersion();
        if (error.kind() != ClientError::Kind::appVersionRefused || !asked ||
            *asked <= m_services.client->appVersion())
            return false;
        qCInfo(lcGlucoseStore, "LibreLinkUp asks for app version %s; sending it from now on",
               qUtf8Printable(asked->toString()));
        m_services.client->setAppVersion(*asked);
        m_services.preferences->setServiceAppVersion(asked->toString());
        return true;
    } catch (...) {
    }
    return false;
}

QCoro::Task<void> GlucoseStore::clockLoop(QPointer<GlucoseStore> self, CancellationToken cancel)
{
    for (;;) {
        if (!self || cancel.isCancelled())
            co_return;
        Clock *clock = self->m_services.clock;
        try {
            co_await clock->sleep(clockInterval, cancel);
        } catch (const CancelledError &) {
            co_return;
        }
        if (!self)
            co_return;
        self->setNow(clock->now());
    }
}

QCoro::Task<void> GlucoseStore::refresh()
{
    // A cycle of its own: the Refresh button neither touches nor waits for the poll loop.
    return refresh(m_accountToken);
}

QCoro::Task<void> GlucoseStore::refresh(CancellationToken cancel)
{
    const QPointer<GlucoseStore> self(this);
    const std::exception_ptr failure = (co_await withServiceAppVersion([&]() -> QCoro::Task<void> {
                                           co_await loadReadings(true, cancel);
                                       })).error;
    if (!self)
        co_return;

    // Any answer but "too many requests" puts the loop back on its minute; only a good one starts the
    // back-off's steps over.
    try {
        if (failure)
            std::rethrow_exception(failure);
        if (!m_savedEmail)
            co_return;
        m_backOff.reset();
        planPause(pollInterval);
        setStatus(Status::active());
        setLastUpdated(m_services.clock->now());
        publishSnapshot();
    } catch (const CancelledError &) {
        // Silent: a newer loop or a sign-out has taken over.
    } catch (const LoginHeldBack &error) {
        failRefresh(error.description(), false);
    } catch (const StoreError &) {
        setCredentialFailure(true);
        setStatus(Status::loggedOut());
    } catch (const ClientError &error) {
        if (error.kind() == ClientError::Kind::rateLimited) {
            if (m_savedEmail)
                failRefresh(backOff(error), false);
        } else {
            planPause(pollInterval);
            failRefresh(error.description(), error.kind() == ClientError::Kind::invalidCredentials ||
                                                 error.kind() == ClientError::Kind::accountActionRequired);
        }
    } catch (const std::exception &error) {
        planPause(pollInterval);
        failRefresh(describe(error), false);
    }
}

void GlucoseStore::failRefresh(const QString &description, bool credentialProblem)
{
    // A sign-out during the cycle wins over its outcome.
    if (!m_savedEmail)
        return;
    if (credentialProblem)
        setCredentialFailure(true);
    qCCritical(lcGlucoseStore, "Refresh failed: %s", qUtf8Printable(description));
    setStatus(Status::failed(description));
}

QCoro::Task<void> GlucoseStore::loadReadings(bool allowRetry, CancellationToken cancel)
{
    const QPointer<GlucoseStore> self(this);
    if (!m_session) {
        co_await signInWithSavedCredentials(cancel);
        ensureLive(self, cancel);
        if (!m_session)
            throw ClientError(ClientError::Kind::notAuthenticated);
    }

    bool expired = false;
    try {
        co_await fetch(*m_session, cancel);
    } catch (const ClientError &error) {
        if (error.kind() != ClientError::Kind::notAuthenticated || !allowRetry)
            throw;
        expired = true;
    }
    if (!expired)
        co_return;

    ensureLive(self, cancel);
    qCInfo(lcGlucoseStore, "Session expired; signing in again");
    m_session.reset();
    co_await signInWithSavedCredentials(cancel);
    ensureLive(self, cancel);
    co_await loadReadings(false, cancel);
}

QCoro::Task<void> GlucoseStore::signInWithSavedCredentials(CancellationToken cancel)
{
    const QPointer<GlucoseStore> self(this);
    if (!m_savedEmail)
        throw StoreError();
    const QString email = *m_savedEmail;
    const std::optional<QString> password = co_await m_services.keychain->readPassword(email);
    ensureLive(self, cancel);
    if (!password)
        throw StoreError();
    const LibreLinkUpClient::Session session = co_await login(email, *password, cancel);
    ensureLive(self, cancel);
    m_session = session;
}

QCoro::Task<void> GlucoseStore::fetch(LibreLinkUpClient::Session session, CancellationToken cancel)
{
    const QPointer<GlucoseStore> self(this);
    if (!m_patientId) {
        const QList<LLUConnection> connections =
            co_await m_services.client->fetchConnections(session, cancel);
        ensureLive(self, cancel);
        if (connections.isEmpty())
            throw ClientError(ClientError::Kind::noConnections);
        listPeople(connections);
    }
    const QString patientId = *m_patientId;
    const LLUGraphData graph = co_await m_services.client->fetchGraph(session, patientId, cancel);
    ensureLive(self, cancel);
    // Another person chosen meanwhile: this graph is no longer the one on screen.
    if (m_savedEmail && m_patientId == patientId)
        apply(graph);
}

void GlucoseStore::listPeople(const QList<LLUConnection> &connections)
{
    QList<Person> people;
    for (const LLUConnection &connection : connections) {
        const std::optional<GlucoseReading> current =
            connection.glucoseMeasurement ? reading(*connection.glucoseMeasurement) : std::nullopt;
        people.append({connection.patientId, displayName(connection).value_or(u"LibreLinkUp"_s),
                       current && !isStale(*current, m_services.clock->now())});
    }
    const std::optional<QString> chosenKey = m_services.preferences->followedPatientId();
    const auto chosen = std::find_if(people.cbegin(), people.cend(), [&](const Person &person) {
        return choiceKey(person.patientId) == chosenKey;
    });
    const auto listed = [&people](const std::optional<QString> &patientId) {
        return std::find_if(people.cbegin(), people.cend(),
                            [&](const Person &person) { return person.patientId == patientId; });
    };
    const bool choiceMissing = chosenKey && !people.isEmpty() && chosen == people.cend();
    const bool changed = people != m_people || choiceMissing != m_choiceMissing;
    m_people = people;
    m_choiceMissing = choiceMissing;
    if (changed)
        Q_EMIT peopleChanged();
    // One who stopped sharing is dropped; the next cycle lists again and follows someone who is there.
    if (m_patientId && listed(m_patientId) == people.cend())
        m_patientId.reset();
    if (m_patientId || people.isEmpty())
        return;
    const auto followed = chosen != people.cend() ? chosen : people.cbegin();
    m_patientId = followed->patientId;
    setConnectionName(followed->name);
}

QCoro::Task<void> GlucoseStore::loadPeople()
{
    const QPointer<GlucoseStore> self(this);
    const CancellationToken account = m_accountToken;
    if (!m_session)
        co_return;
    try {
        const QList<LLUConnection> connections =
            co_await m_services.client->fetchConnections(*m_session, account);
        if (self && !account.isCancelled())
            self->listPeople(connections);
    } catch (const CancelledError &) {
        // Signed out meanwhile: there is no one to list.
    } catch (const std::exception &error) {
        qCWarning(lcGlucoseStore, "Could not list the people this account follows: %s",
                  qUtf8Printable(describe(error)));
    }
}

void GlucoseStore::choosePerson(const QString &patientId)
{
    const auto person = std::find_if(m_people.cbegin(), m_people.cend(), [&](const Person &candidate) {
        return candidate.patientId == patientId;
    });
    if (person == m_people.cend())
        return;
    m_services.preferences->setFollowedPatientId(choiceKey(patientId));
    if (std::exchange(m_choiceMissing, false))
        Q_EMIT peopleChanged();
    if (m_patientId == patientId)
        return;
    m_patientId = patientId;
    // Never the last person's reading under the new name.
    setLatest(std::nullopt);
    setHistory({});
    setLastUpdated(std::nullopt);
    setConnectionName(person->name);
    publishSnapshot();
    refresh();
}

void GlucoseStore::apply(const LLUGraphData &graph)
{
    GraphReadings mapped = readings(graph);
    setLatest(mapped.latest);
    setHistory(mapped.history);
    if (mapped.displayName)
        setConnectionName(mapped.displayName);
}

void GlucoseStore::publishSnapshot()
{
    GlucoseSnapshot snapshot;
    snapshot.latest = m_latest;
    snapshot.history = m_history;
    snapshot.unit = m_unit;
    snapshot.connectionName = m_connectionName;
    snapshot.targets = m_targetRange;
    snapshot.updatedAt = m_services.clock->now();
    snapshot.alert = m_activeAlert;
    try {
        m_services.snapshots->write(snapshot);
    } catch (const Error &error) {
        qCCritical(lcGlucoseStore, "Could not publish widget snapshot: %s",
                   qUtf8Printable(error.description()));
        return;
    }
    m_services.widgets->reloadAllTimelines();
}

void GlucoseStore::setStatus(const Status &status)
{
    if (assign(m_status, status))
        Q_EMIT statusChanged();
}

void GlucoseStore::setLatest(const std::optional<GlucoseReading> &latest)
{
    if (assign(m_latest, latest))
        Q_EMIT latestChanged();
}

void GlucoseStore::setHistory(const QList<GlucoseReading> &history)
{
    if (assign(m_history, history))
        Q_EMIT historyChanged();
}

void GlucoseStore::setConnectionName(const std::optional<QString> &name)
{
    if (assign(m_connectionName, name))
        Q_EMIT connectionNameChanged();
}

void GlucoseStore::setLastUpdated(const std::optional<QDateTime> &lastUpdated)
{
    if (assign(m_lastUpdated, lastUpdated))
        Q_EMIT lastUpdatedChanged();
}

void GlucoseStore::setSavedEmail(const std::optional<QString> &email)
{
    if (assign(m_savedEmail, email))
        Q_EMIT savedEmailChanged();
}

void GlucoseStore::setNow(const QDateTime &now)
{
    if (assign(m_now, now))
        Q_EMIT nowChanged();
}

void GlucoseStore::setCredentialFailure(bool failure)
{
    if (assign(m_credentialFailure, failure))
        Q_EMIT credentialFailureChanged();
}

} // namespace glinta
