#pragma once

#include "support/Error.h"

#include <QNetworkReply>

namespace glinta {

// The request never got an HTTP answer: no network, a time-out, a TLS failure, a dropped connection.
class TransportError : public Error
{
public:
    enum class Kind
    {
        timedOut,
        cannotConnect,
        connectionLost,
        insecure,
        other,
    };

    // `tlsReason` is the certificate or handshake problem, only for TLS failures.
    static TransportError fromReply(QNetworkReply::NetworkError error, const QString &tlsReason = {});
    static TransportError timedOut();

    Kind kind() const { return m_kind; }
    QNetworkReply::NetworkError networkError() const { return m_networkError; }
    QString description() const override;

private:
    TransportError(Kind kind, QNetworkReply::NetworkError networkError, QString tlsReason);

    Kind m_kind;
    QNetworkReply::NetworkError m_networkError;
    QString m_tlsReason;
};

} // namespace glinta
