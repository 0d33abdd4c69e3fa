// glinta-sim: a simulated LibreLinkUp service on 127.0.0.1 for tests, the demo and benchmarks.
#include "SimulatedService.h"
#include "persistence/KeychainStore.h"
#include "snapshot/GlucoseSnapshot.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSslKey>
#include <QTimeZone>

#include <qcoro/qcorotask.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace glinta::sim;

namespace {

const char *const controlHelp = R"(
Control interface (same port, JSON bodies, every answer is the current stats):
  POST /_sim/fault   {"kind": K, "path": "login"|"connections"|"graph" (default: all),
                      "count": N (default: until cleared), "httpStatus": N, "apiStatus": N,
                      "message": "...", "region": "xx", "delayMs": N, "body": "...",
                      "version": "4.16.0", "omitVersion": true, "retryAfter": "120"}
       K is one of apiStatus, httpStatus, redirect, notJson, truncatedBody, wrongType,
       emptyConnections, badTimestamps, neverReply, closeMidBody, hugeBody, delay, rawBody,
       minimumVersion (status 920 to an app whose "version" header is below "version";
       "omitVersion" sends a 920 that names no version, to any app),
       rateLimit (httpStatus, 429 by default, with "Retry-After: <retryAfter>" when given),
       holdConnections (never answered; the connection stays open until the client closes it).
  POST /_sim/clear   drop every fault
  POST /_sim/clock   {"set": "2024-01-15T10:00:00Z"}, {"advanceSeconds": N},
                     {"phoneZone": "Europe/Berlin"}, or several of them
  POST /_sim/glucose {"to": N, "minutes": M (default 0), "from": N (default: the value now)}
                     from this minute on the value goes straight from "from" to "to" (mg/dL) over M
                     minutes, then stays at "to"; the trend arrows follow it
  POST /_sim/reset   drop faults and any /_sim/glucose ramp, zero the counters, put the clock back
                     to real time
  GET  /_sim/stats   {"now": ..., "phoneZone": ..., "connections": N (accepted),
                      "openConnections": N, "peakOpenConnections": N, "requests": {"login": N, ...},
                      "log": [{"at": ..., "path": ..., "version": ..., "status": N}, ...] (the last 200)}
Regions live under their code: /eu/llu/auth/login; the global host is the root.
)";

// The demo account's password in the keyring, under Glinta's own service, written and removed through the
// same store the program reads it with. Never throws: QCoro::waitFor would not return.
QCoro::Task<int> changeDemoPassword(bool save)
{
    const glinta::KeychainStore keychain;
    const SimAccount account = SimulatedService::demoAccount();
    try {
        if (save)
            co_await keychain.savePassword(account.password, account.email);
        else
            co_await keychain.deletePassword(account.email);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "glinta-sim: the keyring refused to %s the demo account's password: %s\n",
                     save ? "store" : "remove", error.what());
        co_return 1;
    }
    std::printf("glinta-sim: %s the keyring item of %s\n", save ? "stored" : "removed",
                qPrintable(account.email));
    co_return 0;
}

// Reads a widget snapshot file with the widget's own decoder.
int checkSnapshot(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "glinta-sim: cannot read %s: %s\n", qPrintable(path),
                     qPrintable(file.errorString()));
        return 1;
    }
    try {
        const glinta::GlucoseSnapshot snapshot =
            glinta::decodeSnapshot(file.read(glinta::maximumSnapshotFileSize + 1));
        std::printf("glinta-sim: %s decodes: %s, %lld readings of history, unit %s\n", qPrintable(path),
                    snapshot.latest
                        ? qPrintable(u"latest "_s + glinta::format(snapshot.unit, snapshot.latest->mgPerDl))
                        : "no latest reading",
                    static_cast<long long>(snapshot.history.size()),
                    qPrintable(glinta::rawValue(snapshot.unit)));
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "glinta-sim: %s does not decode: %s\n", qPrintable(path), error.what());
        return 1;
    }
}

// The development address file (service-address.json) that points a development build at this service.
bool writeAddressFile(const QString &path, const glinta::ServiceEndpoints &endpoints)
{
    QJsonObject regions;
    for (auto it = endpoints.regionBaseUrls.cbegin(); it != endpoints.regionBaseUrls.cend(); ++it)
        regions.insert(it.key(), it.value().toString());
    const QJsonObject address{{u"defaultBaseURL"_s, endpoints.defaultBaseUrl.toString()},
                              {u"regions"_s, regions}};
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(QJsonDocument(address).toJson()) >= 0 &&
           file.commit();
}

// Header text as sent, but never a terminal control sequence.
QString printable(const QByteArray &text)
{
    QString result = QString::fromUtf8(text);
    for (QChar &c : result) {
        if (!c.isPrint())
            c = u'?';
    }
    return result;
}

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
    const QCommandLineOption addressFileOption(
        u"address-file"_s,
        u"Once listening, write a service-address.json there that points a development build here."_s,
        u"file"_s);
    const QCommandLineOption savePasswordOption(
        u"save-demo-password"_s,
        u"Store the demo account's password in the desktop keyring, as Glinta reads it, and exit."_s);
    const QCommandLineOption forgetPasswordOption(u"forget-demo-password"_s,
                                                  u"Remove the demo account's keyring item and exit."_s);
    const QCommandLineOption checkSnapshotOption(
        u"check-snapshot"_s,
        u"Decode a widget snapshot file, say what it holds and exit (1: it does not decode)."_s, u"file"_s);
    const QCommandLineOption phoneZoneOption(
        u"phone-zone"_s,
        u"The sharer's phone's time zone, an IANA id such as Europe/Berlin (default: this machine's)."_s,
        u"zone"_s);
    const QCommandLineOption clockOffsetOption(
        u"clock-offset-seconds"_s,
        u"Run the phone's clock this many seconds ahead of real time (negative: behind)."_s, u"seconds"_s);
    const QCommandLineOption logRequestsOption(
        u"log-requests"_s,
        u"Print a line for each service request once it is answered: when it came, its path, the HTTP status "
        u"(0: not answered) and the app version it named."_s);
    const QCommandLineOption earlyLowOption(
        u"early-low"_s,
        u"Dip below 70 mg/dL from about two minutes after the start to about eighteen (60 at ten), then "
        u"come back up, so that a Low alert shows soon (the demo)."_s);
    parser.addOptions({portOption, accountOption, certOption, keyOption, addressFileOption,
                       savePasswordOption, forgetPasswordOption, checkSnapshotOption, phoneZoneOption,
                       clockOffsetOption, logRequestsOption, earlyLowOption});
    parser.process(app);

    if (parser.isSet(savePasswordOption) || parser.isSet(forgetPasswordOption)) {
        if (parser.isSet(savePasswordOption) && parser.isSet(forgetPasswordOption)) {
            std::fprintf(stderr,
                         "glinta-sim: --save-demo-password and --forget-demo-password exclude each other\n");
            return 2;
        }
        return QCoro::waitFor(changeDemoPassword(parser.isSet(savePasswordOption)));
    }
    if (parser.isSet(checkSnapshotOption))
        return checkSnapshot(parser.value(checkSnapshotOption));

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

    if (parser.isSet(phoneZoneOption)) {
        const QTimeZone zone(parser.value(phoneZoneOption).toUtf8());
        if (!zone.isValid()) {
            std::fprintf(stderr, "glinta-sim: --phone-zone: unknown time zone %s\n",
                         qPrintable(parser.value(phoneZoneOption)));
            return 2;
        }
        service.setPhoneTimeZone(zone);
    }
    if (parser.isSet(clockOffsetOption)) {
        bool offsetOk = false;
        const qint64 seconds = parser.value(clockOffsetOption).toLongLong(&offsetOk);
        constexpr qint64 century = 100LL * 366 * 24 * 60 * 60;
        if (!offsetOk || seconds < -century || seconds > century) {
            std::fprintf(stderr,
                         "glinta-sim: --clock-offset-seconds takes a whole number within a century\n");
            return 2;
        }
        service.advance(std::chrono::seconds(seconds));
    }
    if (parser.isSet(earlyLowOption))
        service.addEarlyLow(service.now());
    if (parser.isSet(logRequestsOption)) {
        // Never headers that identify the account or bodies: what a person needs to watch the polling.
        QObject::connect(&service, &SimulatedService::requestSettled, [](const RequestRecord &record) {
            std::printf("glinta-sim: %s %s %d (version %s)\n",
                        qPrintable(record.at.toLocalTime().toString(u"HH:mm:ss.zzz"_s)),
                        qPrintable(record.path), record.httpStatus, qPrintable(printable(record.version)));
            std::fflush(stdout);
        });
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
    if (parser.isSet(addressFileOption) &&
        !writeAddressFile(parser.value(addressFileOption), service.endpoints())) {
        std::fprintf(stderr, "glinta-sim: cannot write %s\n", qPrintable(parser.value(addressFileOption)));
        return 1;
    }
    std::printf("glinta-sim listening on %s\n", qPrintable(service.baseUrl().toString()));
    std::fflush(stdout);
    return app.exec();
}
