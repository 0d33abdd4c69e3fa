#include "SimulatedService.h"

#include "client/AppVersion.h"
#include "support/DecodingError.h"
#include "support/JsonDecoding.h"
#include "support/JsonWriter.h"

#include <QCryptographicHash>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QLocale>
#include <QPointer>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta::sim {

namespace {

constexpr qint64 historySpanMinutes = 12 * 60;
constexpr qint64 historyStepMinutes = 15;
constexpr qsizetype maximumLogEntries = 10000;
constexpr qsizetype statsLogEntries = 200;

QByteArray headerValue(const QHttpServerRequest &request, const QByteArray &name)
{
    for (const auto &[key, value] : request.headers()) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

QByteArray messageBody(const QString &message)
{
    JsonWriter writer;
    writer.beginObject();
    writer.key("message"_L1);
    writer.value(message);
    writer.endObject();
    return writer.takeBytes();
}

// Anything that is not a dotted version is lower than every version.
bool isLowerVersion(const QByteArray &version, const AppVersion &minimum)
{
    const std::optional<AppVersion> have = AppVersion::parse(QString::fromLatin1(version));
    return !have || *have < minimum;
}

// What the service answers an app it no longer serves.
QByteArray versionTooOldBody(const Fault &fault)
{
    JsonWriter writer;
    writer.beginObject();
    writer.key("status"_L1);
    writer.value(std::int64_t(920));
    if (!fault.omitVersion) {
        writer.key("data"_L1);
        writer.beginObject();
        writer.key("minimumVersion"_L1);
        writer.value(fault.version);
        writer.endObject();
        writer.key("error"_L1);
        writer.beginObject();
        writer.key("message"_L1);
        writer.value(fault.message.value_or(u"app version too old"_s));
        writer.endObject();
    }
    writer.endObject();
    return writer.takeBytes();
}

QDateTime floorTo(const QDateTime &time, qint64 minutes)
{
    const qint64 step = minutes * 60 * 1000;
    const qint64 ms = time.toMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(ms - ((ms % step) + step) % step, Qt::UTC);
}

} // namespace

SimulatedService::SimulatedService(QObject *parent) : QAbstractHttpServer(parent) {}

SimulatedService::~SimulatedService() = default;

void SimulatedService::useTls(const QSslCertificate &certificate, const QSslKey &key)
{
    sslSetup(certificate, key);
    m_tls = true;
}

quint16 SimulatedService::start(quint16 port)
{
    m_port = listen(QHostAddress::LocalHost, port);
    for (QTcpServer *server : servers()) {
        connect(server, &QTcpServer::newConnection, this, [this, server] {
            ++m_connections;
            // Plain and TLS servers alike keep each socket they accept as a child; the TLS one from before
            // its handshake.
            for (QTcpSocket *socket : server->findChildren<QTcpSocket *>(Qt::FindDirectChildrenOnly))
                trackConnection(socket);
        });
    }
    return m_port;
}

QUrl SimulatedService::baseUrl() const
{
    return QUrl((m_tls ? u"https://127.0.0.1:"_s : u"http://127.0.0.1:"_s) + QString::number(m_port) + u'/');
}

QUrl SimulatedService::regionBaseUrl(const QString &region) const
{
    QUrl url = baseUrl();
    url.setPath(u'/' + region.toLower() + u'/');
    return url;
}

ServiceEndpoints SimulatedService::endpoints() const
{
    ServiceEndpoints endpoints;
    endpoints.defaultBaseUrl = baseUrl();
    for (const QString &code : ServiceEndpoints::regionCodes())
        endpoints.regionBaseUrls.insert(code, regionBaseUrl(code));
    return endpoints;
}

void SimulatedService::addAccount(const SimAccount &account)
{
    m_accounts.append(account);
}

SimAccount SimulatedService::demoAccount()
{
    return {
        u"ann@example.com"_s,
        u"correct horse"_s,
        u"a1b2c3d4-0000-4000-8000-000000000001"_s,
        u"eu"_s,
        // A parent following two children: the first is the one followed unless the user chooses.
        {{u"p-0001"_s, u"Ann"_s, u"Lee"_s}, {u"p-0002"_s, u"Max"_s, u"Lee"_s, std::chrono::minutes(150)}}};
}

void SimulatedService::addFault(const Fault &fault)
{
    m_faults.append(fault);
}

void SimulatedService::clearFaults()
{
    m_faults.clear();
}

QDateTime SimulatedService::now() const
{
    return QDateTime::currentDateTimeUtc().addMSecs(m_clockOffsetMs);
}

void SimulatedService::setNow(const QDateTime &now)
{
    m_clockOffsetMs = QDateTime::currentDateTimeUtc().msecsTo(now);
}

void SimulatedService::advance(std::chrono::seconds by)
{
    m_clockOffsetMs += std::chrono::duration_cast<std::chrono::milliseconds>(by).count();
}

void SimulatedService::setPhoneTimeZone(const QTimeZone &zone)
{
    m_phoneZone = zone;
}

int SimulatedService::requestCount(const QString &path) const
{
    return m_requests.value(path);
}

int SimulatedService::connectionCount() const
{
    return m_connections;
}

int SimulatedService::openConnections() const
{
    return static_cast<int>(m_openSockets.size());
}

int SimulatedService::peakOpenConnections() const
{
    return m_peakOpenSockets;
}

QList<RequestRecord> SimulatedService::requestLog() const
{
    return m_requestLog;
}

void SimulatedService::resetCounters()
{
    m_requests.clear();
    m_connections = 0;
    m_peakOpenSockets = static_cast<int>(m_openSockets.size());
    m_requestLogDropped += m_requestLog.size();
    m_requestLog.clear();
    m_lastHeaders.clear();
}

void SimulatedService::trackConnection(QTcpSocket *socket)
{
    if (m_openSockets.contains(socket) || socket->state() == QAbstractSocket::UnconnectedState)
        return;
    m_openSockets.insert(socket);
    m_peakOpenSockets = std::max(m_peakOpenSockets, static_cast<int>(m_openSockets.size()));
    connect(socket, &QAbstractSocket::disconnected, this, [this, socket] { connectionClosed(socket); });
    connect(socket, &QObject::destroyed, this, [this, socket] { connectionClosed(socket); });
}

void SimulatedService::connectionClosed(QTcpSocket *socket)
{
    m_openSockets.remove(socket);
    m_heldResponders.remove_if([socket](const auto &responder) { return responder->socket() == socket; });
}

qint64 SimulatedService::logRequest(const QString &path, const QByteArray &appVersion)
{
    m_requestLog.append({QDateTime::currentDateTimeUtc(), path, appVersion, 0});
    if (m_requestLog.size() > maximumLogEntries) {
        m_requestLog.removeFirst();
        ++m_requestLogDropped;
    }
    return m_requestLogDropped + m_requestLog.size() - 1;
}

void SimulatedService::settle(qint64 entry, int httpStatus)
{
    // Gone when the counters were reset in the meantime.
    const qint64 index = entry - m_requestLogDropped;
    if (index < 0 || index >= m_requestLog.size())
        return;
    m_requestLog[index].httpStatus = httpStatus;
    emit requestSettled(m_requestLog.at(index));
}

QList<QPair<QByteArray, QByteArray>> SimulatedService::lastHeaders(const QString &path) const
{
    return m_lastHeaders.value(path);
}

double SimulatedService::glucoseAt(const QDateTime &time)
{
    // Two slow waves: meals and the night, never the same twice within a day.
    const double minutes = static_cast<double>(time.toSecsSinceEpoch()) / 60.0;
    const double value = 125.0 + 60.0 * std::sin(minutes / 180.0 * M_PI) + 20.0 * std::sin(minutes / 47.0);
    return std::round(value);
}

double SimulatedService::valueAt(const QDateTime &time) const
{
    if (m_ramp && time >= m_ramp->start) {
        const double span = std::max<double>(1, std::chrono::milliseconds(m_ramp->duration).count());
        const double done = std::min(1.0, static_cast<double>(m_ramp->start.msecsTo(time)) / span);
        return std::round(m_ramp->from + (m_ramp->to - m_ramp->from) * done);
    }
    const double value = glucoseAt(time);
    if (!m_earlyLowStart.isValid())
        return value;
    const double minutes = static_cast<double>(m_earlyLowStart.msecsTo(time)) / 60000.0;
    return std::min(value, std::round(60.0 + 0.12 * (minutes - 10.0) * (minutes - 10.0)));
}

void SimulatedService::addEarlyLow(const QDateTime &start)
{
    m_earlyLowStart = start;
}

void SimulatedService::rampTo(double from, double to, std::chrono::seconds duration)
{
    // The measurement of this minute is on the ramp already, so the next request sees `from`.
    m_ramp = Ramp{floorTo(now(), 1), from, to, duration};
}

void SimulatedService::clearRamp()
{
    m_ramp.reset();
}

std::optional<Fault> SimulatedService::takeFault(const QString &path, const QByteArray &appVersion)
{
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        if (!it->path.isEmpty() && it->path != path)
            continue;
        // An app that is new enough never meets it, so it does not use it up either.
        if (it->kind == Fault::Kind::minimumVersion && !it->omitVersion) {
            const std::optional<AppVersion> minimum = AppVersion::parse(it->version);
            if (minimum && !isLowerVersion(appVersion, *minimum))
                continue;
        }
        Fault fault = *it;
        if (it->count > 0 && --it->count == 0)
            m_faults.erase(it);
        return fault;
    }
    return std::nullopt;
}

bool SimulatedService::handleRequest(const QHttpServerRequest &request, QTcpSocket *socket)
{
    // "/<region>/llu/..." or "/llu/..." for the global host; "/_sim/<command>" is the control interface.
    QStringList parts = request.url().path().split(u'/', Qt::SkipEmptyParts);
    QString region;
    if (!parts.isEmpty() && ServiceEndpoints::regionCodes().contains(parts.first()))
        region = parts.takeFirst();

    auto responder = std::make_unique<QHttpServerResponder>(makeResponder(request, socket));
    if (parts.size() == 2 && parts[0] == u"_sim") {
        respond(*responder, admin(parts[1], request));
        return true;
    }

    QString path;
    if (parts == QStringList{u"llu"_s, u"auth"_s, u"login"_s})
        path = u"login"_s;
    else if (parts == QStringList{u"llu"_s, u"connections"_s})
        path = u"connections"_s;
    else if (parts.size() == 4 && parts[0] == u"llu" && parts[1] == u"connections" && parts[3] == u"graph")
        path = u"graph"_s;
    else {
        respond(*responder, {404, messageBody(u"NotFound"_s)});
        return true;
    }

    ++m_requests[path];
    m_lastHeaders.insert(path, request.headers());
    const QByteArray appVersion = headerValue(request, "version");
    const qint64 entry = logRequest(path, appVersion);

    const std::optional<Fault> fault = takeFault(path, appVersion);
    Reply reply;
    if (fault && (fault->kind == Fault::Kind::neverReply || fault->kind == Fault::Kind::holdConnections)) {
        // Until the client gives up: its socket closing drops the responder.
        if (socket->state() != QAbstractSocket::UnconnectedState)
            m_heldResponders.push_back(std::move(responder));
        settle(entry, 0);
        return true;
    }
    if (fault && fault->kind == Fault::Kind::httpStatus) {
        reply = {fault->httpStatus, messageBody(fault->message.value_or(u"Fault"_s))};
    } else if (fault && fault->kind == Fault::Kind::apiStatus) {
        JsonWriter writer;
        writer.beginObject();
        writer.key("status"_L1);
        writer.value(static_cast<std::int64_t>(fault->apiStatus));
        if (fault->message) {
            writer.key("error"_L1);
            writer.beginObject();
            writer.key("message"_L1);
            writer.value(*fault->message);
            writer.endObject();
        }
        writer.endObject();
        reply = {200, writer.takeBytes()};
    } else if (fault && fault->kind == Fault::Kind::redirect) {
        reply = {200,
                 "{\"status\":0,\"data\":{\"redirect\":true,\"region\":\"" + fault->region.toUtf8() + "\"}}"};
    } else if (fault && fault->kind == Fault::Kind::notJson) {
        reply = {200, "<html><body>Service temporarily unavailable</body></html>"};
    } else if (fault && fault->kind == Fault::Kind::rawBody) {
        reply = {200, fault->body};
    } else if (fault && fault->kind == Fault::Kind::minimumVersion) {
        reply = {200, versionTooOldBody(*fault)};
    } else if (fault && fault->kind == Fault::Kind::rateLimit) {
        reply = {fault->httpStatus > 0 ? fault->httpStatus : 429,
                 messageBody(fault->message.value_or(u"TooManyRequests"_s))};
        if (!fault->retryAfter.isEmpty())
            reply.headers.append({"Retry-After", fault->retryAfter});
    } else if (fault && fault->kind == Fault::Kind::hugeBody) {
        reply = {fault->httpStatus > 0 ? fault->httpStatus : 200,
                 "{\"status\":0,\"data\":\"" + QByteArray(17 * 1024 * 1024, 'x') + "\"}"};
    } else {
        m_activeFault = fault;
        reply = serve(region, path, request);
        m_activeFault.reset();
    }

    if (fault && fault->kind == Fault::Kind::truncatedBody)
        reply.body.truncate(reply.body.size() / 2);
    if (fault && fault->kind == Fault::Kind::closeMidBody) {
        responder->writeStatusLine(static_cast<QHttpServerResponder::StatusCode>(reply.httpStatus));
        responder->writeHeader("Content-Type", "application/json");
        responder->writeHeader("Content-Length", QByteArray::number(reply.body.size()));
        responder->writeBody(reply.body.left(reply.body.size() / 2));
        socket->flush();
        socket->abort();
        settle(entry, reply.httpStatus);
        return true;
    }
    if (fault && fault->kind == Fault::Kind::delay) {
        auto held = std::shared_ptr<QHttpServerResponder>(std::move(responder));
        QPointer<QTcpSocket> guard(socket);
        QTimer::singleShot(fault->delay, this, [this, held, guard, reply, entry] {
            if (guard)
                respond(*held, reply);
            settle(entry, guard ? reply.httpStatus : 0);
        });
        return true;
    }
    respond(*responder, reply);
    settle(entry, reply.httpStatus);
    return true;
}

void SimulatedService::missingHandler(const QHttpServerRequest &, QTcpSocket *) {}

void SimulatedService::respond(QHttpServerResponder &responder, const Reply &reply)
{
    // What QHttpServerResponder::write() sends, with room for headers only known at run time.
    responder.writeStatusLine(static_cast<QHttpServerResponder::StatusCode>(reply.httpStatus));
    responder.writeHeader("Content-Type", "application/json");
    for (const auto &[name, value] : reply.headers)
        responder.writeHeader(name, value);
    responder.writeHeader("Content-Length", QByteArray::number(reply.body.size()));
    responder.writeBody(reply.body);
}

SimulatedService::Reply SimulatedService::serve(const QString &region, const QString &path,
                                                const QHttpServerRequest &request)
{
    // What the real service checks before anything else.
    if (headerValue(request, "product").isEmpty() || headerValue(request, "version").isEmpty())
        return {400, messageBody(u"RequiredHeaderMissing"_s)};

    if (path == u"login")
        return login(region, request);

    const SimAccount *account = authorised(request);
    if (!account)
        return {401, messageBody(u"Unauthorized"_s)};
    if (path == u"connections")
        return connections(*account);
    const QString patientId = request.url().path().section(u'/', -2, -2);
    return graph(*account, patientId);
}

const SimAccount *SimulatedService::authorised(const QHttpServerRequest &request) const
{
    const QByteArray authorization = headerValue(request, "Authorization");
    if (!authorization.startsWith("Bearer "))
        return nullptr;
    const QString email = m_tokens.value(QString::fromUtf8(authorization.mid(7)));
    for (const SimAccount &account : m_accounts) {
        if (account.email != email)
            continue;
        const QByteArray expected =
            QCryptographicHash::hash(account.userId.toUtf8(), QCryptographicHash::Sha256).toHex();
        return headerValue(request, "account-id") == expected ? &account : nullptr;
    }
    return nullptr;
}

SimulatedService::Reply SimulatedService::login(const QString &region, const QHttpServerRequest &request)
{
    QString email;
    QString password;
    try {
        const json::Path root("login body"_L1);
        const QJsonObject body = json::toObject(json::parse(request.body(), root), root);
        email = json::requiredString(body, "email"_L1, root);
        password = json::requiredString(body, "password"_L1, root);
    } catch (const DecodingError &) {
        return {400, messageBody(u"BadRequest"_s)};
    }

    for (const SimAccount &account : std::as_const(m_accounts)) {
        if (account.email.compare(email, Qt::CaseInsensitive) != 0)
            continue;
        if (account.password != password)
            break;
        if (account.region != region) {
            return {200, "{\"status\":0,\"data\":{\"redirect\":true,\"region\":\"" + account.region.toUtf8() +
                             "\"}}"};
        }
        const QString token = QUuid::createUuid().toString(QUuid::WithoutBraces);
        m_tokens.insert(token, account.email);
        JsonWriter writer;
        writer.beginObject();
        writer.key("status"_L1);
        writer.value(std::int64_t(0));
        writer.key("data"_L1);
        writer.beginObject();
        writer.key("user"_L1);
        writer.beginObject();
        writer.key("id"_L1);
        writer.value(account.userId);
        writer.key("country"_L1);
        writer.value(u"DE"_s);
        writer.endObject();
        writer.key("messages"_L1);
        writer.beginObject();
        writer.key("unread"_L1);
        writer.value(std::int64_t(0));
        writer.endObject();
        writer.key("authTicket"_L1);
        writer.beginObject();
        writer.key("token"_L1);
        writer.value(token);
        writer.key("expires"_L1);
        writer.value(static_cast<double>(now().addDays(180).toSecsSinceEpoch()));
        writer.key("duration"_L1);
        writer.value(std::int64_t(15552000000));
        writer.endObject();
        writer.endObject();
        writer.endObject();
        return {200, writer.takeBytes()};
    }
    return {200, R"({"status":2,"error":{"message":"notAuthenticated"}})"};
}

QByteArray SimulatedService::measurementJson(const QDateTime &time, bool isoTimestamp, bool valueAsText,
                                             std::chrono::minutes phase) const
{
    const QDateTime curveTime = time.addSecs(-std::chrono::seconds(phase).count());
    const QDateTime local = time.toTimeZone(m_phoneZone);
    const QString stamp =
        isoTimestamp ? time.toString(Qt::ISODate) : QLocale::c().toString(local, u"M/d/yyyy h:mm:ss AP"_s);
    const double value = valueAt(curveTime);
    const double slope = value - valueAt(curveTime.addSecs(-15 * 60));
    const int trend = slope < -30 ? 1 : slope < -15 ? 2 : slope <= 15 ? 3 : slope <= 30 ? 4 : 5;

    JsonWriter writer;
    writer.beginObject();
    writer.key("FactoryTimestamp"_L1);
    writer.value(isoTimestamp ? stamp : QLocale::c().toString(time, u"M/d/yyyy h:mm:ss AP"_s));
    writer.key("Timestamp"_L1);
    writer.value(stamp);
    writer.key("type"_L1);
    writer.value(std::int64_t(1));
    writer.key("ValueInMgPerDl"_L1);
    if (valueAsText)
        writer.value(QString::number(value));
    else
        writer.value(value);
    writer.key("TrendArrow"_L1);
    writer.value(std::int64_t(trend));
    writer.key("MeasurementColor"_L1);
    writer.value(std::int64_t(value < 70 || value > 180 ? 2 : 1));
    writer.key("GlucoseUnits"_L1);
    writer.value(std::int64_t(1));
    writer.key("Value"_L1);
    writer.value(value);
    writer.key("isHigh"_L1);
    writer.value(value > 250);
    writer.key("isLow"_L1);
    writer.value(value < 70);
    writer.endObject();
    return writer.takeBytes();
}

SimulatedService::Reply SimulatedService::connections(const SimAccount &account)
{
    const bool empty = m_activeFault && m_activeFault->kind == Fault::Kind::emptyConnections;
    const bool iso = m_activeFault && m_activeFault->kind == Fault::Kind::badTimestamps;
    const bool wrongType = m_activeFault && m_activeFault->kind == Fault::Kind::wrongType;
    const QDateTime current = floorTo(now(), 1);

    QByteArray body = "{\"status\":0,\"data\":[";
    if (!empty) {
        bool first = true;
        for (const SimConnection &connection : account.connections) {
            if (!first)
                body += ',';
            first = false;
            JsonWriter writer;
            writer.beginObject();
            writer.key("id"_L1);
            writer.value(QString(connection.patientId + u"-c"_s));
            writer.key("patientId"_L1);
            writer.value(connection.patientId);
            if (connection.firstName) {
                writer.key("firstName"_L1);
                writer.value(*connection.firstName);
            }
            if (connection.lastName) {
                writer.key("lastName"_L1);
                writer.value(*connection.lastName);
            }
            writer.key("targetLow"_L1);
            writer.value(std::int64_t(70));
            writer.key("targetHigh"_L1);
            writer.value(std::int64_t(180));
            QByteArray text = writer.takeBytes();
            body += text +
                    ",\"glucoseMeasurement\":" + measurementJson(current, iso, wrongType, connection.phase) +
                    '}';
        }
    }
    body += "],\"ticket\":{\"token\":\"renewed\",\"expires\":0,\"duration\":3600000}}";
    return {200, body};
}

SimulatedService::Reply SimulatedService::graph(const SimAccount &account, const QString &patientId)
{
    const SimConnection *connection = nullptr;
    for (const SimConnection &candidate : account.connections) {
        if (candidate.patientId == patientId)
            connection = &candidate;
    }
    if (!connection)
        return {404, messageBody(u"NotFound"_s)};

    const bool iso = m_activeFault && m_activeFault->kind == Fault::Kind::badTimestamps;
    const bool wrongType = m_activeFault && m_activeFault->kind == Fault::Kind::wrongType;
    const QDateTime current = floorTo(now(), 1);
    const QDateTime newestPoint = floorTo(now(), historyStepMinutes);

    JsonWriter writer;
    writer.beginObject();
    writer.key("patientId"_L1);
    writer.value(connection->patientId);
    if (connection->firstName) {
        writer.key("firstName"_L1);
        writer.value(*connection->firstName);
    }
    if (connection->lastName) {
        writer.key("lastName"_L1);
        writer.value(*connection->lastName);
    }
    QByteArray connectionText = writer.takeBytes();

    QByteArray body =
        "{\"status\":0,\"data\":{\"connection\":" + connectionText +
        ",\"glucoseMeasurement\":" + measurementJson(current, iso, wrongType, connection->phase) +
        "},\"activeSensors\":[],\"graphData\":[";
    for (qint64 minutes = historySpanMinutes - historyStepMinutes; minutes >= 0;
         minutes -= historyStepMinutes) {
        body += measurementJson(newestPoint.addSecs(-minutes * 60), iso, false, connection->phase);
        if (minutes > 0)
            body += ',';
    }
    body += "]},\"ticket\":{\"token\":\"renewed\",\"expires\":0,\"duration\":3600000}}";
    return {200, body};
}

SimulatedService::Reply SimulatedService::admin(const QString &command, const QHttpServerRequest &request)
{
    try {
        const json::Path root("control request"_L1);
        QJsonObject body;
        if (!request.body().isEmpty())
            body = json::toObject(json::parse(request.body(), root), root);

        if (command == u"fault") {
            static const QHash<QString, Fault::Kind> kinds{
                {u"apiStatus"_s, Fault::Kind::apiStatus},
                {u"httpStatus"_s, Fault::Kind::httpStatus},
                {u"redirect"_s, Fault::Kind::redirect},
                {u"notJson"_s, Fault::Kind::notJson},
                {u"truncatedBody"_s, Fault::Kind::truncatedBody},
                {u"wrongType"_s, Fault::Kind::wrongType},
                {u"emptyConnections"_s, Fault::Kind::emptyConnections},
                {u"badTimestamps"_s, Fault::Kind::badTimestamps},
                {u"neverReply"_s, Fault::Kind::neverReply},
                {u"closeMidBody"_s, Fault::Kind::closeMidBody},
                {u"hugeBody"_s, Fault::Kind::hugeBody},
                {u"delay"_s, Fault::Kind::delay},
                {u"rawBody"_s, Fault::Kind::rawBody},
                {u"minimumVersion"_s, Fault::Kind::minimumVersion},
                {u"rateLimit"_s, Fault::Kind::rateLimit},
                {u"holdConnections"_s, Fault::Kind::holdConnections},
            };
            const QString kind = json::requiredString(body, "kind"_L1, root);
            if (!kinds.contains(kind))
                return {400, messageBody(u"Unknown fault kind"_s)};
            Fault fault;
            fault.kind = kinds.value(kind);
            fault.path = json::optionalString(body, "path"_L1, root).value_or(QString());
            const std::int64_t httpStatus = json::optionalInteger(body, "httpStatus"_L1, root)
                                                .value_or(fault.kind == Fault::Kind::rateLimit  ? 429
                                                          : fault.kind == Fault::Kind::hugeBody ? 200
                                                                                                : 500);
            if (httpStatus < 100 || httpStatus > 599)
                return {400, messageBody(u"httpStatus must be from 100 to 599"_s)};
            fault.httpStatus = static_cast<int>(httpStatus);
            fault.apiStatus = json::optionalInteger(body, "apiStatus"_L1, root).value_or(0);
            fault.message = json::optionalString(body, "message"_L1, root);
            fault.region = json::optionalString(body, "region"_L1, root).value_or(QString());
            fault.delay =
                std::chrono::milliseconds(json::optionalInteger(body, "delayMs"_L1, root).value_or(0));
            fault.count = static_cast<int>(json::optionalInteger(body, "count"_L1, root).value_or(-1));
            fault.body = json::optionalString(body, "body"_L1, root).value_or(QString()).toUtf8();
            fault.version = json::optionalString(body, "version"_L1, root).value_or(QString());
            fault.omitVersion = json::optionalBool(body, "omitVersion"_L1, root).value_or(false);
            fault.retryAfter = json::optionalString(body, "retryAfter"_L1, root).value_or(QString()).toUtf8();
            if (fault.kind == Fault::Kind::minimumVersion && !fault.omitVersion &&
                !AppVersion::parse(fault.version))
                return {400, messageBody(u"minimumVersion needs a dotted \"version\" such as 4.16.0"_s)};
            // It goes into the answer's header as it is.
            if (std::any_of(fault.retryAfter.cbegin(), fault.retryAfter.cend(),
                            [](char c) { return c >= 0 && c < ' '; }))
                return {400, messageBody(u"retryAfter must not hold control characters"_s)};
            addFault(fault);
        } else if (command == u"clear") {
            clearFaults();
        } else if (command == u"clock") {
            const std::optional<QString> zoneId = json::optionalString(body, "phoneZone"_L1, root);
            const QTimeZone zone = zoneId ? QTimeZone(zoneId->toUtf8()) : QTimeZone();
            if (zoneId && !zone.isValid())
                return {400, messageBody(u"Unknown time zone: "_s + *zoneId)};
            if (const auto iso = json::optionalString(body, "set"_L1, root)) {
                const QDateTime time = QDateTime::fromString(*iso, Qt::ISODate);
                if (!time.isValid())
                    return {400, messageBody(u"Not an ISO 8601 time"_s)};
                setNow(time);
            }
            if (const auto seconds = json::optionalInteger(body, "advanceSeconds"_L1, root))
                advance(std::chrono::seconds(*seconds));
            if (zoneId)
                setPhoneTimeZone(zone);
        } else if (command == u"glucose") {
            const double to = json::requiredNumber(body, "to"_L1, root);
            const double from = json::optionalNumber(body, "from"_L1, root).value_or(valueAt(now()));
            const std::int64_t minutes = json::optionalInteger(body, "minutes"_L1, root).value_or(0);
            if (std::min(from, to) < 20 || std::max(from, to) > 600 || minutes < 0 || minutes > 24 * 60)
                return {400, messageBody(u"Values go from 20 to 600 mg/dL, over 0 to 1440 minutes"_s)};
            rampTo(from, to, std::chrono::minutes(minutes));
        } else if (command == u"reset") {
            clearFaults();
            clearRamp();
            resetCounters();
            m_clockOffsetMs = 0;
        } else if (command != u"stats") {
            return {404, messageBody(u"Unknown control command"_s)};
        }
    } catch (const DecodingError &error) {
        return {400, messageBody(error.description())};
    }

    JsonWriter writer;
    writer.beginObject();
    writer.key("now"_L1);
    writer.value(now().toString(Qt::ISODateWithMs));
    writer.key("phoneZone"_L1);
    writer.value(QString::fromUtf8(m_phoneZone.id()));
    writer.key("connections"_L1);
    writer.value(std::int64_t(m_connections));
    writer.key("openConnections"_L1);
    writer.value(std::int64_t(openConnections()));
    writer.key("peakOpenConnections"_L1);
    writer.value(std::int64_t(m_peakOpenSockets));
    writer.key("requests"_L1);
    writer.beginObject();
    for (auto it = m_requests.cbegin(); it != m_requests.cend(); ++it) {
        writer.key(QLatin1StringView(it.key().toLatin1()));
        writer.value(std::int64_t(it.value()));
    }
    writer.endObject();
    writer.key("log"_L1);
    writer.beginArray();
    for (qsizetype i = std::max<qsizetype>(0, m_requestLog.size() - statsLogEntries); i < m_requestLog.size();
         ++i) {
        const RequestRecord &record = m_requestLog.at(i);
        writer.beginObject();
        writer.key("at"_L1);
        writer.value(record.at.toString(Qt::ISODateWithMs));
        writer.key("path"_L1);
        writer.value(record.path);
        writer.key("version"_L1);
        writer.value(QString::fromUtf8(record.version));
        writer.key("status"_L1);
        writer.value(std::int64_t(record.httpStatus));
        writer.endObject();
    }
    writer.endArray();
    writer.endObject();
    return {200, writer.takeBytes()};
}

} // namespace glinta::sim
