#pragma once

#include "client/ServiceEndpoints.h"

#include <QAbstractHttpServer>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QSslCertificate>
#include <QSslKey>
#include <QTimeZone>
#include <QUrl>

#include <chrono>
#include <list>
#include <memory>
#include <optional>

class QHttpServerResponder;

namespace glinta::sim {

struct SimConnection
{
    QString patientId;
    std::optional<QString> firstName;
    std::optional<QString> lastName;
    // How far behind the common curve this person's readings run, so two people do not read alike.
    std::chrono::minutes phase{0};
};

struct SimAccount
{
    QString email;
    QString password;
    QString userId;
    // Lower-case region code of the account's home; empty for the global host.
    QString region;
    QList<SimConnection> connections;
};

// Something the service does wrong on purpose.
struct Fault
{
    enum class Kind
    {
        apiStatus,        // HTTP 200 with {"status": apiStatus} and, if given, an error message
        httpStatus,       // that HTTP status with a small JSON body
        redirect,         // a login answer that redirects to `region`
        notJson,          // HTTP 200 with an HTML page
        truncatedBody,    // HTTP 200 with the first half of the real body
        wrongType,        // a glucose value sent as a string
        emptyConnections, // no one shares data
        badTimestamps,    // every timestamp in ISO 8601 form, which the client does not read
        neverReply,       // the request is read and never answered
        closeMidBody,     // headers and half the body, then the connection is dropped
        hugeBody,         // a body of 17 MiB, with `httpStatus` (200 when 0)
        delay,            // the real answer, `delay` late
        rawBody,          // HTTP 200 with `body` exactly as given
        minimumVersion,   // {"status": 920} naming `version`, to a request whose "version" header is lower
        rateLimit,        // `httpStatus` (429 when 0) with a Retry-After of `retryAfter` when given
        holdConnections,  // like neverReply: the connection stays open until the client closes it
    };

    // "login", "connections", "graph", or empty for every service request.
    QString path;
    Kind kind = Kind::apiStatus;
    int httpStatus = 0;
    qint64 apiStatus = 0;
    std::optional<QString> message;
    QString region;
    std::chrono::milliseconds delay{0};
    // How many requests it answers before it goes away; -1 until cleared.
    int count = -1;
    QByteArray body;
    // The lowest app version minimumVersion lets through; with omitVersion the 920 names none and is
    // sent whatever the app's version.
    QString version{};
    bool omitVersion = false;
    // rateLimit's Retry-After value, verbatim (seconds or an HTTP date); empty sends no such header.
    QByteArray retryAfter{};
};

// A service request, stamped on the real clock when it arrived.
struct RequestRecord
{
    QDateTime at;
    // "login", "connections" or "graph".
    QString path;
    // The "version" header as sent.
    QByteArray version;
    // 0 while, or when, it is not answered.
    int httpStatus = 0;
};

// A LibreLinkUp service on loopback that answers like the real one, with faults on demand. Every region
// lives under its own path prefix on the same port ("/eu/llu/auth/login"); the global host is the root.
class SimulatedService : public QAbstractHttpServer
{
    Q_OBJECT

public:
    explicit SimulatedService(QObject *parent = nullptr);
    ~SimulatedService() override;

    // Listens on 127.0.0.1; 0 picks a free port. Returns the port, or 0 on failure.
    quint16 start(quint16 port = 0);
    // Serves HTTPS from then on; call before start().
    void useTls(const QSslCertificate &certificate, const QSslKey &key);

    QUrl baseUrl() const;
    QUrl regionBaseUrl(const QString &region) const;
    // Default and regional base URLs pointing here, for the client.
    ServiceEndpoints endpoints() const;

    void addAccount(const SimAccount &account);
    // ann@example.com / "correct horse" in region eu, sharing with Ann Lee.
    static SimAccount demoAccount();

    void addFault(const Fault &fault);
    void clearFaults();

    // The simulated phone's clock and time zone: measurements are stamped from them.
    QDateTime now() const;
    void setNow(const QDateTime &now);
    void advance(std::chrono::seconds by);
    void setPhoneTimeZone(const QTimeZone &zone);

    // Service requests by path ("login", "connections", "graph"), and TCP connections accepted.
    int requestCount(const QString &path) const;
    int connectionCount() const;
    // TCP connections open now, plain or TLS, and the most open at once since the counters were reset.
    int openConnections() const;
    int peakOpenConnections() const;
    // Every service request since the counters were reset (the last 10,000), oldest first.
    QList<RequestRecord> requestLog() const;
    void resetCounters();
    // Headers of the last service request on `path`, in the order they arrived.
    QList<QPair<QByteArray, QByteArray>> lastHeaders(const QString &path) const;

    // The glucose curve the measurements follow, in mg/dL.
    static double glucoseAt(const QDateTime &time);
    // What a measurement at `time` shows: the curve, or the early low or the ramp where they apply.
    double valueAt(const QDateTime &time) const;
    // From `start` on, a valley below the curve: under 70 mg/dL from the second minute to the
    // eighteenth, 60 at the tenth, back on the curve within the hour.
    void addEarlyLow(const QDateTime &start);
    // From this minute on, a straight line from `from` to `to` over `duration`, then `to` until cleared.
    void rampTo(double from, double to, std::chrono::seconds duration);
    void clearRamp();

signals:
    // A service request was answered, or will not be (held, or its client left first: status 0).
    void requestSettled(const glinta::sim::RequestRecord &record);

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override;
    void missingHandler(const QHttpServerRequest &request, QTcpSocket *socket) override;

private:
    struct Reply
    {
        int httpStatus = 200;
        QByteArray body;
        QList<QPair<QByteArray, QByteArray>> headers{};
    };

    Reply serve(const QString &region, const QString &path, const QHttpServerRequest &request);
    Reply login(const QString &region, const QHttpServerRequest &request);
    Reply connections(const SimAccount &account);
    Reply graph(const SimAccount &account, const QString &patientId);
    Reply admin(const QString &command, const QHttpServerRequest &request);
    const SimAccount *authorised(const QHttpServerRequest &request) const;
    std::optional<Fault> takeFault(const QString &path, const QByteArray &appVersion);
    QByteArray measurementJson(const QDateTime &time, bool isoTimestamp, bool valueAsText,
                               std::chrono::minutes phase = {}) const;
    void respond(QHttpServerResponder &responder, const Reply &reply);
    void trackConnection(QTcpSocket *socket);
    void connectionClosed(QTcpSocket *socket);
    qint64 logRequest(const QString &path, const QByteArray &appVersion);
    void settle(qint64 entry, int httpStatus);

    QList<SimAccount> m_accounts;
    QHash<QString, QString> m_tokens; // token -> e-mail
    QList<Fault> m_faults;
    // The fault of the request being served, for the faults that change the data itself.
    std::optional<Fault> m_activeFault;
    // The phone's clock runs with real time, shifted by this.
    qint64 m_clockOffsetMs = 0;
    QTimeZone m_phoneZone = QTimeZone::systemTimeZone();
    QDateTime m_earlyLowStart;
    struct Ramp
    {
        QDateTime start;
        double from;
        double to;
        std::chrono::seconds duration;
    };
    std::optional<Ramp> m_ramp;
    QMap<QString, int> m_requests;
    QHash<QString, QList<QPair<QByteArray, QByteArray>>> m_lastHeaders;
    int m_connections = 0;
    QSet<QTcpSocket *> m_openSockets;
    int m_peakOpenSockets = 0;
    QList<RequestRecord> m_requestLog;
    // Entries dropped from the front of the log, so that an entry's number stays valid.
    qint64 m_requestLogDropped = 0;
    quint16 m_port = 0;
    bool m_tls = false;
    std::list<std::unique_ptr<QHttpServerResponder>> m_heldResponders;
};

} // namespace glinta::sim
