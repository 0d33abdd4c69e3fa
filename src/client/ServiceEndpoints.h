#pragma once

#include <QHash>
#include <QList>
#include <QSslCertificate>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace glinta {

// Where the LibreLinkUp service lives. Injected into the client so that tests and the demo can point it
// at a simulated service on loopback without touching the production code path.
struct ServiceEndpoints
{
    // Where every sign-in starts.
    QUrl defaultBaseUrl;
    // The base URL of each region's API, keyed by lower-case region code.
    QHash<QString, QUrl> regionBaseUrls;
    // Trusted in addition to the system's certificate authorities.
    QList<QSslCertificate> extraCaCertificates;

    static const ServiceEndpoints &production();
    // The thirteen region codes, in the service's order.
    static const QStringList &regionCodes();
};

} // namespace glinta
