#pragma once

#include "client/AppVersion.h"
#include "client/LLURecords.h"
#include "client/RequestGate.h"
#include "client/ServiceEndpoints.h"
#include "support/Cancellation.h"

#include <QNetworkRequest>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <chrono>

class QNetworkAccessManager;

namespace glinta {

// Signs a follower account in to LibreLinkUp and fetches what it follows. Keeps no state between
// calls and never retries: the caller holds the session and decides when to sign in again. One request
// is in flight at a time, whoever asks; the others wait their turn within their time-out.
//
// Every operation fails with a ClientError for what the service said no with, a TransportError when
// no HTTP answer came, a DecodingError for a body that breaks the record rules, or a CancelledError
// when its token fired.
class LibreLinkUpClient
{
public:
    // Held in memory only, never stored.
    struct Session
    {
        QString token;
        // Lower-case hex SHA-256 of the user id, sent as "account-id".
        QString accountIdHash;
        // Where the sign-in finally succeeded; every later request of the session goes here.
        QUrl baseUrl;

        friend bool operator==(const Session &, const Session &) = default;
    };

    static constexpr std::chrono::milliseconds defaultTimeout{std::chrono::seconds(60)};
    // Real responses stay well under 1 MiB; anything past this is not read.
    static constexpr qint64 maximumResponseSize = 16 * 1024 * 1024;

    explicit LibreLinkUpClient(QNetworkAccessManager *network,
                               ServiceEndpoints endpoints = ServiceEndpoints::production(),
                               std::chrono::milliseconds timeout = defaultTimeout);

    // Follows at most two region redirects.
    QCoro::Task<Session> login(QString email, QString password, CancellationToken cancel = {}) const;
    QCoro::Task<QList<LLUConnection>> fetchConnections(Session session, CancellationToken cancel = {}) const;
    QCoro::Task<LLUGraphData> fetchGraph(Session session, QString patientId,
                                         CancellationToken cancel = {}) const;

    // What the "version" header says; the service raises the version it accepts now and then.
    AppVersion appVersion() const { return m_appVersion; }
    void setAppVersion(AppVersion version) { m_appVersion = std::move(version); }

    // The five fixed headers, plus "Authorization" and "account-id" with a session.
    QNetworkRequest makeRequest(const QUrl &url, const Session *session) const;
    // `path` appended to `base` with exactly one "/" between them.
    static QUrl resolve(const QUrl &base, const QString &path);
    static QString accountIdHash(const QString &userId);

private:
    template <typename T>
    QCoro::Task<T> send(QNetworkRequest request, QByteArray body, CancellationToken cancel) const;
    QCoro::Task<QByteArray> transfer(QNetworkRequest request, QByteArray body,
                                     CancellationToken cancel) const;

    QPointer<QNetworkAccessManager> m_network;
    ServiceEndpoints m_endpoints;
    std::chrono::milliseconds m_timeout;
    AppVersion m_appVersion = AppVersion::builtIn();
    RequestGate m_gate;
};

} // namespace glinta
