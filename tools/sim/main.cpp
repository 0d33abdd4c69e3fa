// glinta-sim: a simulated LibreLinkUp service on 127.0.0.1 for tests, the demo and benchmarks.
#include "SimulatedService.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QSslKey>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace glinta::sim;

namespace {

const char *const controlHelp = R"(
Control interface (same port, JSON bodies, every answer is the current stats):
  POST /_sim/fault   {"kind": K, "path": "login"|"connections"|"graph" (default: all),
                      "count": N (default: until cleared), "httpStatus": N, "apiStatus": N,
                      "message": "...", "region": "xx", "delayMs": N}
       K is one of apiStatus, httpStatus, redirect, notJson, truncatedBody, wrongType,
       emptyConnections, badTimestamps, neverReply, closeMidBody, hugeBody, delay.
  POST /_sim/clear   drop every fault
  POST /_sim/clock   {"set": "2024-01-15T10:00:00Z"} and/or {"advanceSeconds": N}
  POST /_sim/reset   drop faults, zero the counters, put the clock back to real time
  GET  /_sim/stats   {"now": ..., "connections": N, "requests": {"login": N, ...}}
Regions live under their code: /eu/llu/auth/login; the global host is the root.
)";

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"glinta-sim"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"A simulated LibreLinkUp service on 127.0.0.1."_s +
                                     QString::fromLatin1(controlHelp));
    parser.addHelpOption();
    const QCommandLineOption portOption(u"port"_s, u"Port to listen on (default: any free port)."_s,
                                        u"port"_s, u"0"_s);
    const QCommandLineOption accountOption(
        u"account"_s, u"An account as email:password:region (repeatable; default: the demo account)."_s,
        u"account"_s);
    const QCommandLineOption certOption(u"tls-cert"_s, u"Serve HTTPS with this PEM certificate."_s,
                                        u"file"_s);
    const QCommandLineOption keyOption(u"tls-key"_s, u"The PEM private key of --tls-cert."_s, u"file"_s);
    parser.addOptions({portOption, accountOption, certOption, keyOption});
    parser.process(app);

    SimulatedService service;

    const QStringList accounts = parser.values(accountOption);
    if (accounts.isEmpty())
        service.addAccount(SimulatedService::demoAccount());
    for (const QString &entry : accounts) {
        const QStringList parts = entry.split(u':');
        if (parts.size() != 3) {
            std::fprintf(stderr, "glinta-sim: --account takes email:password:region\n");
            return 2;
        }
        SimAccount account = SimulatedService::demoAccount();
        account.email = parts[0];
        account.password = parts[1];
        account.region = parts[2].toLower();
        service.addAccount(account);
    }

    if (parser.isSet(certOption) != parser.isSet(keyOption)) {
        std::fprintf(stderr, "glinta-sim: --tls-cert and --tls-key go together\n");
        return 2;
    }
    if (parser.isSet(certOption)) {
        QFile certFile(parser.value(certOption));
        QFile keyFile(parser.value(keyOption));
        if (!certFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "glinta-sim: cannot read the certificate or key\n");
            return 2;
        }
        const QSslCertificate certificate(&certFile, QSsl::Pem);
        const QSslKey key(&keyFile, QSsl::Rsa, QSsl::Pem);
        if (certificate.isNull() || key.isNull()) {
            std::fprintf(stderr, "glinta-sim: the certificate or key is not valid PEM\n");
            return 2;
        }
        service.useTls(certificate, key);
    }

    bool portOk = false;
    const uint port = parser.value(portOption).toUInt(&portOk);
    if (!portOk || port > 65535) {
        std::fprintf(stderr, "glinta-sim: --port takes a number from 0 to 65535\n");
        return 2;
    }
    if (service.start(static_cast<quint16>(port)) == 0) {
        std::fprintf(stderr, "glinta-sim: cannot listen on 127.0.0.1:%u\n", port);
        return 1;
    }
    std::printf("glinta-sim listening on %s\n", qPrintable(service.baseUrl().toString()));
    std::fflush(stdout);
    return app.exec();
}
