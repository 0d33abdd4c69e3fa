#include "client/TransportError.h"

using namespace Qt::StringLiterals;

namespace glinta {

TransportError::TransportError(Kind kind, QNetworkReply::NetworkError networkError, QString tlsReason)
    : m_kind(kind), m_networkError(networkError), m_tlsReason(std::move(tlsReason))
{}

TransportError TransportError::timedOut()
{
    return TransportError(Kind::timedOut, QNetworkReply::TimeoutError, {});
}

TransportError TransportError::fromReply(QNetworkReply::NetworkError error, const QString &tlsReason)
{
    switch (error) {
    case QNetworkReply::TimeoutError:
        return timedOut();
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::BackgroundRequestNotAllowedError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
    case QNetworkReply::ProxyTimeoutError:
    case QNetworkReply::ProxyAuthenticationRequiredError:
    case QNetworkReply::ProxyConnectionClosedError:
        return TransportError(Kind::cannotConnect, error, {});
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::UnknownNetworkError:
    case QNetworkReply::ProtocolFailure:
        return TransportError(Kind::connectionLost, error, {});
    case QNetworkReply::SslHandshakeFailedError:
    case QNetworkReply::InsecureRedirectError:
        return TransportError(Kind::insecure, error, tlsReason);
    default:
        return TransportError(Kind::other, error, {});
    }
}

QString TransportError::description() const
{
    switch (m_kind) {
    case Kind::timedOut:
        return u"The request timed out."_s;
    case Kind::cannotConnect:
        return u"Could not connect to the server."_s;
    case Kind::connectionLost:
        return u"The connection to the server was lost."_s;
    case Kind::insecure:
        if (m_tlsReason.isEmpty())
            return u"A secure connection to the server could not be made."_s;
        return u"A secure connection to the server could not be made: "_s + m_tlsReason + u'.';
    case Kind::other:
        return u"The network request failed (error "_s + QString::number(int(m_networkError)) + u")."_s;
    }
    Q_UNREACHABLE();
    return {};
}

} // namespace glinta
