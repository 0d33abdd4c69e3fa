#pragma once

#include "client/LibreLinkUpClient.h"
#include "domain/AlertKind.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"
#include "domain/TargetRange.h"
#include "store/RateLimitBackOff.h"
#include "support/BuildInfo.h"
#include "support/Cancellation.h"
#include "support/Error.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QPointer>

#include <qcoro/qcorotask.h>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

namespace glinta {

class ClientError;
class Clock;
class KeychainStore;
class Preferences;
class SharedSnapshotStore;
class WidgetReloader;
struct GlucoseSnapshot;

// The application's one state: sign-in, the readings, the unit and the clock views judge age by. Every
// field notifies only when it really changes; all work runs on the main thread, and its long-running
// tasks hold the store weakly.
class GlucoseStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(glinta::GlucoseStore::Status status READ status NOTIFY statusChanged)
    Q_PROPERTY(std::optional<glinta::GlucoseReading> latest READ latest NOTIFY latestChanged)
    Q_PROPERTY(QList<glinta::GlucoseReading> history READ history NOTIFY historyChanged)
    Q_PROPERTY(std::optional<QString> connectionName READ connectionName NOTIFY connectionNameChanged)
    Q_PROPERTY(std::optional<QDateTime> lastUpdated READ lastUpdated NOTIFY lastUpdatedChanged)
    Q_PROPERTY(glinta::GlucoseUnit unit READ unit WRITE setUnit NOTIFY unitChanged)
    Q_PROPERTY(std::optional<QString> savedEmail READ savedEmail NOTIFY savedEmailChanged)
    Q_PROPERTY(QDateTime now READ now NOTIFY nowChanged)
    Q_PROPERTY(bool credentialFailure READ credentialFailure NOTIFY credentialFailureChanged)
    Q_PROPERTY(
        glinta::TargetRange targetRange READ targetRange WRITE setTargetRange NOTIFY targetRangeChanged)
    Q_PROPERTY(std::optional<glinta::AlertKind> activeAlert READ activeAlert WRITE setActiveAlert NOTIFY
                   activeAlertChanged)

public:
    struct Status
    {
        enum class Kind
        {
            failed,
            loggedOut,
            connecting,
            active,
        };
        Kind kind = Kind::loggedOut;
        // The failure's user-facing description, for `failed` only.
        QString message;

        static Status failed(QString message) { return {Kind::failed, std::move(message)}; }
        static Status loggedOut() { return {Kind::loggedOut, {}}; }
        static Status connecting() { return {Kind::connecting, {}}; }
        static Status active() { return {Kind::active, {}}; }

        friend bool operator==(const Status &, const Status &) = default;
    };

    class StoreError : public Error
    {
    public:
        QString description() const override;
    };

    // What the store works with; the application wires the real ones, tests their own.
    struct Services
    {
        LibreLinkUpClient *client = nullptr;
        KeychainStore *keychain = nullptr;
        SharedSnapshotStore *snapshots = nullptr;
        Preferences *preferences = nullptr;
        WidgetReloader *widgets = nullptr;
        Clock *clock = nullptr;
        BuildInfo build;
    };

    // Someone the account follows, as the service last listed them.
    struct Person
    {
        QString patientId;
        QString name;
        // The service has a reading for them that is not stale.
        bool hasCurrentReading = false;

        friend bool operator==(const Person &, const Person &) = default;
    };

    static constexpr std::chrono::seconds pollInterval{60};
    static constexpr std::chrono::seconds clockInterval{60};

    // Reads the unit, the target range, the saved e-mail and the app version the service last asked for, then
    // the build-change check and the installed-update clean-up. Nothing runs until start().
    explicit GlucoseStore(const Services &services, QObject *parent = nullptr);
    // A still picture of `snapshot` for image export: reads no preference, starts nothing, publishes
    // nothing.
    static std::unique_ptr<GlucoseStore> fromSnapshot(const GlucoseSnapshot &snapshot,
                                                      QObject *parent = nullptr);
    ~GlucoseStore() override;

    // Starts the clock, and the poll loop when an e-mail is saved.
    void start();

    Status status() const { return m_status; }
    std::optional<GlucoseReading> latest() const { return m_latest; }
    QList<GlucoseReading> history() const { return m_history; }
    std::optional<QString> connectionName() const { return m_connectionName; }
    std::optional<QDateTime> lastUpdated() const { return m_lastUpdated; }
    GlucoseUnit unit() const { return m_unit; }
    std::optional<QString> savedEmail() const { return m_savedEmail; }
    QDateTime now() const { return m_now; }
    bool credentialFailure() const { return m_credentialFailure; }
    TargetRange targetRange() const { return m_targetRange; }
    // The alert shown while one holds; the alert monitor sets it.
    std::optional<AlertKind> activeAlert() const { return m_activeAlert; }
    bool isPolling() const { return m_pollToken.has_value() && !m_pollToken->isCancelled(); }
    // Everyone the account follows, in the service's order; empty until listed after a sign-in.
    QList<Person> people() const { return m_people; }
    // Whose data this is; none before the first list.
    std::optional<QString> followedPatientId() const { return m_patientId; }
    // The person the user chose is not among the people listed, so the first one is followed instead.
    bool choiceMissing() const { return m_choiceMissing; }

    // Always writes the preference and republishes the snapshot, so the widget follows at once.
    void setUnit(GlucoseUnit unit);
    // Like the unit: the preference, then the snapshot. The caller checks the range is one to allow.
    void setTargetRange(const TargetRange &range);
    // Republishes the snapshot on a change while signed in, so the status line carries the alert.
    void setActiveAlert(std::optional<AlertKind> alert);

    // Never throws: the outcome shows in status, savedEmail and the other fields.
    QCoro::Task<void> signIn(QString email, QString password);
    // Forgets the account, its password, its data and the widget's snapshot.
    void signOut();
    // One cycle, as the Refresh button runs it. Never throws.
    QCoro::Task<void> refresh();
    // Asks the service whom the account follows now, for a list on screen. Never throws.
    QCoro::Task<void> loadPeople();
    // Follows one of people() from now on: the name and the widget change at once, the old person's
    // readings go, and a cycle fetches the new person's. Kept across launches until sign-out.
    void choosePerson(const QString &patientId);

Q_SIGNALS:
    void statusChanged();
    void latestChanged();
    void historyChanged();
    void connectionNameChanged();
    void lastUpdatedChanged();
    void unitChanged();
    void savedEmailChanged();
    void nowChanged();
    void credentialFailureChanged();
    void targetRangeChanged();
    void activeAlertChanged();
    // people() or choiceMissing().
    void peopleChanged();

private:
    GlucoseStore(QObject *parent);

    void startPolling();
    QCoro::Task<void> refresh(CancellationToken cancel);
    QCoro::Task<void> loadReadings(bool allowRetry, CancellationToken cancel);
    QCoro::Task<void> signInWithSavedCredentials(CancellationToken cancel);
    // Every sign-in goes through here, so that a login refused for its rate is not repeated early.
    QCoro::Task<LibreLinkUpClient::Session> login(QString email, QString password, CancellationToken cancel);
    // Runs `attempt`, and once more when it failed because the service asked for a newer app version,
    // which is then taken up. What it finally threw, or nothing.
    // (A struct: QCoro cannot carry an exception_ptr as a task's value.)
    struct Failure
    {
        std::exception_ptr error;
    };
    QCoro::Task<Failure> withServiceAppVersion(std::function<QCoro::Task<void>()> attempt);
    bool adoptAppVersion(const std::exception_ptr &failure);
    // Backs off and says until when.
    QString backOff(const ClientError &rateLimited);
    void planPause(std::chrono::seconds pause);
    // The person followed and everything shown of them, the widget's copy included.
    void forgetFollowed();
    QCoro::Task<void> fetch(LibreLinkUpClient::Session session, CancellationToken cancel);
    void apply(const LLUGraphData &graph);
    // Takes in the service's list, and follows the chosen person, or the first one, when no one is yet.
    void listPeople(const QList<LLUConnection> &connections);
    void publishSnapshot();
    void failRefresh(const QString &description, bool credentialProblem);
    void failSignIn(const std::exception_ptr &failure);

    static QCoro::Task<void> pollLoop(QPointer<GlucoseStore> self, CancellationToken cancel);
    static QCoro::Task<void> clockLoop(QPointer<GlucoseStore> self, CancellationToken cancel);
    static QCoro::Task<void> forgetPassword(KeychainStore *keychain, QString account);

    void setStatus(const Status &status);
    void setLatest(const std::optional<GlucoseReading> &latest);
    void setHistory(const QList<GlucoseReading> &history);
    void setConnectionName(const std::optional<QString> &name);
    void setLastUpdated(const std::optional<QDateTime> &lastUpdated);
    void setSavedEmail(const std::optional<QString> &email);
    void setNow(const QDateTime &now);
    void setCredentialFailure(bool failure);

    Services m_services;

    Status m_status;
    std::optional<GlucoseReading> m_latest;
    QList<GlucoseReading> m_history;
    std::optional<QString> m_connectionName;
    std::optional<QDateTime> m_lastUpdated;
    GlucoseUnit m_unit = GlucoseUnit::mgPerDl;
    std::optional<QString> m_savedEmail;
    QDateTime m_now;
    bool m_credentialFailure = false;
    TargetRange m_targetRange;
    std::optional<AlertKind> m_activeAlert;

    // In memory only, never stored.
    std::optional<LibreLinkUpClient::Session> m_session;
    std::optional<QString> m_patientId;
    QList<Person> m_people;
    bool m_choiceMissing = false;
    // The running loops; cancelling one also aborts its request in flight.
    std::optional<CancellationToken> m_pollToken;
    // Carried by Refresh-button cycles; sign-out cancels it, so no late answer of the old account lands.
    CancellationToken m_accountToken;
    std::optional<CancellationToken> m_clockToken;

    RateLimitBackOff m_backOff;
    // The rate limit on its way to backOff() refused a login.
    bool m_loginRateLimited = false;
    // The poll loop's next pause; a Refresh cycle that changes it cuts the running pause short.
    std::chrono::seconds m_nextPause = pollInterval;
    std::optional<CancellationToken> m_pauseToken;
};

} // namespace glinta
