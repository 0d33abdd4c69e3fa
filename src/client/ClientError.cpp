#include "client/ClientError.h"

using namespace Qt::StringLiterals;

namespace glinta {

ClientError::ClientError(Kind kind) : ClientError(kind, 0, std::nullopt) {}

ClientError::ClientError(Kind kind, std::int64_t code, std::optional<QString> text)
    : m_kind(kind), m_code(code), m_text(std::move(text))
{}

ClientError ClientError::unknownRegion(QString region)
{
    return ClientError(Kind::unknownRegion, 0, std::move(region));
}

ClientError ClientError::httpError(std::int64_t httpStatus)
{
    return ClientError(Kind::httpError, httpStatus, std::nullopt);
}

ClientError ClientError::unexpectedStatus(std::int64_t status, std::optional<QString> message)
{
    return ClientError(Kind::unexpectedStatus, status, std::move(message));
}

ClientError ClientError::appVersionRefused(std::optional<AppVersion> minimum, AppVersion sent)
{
    ClientError error(Kind::appVersionRefused);
    error.m_minimumVersion = std::move(minimum);
    error.m_sentVersion = std::move(sent);
    return error;
}

ClientError ClientError::rateLimited(std::optional<QByteArray> retryAfter)
{
    ClientError error(Kind::rateLimited);
    error.m_retryAfter = std::move(retryAfter);
    return error;
}

QString ClientError::description() const
{
    switch (m_kind) {
    case Kind::unknownRegion:
        return u"LibreLinkUp redirected to an unsupported region ("_s + region() + u")."_s;
    case Kind::httpError:
        return u"LibreLinkUp request failed (HTTP "_s + QString::number(m_code) + u")."_s;
    case Kind::unexpectedStatus: {
        QString text = u"LibreLinkUp returned status "_s + QString::number(m_code);
        // An empty message still gets its colon.
        if (m_text)
            text += u": "_s + *m_text;
        return text + u'.';
    }
    case Kind::invalidCredentials:
        return u"LibreLinkUp rejected the email or password."_s;
    case Kind::accountActionRequired:
        return u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, then try again."_s;
    case Kind::rateLimited:
        return u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
    case Kind::notAuthenticated:
        return u"Not signed in to LibreLinkUp."_s;
    case Kind::noConnections:
        return u"No one is sharing data with this LibreLinkUp account. In the LibreLink app choose Share, "
               u"connect LibreLinkUp, then accept the invitation in the LibreLinkUp app."_s;
    case Kind::malformedResponse:
        return u"LibreLinkUp returned an unexpected response."_s;
    case Kind::appVersionRefused: {
        if (!m_minimumVersion) {
            return u"LibreLinkUp no longer accepts the app version Glinta sends ("_s +
                   m_sentVersion->toString() + u"); an update of Glinta may be needed."_s;
        }
        const QString asked =
            u"LibreLinkUp asks for app version "_s + m_minimumVersion->toString() + u" or newer."_s;
        // Only a version that was sent and still refused says an update is needed.
        if (*m_minimumVersion > *m_sentVersion)
            return asked + u" Glinta will send it from the next try."_s;
        return asked +
               u" Glinta tried it, but the service still refuses; an update of Glinta may be needed."_s;
    }
    }
    Q_UNREACHABLE();
    return {};
}

} // namespace glinta
