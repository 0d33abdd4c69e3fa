#pragma once

#include "client/AppVersion.h"
#include "support/Error.h"

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace glinta {

// What the LibreLinkUp service said no with, each with the text the user sees.
class ClientError : public Error
{
public:
    enum class Kind
    {
        unknownRegion,
        httpError,
        unexpectedStatus,
        invalidCredentials,
        accountActionRequired,
        rateLimited,
        notAuthenticated,
        noConnections,
        malformedResponse,
        // The service no longer accepts the app version sent (envelope status 920).
        appVersionRefused,
    };

    static ClientError unknownRegion(QString region);
    static ClientError httpError(std::int64_t httpStatus);
    static ClientError unexpectedStatus(std::int64_t status, std::optional<QString> message);
    // `minimum` is what the service asked for, when it named a usable version; `sent` what it refused.
    static ClientError appVersionRefused(std::optional<AppVersion> minimum, AppVersion sent);
    // `retryAfter` is the answer's "Retry-After" header as sent, when it had one.
    static ClientError rateLimited(std::optional<QByteArray> retryAfter);
    // The payload-free cases.
    explicit ClientError(Kind kind);

    Kind kind() const { return m_kind; }
    QString region() const { return m_text.value_or(QString()); }
    std::int64_t code() const { return m_code; }
    std::optional<QString> message() const { return m_text; }
    std::optional<AppVersion> minimumVersion() const { return m_minimumVersion; }
    std::optional<QByteArray> retryAfter() const { return m_retryAfter; }
    QString description() const override;

private:
    ClientError(Kind kind, std::int64_t code, std::optional<QString> text);

    Kind m_kind;
    std::int64_t m_code = 0;
    std::optional<QString> m_text;
    std::optional<AppVersion> m_minimumVersion;
    std::optional<AppVersion> m_sentVersion;
    std::optional<QByteArray> m_retryAfter;
};

} // namespace glinta
