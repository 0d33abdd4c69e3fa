#include "client/LibreLinkUpClient.h"

#include "client/ClientError.h"
#include "client/GuardedTransfer.h"
#include "client/TransportError.h"
#include "support/DecodingError.h"
#include "support/Logging.h"

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QSslConfiguration>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

QString hostForLog(const QUrl &url)
{
    return url.host().isEmpty() ? u"?"_s : url.host();
}

} // namespace

LibreLinkUpClient::LibreLinkUpClient(QNetworkAccessManager *network, ServiceEndpoints endpoints,
                                     std::chrono::milliseconds timeout)
    : m_network(network), m_endpoints(std::move(endpoints)), m_timeout(timeout)
{}

QUrl LibreLinkUpClient::resolve(const QUrl &base, const QString &path)
{
    QUrl url = base;
    QString joined = base.path();
    if (!joined.endsWith(u'/'))
        joined += u'/';
    // Decoded mode: characters a path cannot hold are percent-encoded, a "/" stays a separator.
    url.setPath(joined + path, QUrl::DecodedMode);
    return url;
}

QString LibreLinkUpClient::accountIdHash(const QString &userId)
{
    return QString::fromLatin1(QCryptographicHash::hash(userId.toUtf8(), QCryptographicHash::Sha256).toHex());
}

QNetworkRequest LibreLinkUpClient::makeRequest(const QUrl &url, const Session *session) const
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(m_timeout.count()));
    request.setRawHeader("Content-Type", "application/json;charset=UTF-8");
    request.setRawHeader("Accept", "application/json");
    request.setRawHeader("product", "llu.ios");
    request.setRawHeader("version", m_appVersion.toString().toLatin1());
    request.setRawHeader("User-Agent",
                         "Mozilla/5.0 (iPhone; CPU OS 17_4.1 like Mac OS X) AppleWebKit/605.1.15 "
                         "(KHTML, like Gecko) Version/17.4.1 Mobile/15E148 Safari/604.1");
    if (session) {
        request.setRawHeader("Authorization", "Bearer " + session->token.toUtf8());
        request.setRawHeader("account-id", session->accountIdHash.toUtf8());
    }
    if (!m_endpoints.extraCaCertificates.isEmpty()) {
        // Setting CAs on a request replaces the system's, so hand over both.
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setCaCertificates(tls.caCertificates() + m_endpoints.extraCaCertificates);
        request.setSslConfiguration(tls);
    }
    return request;
}

QCoro::Task<QByteArray> LibreLinkUpClient::transfer(QNetworkRequest request, QByteArray body,
                                                    CancellationToken cancel) const
{
    const QUrl url = request.url();
    const auto asked = std::chrono::steady_clock::now();
    const RequestGate::Permit turn = co_await m_gate.enter(m_timeout, cancel);
    // Waiting for the turn counts against the time-out, and a request whose time is up stays unsent.
    const auto left = m_timeout - std::chrono::duration_cast<std::chrono::milliseconds>(
                                      std::chrono::steady_clock::now() - asked);
    if (left <= std::chrono::milliseconds(0))
        throw TransportError::timedOut();
    request.setTransferTimeout(static_cast<int>(left.count()));
    const TransferOutcome outcome =
        co_await guardedTransfer(m_network, std::move(request), std::move(body), maximumResponseSize, cancel);

    switch (outcome.error) {
    case QNetworkReply::NoError:
        break;
    case QNetworkReply::OperationCanceledError:
        if (!outcome.tooLarge)
            throw TransportError::timedOut();
        break;
    default:
        if (!isHttpStatusError(outcome.error) || !outcome.httpStatus)
            throw TransportError::fromReply(outcome.error, outcome.tlsProblems.join(u"; "_s));
        break;
    }

    // The status decides first, also for an answer whose body was too large to read.
    if (!outcome.httpStatus) {
        if (outcome.tooLarge)
            throw DecodingError::tooLarge(u"response"_s, u"16 MiB"_s);
        throw ClientError(ClientError::Kind::malformedResponse);
    }
    const int status = *outcome.httpStatus;
    if (status == 429 || status == 430)
        throw ClientError::rateLimited(outcome.retryAfter);
    if (status == 401)
        throw ClientError(ClientError::Kind::notAuthenticated);
    if (status < 200 || status > 299) {
        qCCritical(lcLibreLinkUpClient, "HTTP %d from %s", status, qUtf8Printable(hostForLog(url)));
        throw ClientError::httpError(status);
    }

    if (outcome.tooLarge)
        throw DecodingError::tooLarge(u"response"_s, u"16 MiB"_s);
    co_return outcome.body;
}

template <typename T>
QCoro::Task<T> LibreLinkUpClient::send(QNetworkRequest request, QByteArray body,
                                       CancellationToken cancel) const
{
    // What makeRequest() just put in the header; a refusal may change it before the answer comes.
    const AppVersion sent = m_appVersion;
    const QByteArray bytes = co_await transfer(std::move(request), std::move(body), cancel);
    LLUResponse<T> response = decodeLLUResponse<T>(bytes);
    switch (response.status) {
    case 0:
        if (!response.data)
            throw ClientError(ClientError::Kind::malformedResponse);
        co_return std::move(*response.data);
    case 2:
        throw ClientError(ClientError::Kind::invalidCredentials);
    case 4:
        throw ClientError(ClientError::Kind::accountActionRequired);
    case 429:
    case 430:
        throw ClientError::rateLimited(std::nullopt);
    case appVersionRefusedStatus: {
        const auto minimum =
            response.minimumVersion ? AppVersion::parse(*response.minimumVersion) : std::nullopt;
        qCCritical(lcLibreLinkUpClient, "API status %lld", static_cast<long long>(response.status));
        throw ClientError::appVersionRefused(minimum, sent);
    }
    default:
        qCCritical(lcLibreLinkUpClient, "API status %lld", static_cast<long long>(response.status));
        throw ClientError::unexpectedStatus(response.status,
                                            response.error ? response.error->message : std::nullopt);
    }
}

QCoro::Task<LibreLinkUpClient::Session> LibreLinkUpClient::login(QString email, QString password,
                                                                 CancellationToken cancel) const
{
    const QByteArray body = encodeLoginBody({email, password});
    QUrl base = m_endpoints.defaultBaseUrl;
    for (int redirectsLeft = 2;; --redirectsLeft) {
        QNetworkRequest request = makeRequest(resolve(base, u"llu/auth/login"_s), nullptr);
        const LLULoginData data = co_await send<LLULoginData>(std::move(request), body, cancel);

        if (data.redirect.value_or(false) && data.region) {
            const auto regionUrl = m_endpoints.regionBaseUrls.constFind(data.region->toLower());
            if (redirectsLeft < 1 || regionUrl == m_endpoints.regionBaseUrls.constEnd())
                throw ClientError::unknownRegion(*data.region);
            qCInfo(lcLibreLinkUpClient, "Login redirected to region %s", qUtf8Printable(*data.region));
            base = *regionUrl;
            continue;
        }
        if (!data.authTicket || !data.user)
            throw ClientError(ClientError::Kind::malformedResponse);
        qCInfo(lcLibreLinkUpClient, "Logged in to LibreLinkUp via %s", qUtf8Printable(hostForLog(base)));
        co_return Session{data.authTicket->token, accountIdHash(data.user->id), base};
    }
}

QCoro::Task<QList<LLUConnection>> LibreLinkUpClient::fetchConnections(Session session,
                                                                      CancellationToken cancel) const
{
    QNetworkRequest request = makeRequest(resolve(session.baseUrl, u"llu/connections"_s), &session);
    co_return co_await send<QList<LLUConnection>>(std::move(request), QByteArray(), cancel);
}

QCoro::Task<LLUGraphData> LibreLinkUpClient::fetchGraph(Session session, QString patientId,
                                                        CancellationToken cancel) const
{
    QNetworkRequest request =
        makeRequest(resolve(session.baseUrl, u"llu/connections/"_s + patientId + u"/graph"_s), &session);
    co_return co_await send<LLUGraphData>(std::move(request), QByteArray(), cancel);
}

} // namespace glinta
