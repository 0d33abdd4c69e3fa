#pragma once

#include "Error.h"

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
    };

    static ClientError unknownRegion(QString region);
    static ClientError httpError(std::int64_t httpStatus);
    static ClientError unexpectedStatus(std::int64_t status, std::optional<QString> message);
    // The payload-free cases.
    explicit ClientError(Kind kind);

    Kind kind() const { return m_kind; }
    QString region() const { return m_text.value_or(QString()); }
    std::int64_t code() const { return m_code; }
    std::optional<QString> message() const { return m_text; }
    QString description() const override;

private:
    ClientError(Kind kind, std::int64_t code, std::optional<QString> text);

    Kind m_kind;
    std::int64_t m_code = 0;
    std::optional<QString> m_text;
};

} // namespace glinta
