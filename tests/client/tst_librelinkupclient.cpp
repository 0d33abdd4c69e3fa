#include "LogCapture.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "TestSupport.h"
#include "client/ClientError.h"
#include "client/LibreLinkUpClient.h"
#include "client/ServiceAddressFile.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using glinta::sim::SimAccount;
using glinta::sim::SimulatedService;
using Session = LibreLinkUpClient::Session;
using Headers = QList<QPair<QByteArray, QByteArray>>;
using F = Fault::Kind;

Q_DECLARE_METATYPE(glinta::sim::Fault)

namespace {

const SimAccount demo = SimulatedService::demoAccount();
const QString login = u"login"_s, graph = u"graph"_s, patient = u"p-0001"_s;
const QString timedOut = u"The request timed out."_s;

Fault fault(const QString &path, F kind, int httpStatus = 0, const QByteArray &body = {},
            const QString &region = {}, int count = -1)
{
    return {path, kind, httpStatus, 0, {}, region, {}, count, body};
}

QString text(const std::exception_ptr &error)
{
    return QString::fromUtf8(describe(error));
}

// The client's own headers (not Qt's HTTP stack's), credentials replaced so a failure never prints them.
Headers ownHeaders(const Headers &received, const Session &session)
{
    static const QList<QByteArray> transport{"host", "content-length", "accept-encoding", "accept-language"};
    Headers own;
    for (auto [name, value] : received) {
        if (transport.contains(name.toLower()) || (name.toLower() == "connection" && value == "Keep-Alive"))
            continue;
        value.replace(session.token.toUtf8(), "<token>")
            .replace(session.accountIdHash.toUtf8(), "<account id>");
        own.append({name, value});
    }
    return own;
}

struct Rig
{
    explicit Rig(const SimAccount &account = demo, std::chrono::milliseconds timeout = 1s)
        : client(&network, service.endpoints(), timeout)
    {
        service.addAccount(account);
    }
    Outcome<Session> signIn(const CancellationToken &cancel = {})
    {
        return run(client.login(demo.email, demo.password, cancel));
    }

    SimulatedService service;
    quint16 port = service.start();
    QNetworkAccessManager network;
    LibreLinkUpClient client;
};

} // namespace

class TestLibreLinkUpClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void failures_data()
    {
        // log: lines joined by '\n'
        columns<Fault, QString, QString>("fault", "description", "log");

        const auto row = [](const char *name, const Fault &fault, const QString &description,
                            const QString &log = {}) { QTest::newRow(name) << fault << description << log; };
        const auto http = [](const QString &path, int status) { return fault(path, F::httpStatus, status); };
        const auto raw = [](const QString &path, const QByteArray &body) {
            return fault(path, F::rawBody, 0, body);
        };
        const QString unexpected = u"LibreLinkUp returned an unexpected response."_s;
        const QString limited =
            u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
        const QString unsupported = u"LibreLinkUp redirected to an unsupported region (%1)."_s;
        const QString status9 = u"critical: API status 9"_s, status920 = u"critical: API status 920"_s;

        row("401", http(graph, 401), u"Not signed in to LibreLinkUp."_s);
        row("429", http(graph, 429), limited);
        row("430", http(login, 430), limited);
        row("status 429", raw(graph, R"({"status":429})"), limited);
        row("unsupported region", fault(login, F::redirect, 0, {}, u"xx"_s, 1), unsupported.arg(u"xx"_s));
        // Two redirects at most: the third is refused, whatever its region.
        row("third redirect", fault(login, F::redirect, 0, {}, u"fr"_s, 3), unsupported.arg(u"fr"_s),
            u"info: Login redirected to region fr\ninfo: Login redirected to region fr"_s);
        row("status 2", raw(login, R"({"status":2})"), u"LibreLinkUp rejected the email or password."_s);
        row("status 4", raw(login, R"({"status":4})"),
            u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, then try again."_s);
        // One code from each of Qt's two ranges of HTTP errors.
        row("403", http(graph, 403), u"LibreLinkUp request failed (HTTP 403)."_s,
            u"critical: HTTP 403 from 127.0.0.1"_s);
        row("500", http(login, 500), u"LibreLinkUp request failed (HTTP 500)."_s,
            u"critical: HTTP 500 from 127.0.0.1"_s);
        row("status 9 with message", raw(graph, R"({"status":9,"error":{"message":"Try later"}})"),
            u"LibreLinkUp returned status 9: Try later."_s, status9);
        row("status 9 alone", raw(login, R"({"status":9})"), u"LibreLinkUp returned status 9."_s, status9);
        // The service raising the app version it accepts; only a plain dotted version reaches a header.
        row("920 asks for a newer version",
            raw(graph, R"({"status":920,"data":{"minimumVersion":"4.17.0"}})"),
            u"LibreLinkUp asks for app version 4.17.0 or newer. Glinta will send it from the next try."_s,
            status920);
        row("920 asks for the version sent",
            raw(login, R"({"status":920,"data":{"minimumVersion":"4.16"},"error":{"message":"x"}})"),
            u"LibreLinkUp asks for app version 4.16 or newer. Glinta tried it, but the service still "
            u"refuses; an update of Glinta may be needed."_s,
            status920);
        const QString noVersion = u"LibreLinkUp no longer accepts the app version Glinta sends (4.16.0); an "
                                  u"update of Glinta may be needed."_s;
        row("920 without data", raw(login, R"({"status":920})"), noVersion, status920);
        row("920 with a header in its version",
            raw(graph, "{\"status\":920,\"data\":{\"minimumVersion\":\"4.17.0\\r\\nX: 1\"}}"), noVersion,
            status920);
        row("graph without data", raw(graph, R"({"status":0})"), unexpected);
        row("redirect without region", raw(login, R"({"status":0,"data":{"redirect":true}})"), unexpected);
        row("ticket without user",
            raw(login, R"({"status":0,"data":{"authTicket":{"token":"t","expires":1}}})"), unexpected);
        // What the decoder says passes through unchanged; its texts are tst_llurecords' rows.
        row("login not JSON", fault(login, F::notJson),
            u"The response is not valid JSON (illegal value at byte 1)."_s);
        row("graph over 16 MiB", fault(graph, F::hugeBody), u"The response is larger than 16 MiB."_s);
        // Its status speaks first: a 401 is still the cue to sign in again.
        row("401 over 16 MiB", fault(graph, F::hugeBody, 401), u"Not signed in to LibreLinkUp."_s);
        row("no reply", fault(login, F::neverReply), timedOut);
        row("closed mid-body", fault(graph, F::closeMidBody), u"The connection to the server was lost."_s);
    }

    void failures()
    {
        const auto [fault, log] = fetch<Fault, QString>("fault", "log");

        // A second for the silent service to wait out; time enough for a 16 MiB body under the sanitizers.
        Rig rig(demo, fault.kind == F::neverReply ? 1s : 5s);
        const auto session = fault.path == login ? std::nullopt : rig.signIn().value;
        rig.service.addFault(fault);
        const LogCapture capture;
        QElapsedTimer clock;
        clock.start();
        const auto failure =
            session ? run(rig.client.fetchGraph(*session, patient)).error : rig.signIn().error;
        const qint64 elapsed = clock.elapsed();

        // Each text belongs to one kind of one error class, so the text pins both down.
        QTEST(text(failure), "description");
        QCOMPARE(capture.lines(u"LibreLinkUpClient"_s), log.isEmpty() ? QStringList() : log.split(u'\n'));
        QCOMPARE(rig.service.requestCount(fault.path), std::max(fault.count, 1));
        // Only the silent service waits out its time-out.
        QVERIFY2(elapsed >= (fault.kind == F::neverReply ? 900 : 0) && elapsed < 3000,
                 QByteArray::number(elapsed));
    }

    // A service that never answers: each request gives up at its time-out and closes its connection, one that
    // timed out waiting its turn never goes out; then the next gets through at once, and none is sent late.
    void silentService()
    {
        Rig rig(demo, 300ms);
        const auto [session, error] = rig.signIn();
        QVERIFY2(session, describe(error));
        rig.service.addFault(fault(graph, F::holdConnections));
        for (int round = 0; round < 7; ++round) {
            auto first = settled(rig.client.fetchGraph(*session, patient));
            auto second = settled(rig.client.fetchGraph(*session, patient));
            for (auto *task : {&first, &second})
                QCOMPARE(text(QCoro::waitFor(std::move(*task)).error), timedOut);
        }
        QCOMPARE(rig.service.requestCount(graph), 7);
        QTRY_VERIFY2(rig.service.openConnections() <= 1, QByteArray::number(rig.service.openConnections()));

        rig.service.clearFaults();
        const auto recovered = run(rig.client.fetchGraph(*session, patient));
        QVERIFY2(recovered.value, describe(recovered.error));
        QVERIFY(!QTest::qWaitFor([&] { return rig.service.requestCount(graph) > 8; }, 300));
        QVERIFY(rig.service.peakOpenConnections() <= 2);
    }

    void cancellation_data()
    {
        QTest::addColumn<int>("requests"); // made before the cancel
        QTest::newRow("before the call") << 0;
        QTest::newRow("while the reply is awaited") << 1;
    }

    void cancellation()
    {
        QFETCH(int, requests);

        Rig rig;
        rig.service.addFault(fault(login, F::neverReply));
        const CancellationToken cancel;
        QElapsedTimer sinceCancel;
        // Once the request has surely reached the service, well before the time-out.
        const auto cancelOnce = [&] {
            if (rig.service.requestCount(login) >= requests && !cancel.isCancelled()) {
                sinceCancel.start();
                cancel.cancel();
            }
        };
        QTimer watch;
        QObject::connect(&watch, &QTimer::timeout, cancelOnce);
        requests == 0 ? cancelOnce() : watch.start(5ms);

        const LogCapture capture;
        const auto failure = rig.signIn(cancel).error;
        QCOMPARE(text(failure), CancelledError().description());
        QVERIFY2(sinceCancel.elapsed() < 500, QByteArray::number(sinceCancel.elapsed()));
        QCOMPARE(rig.service.requestCount(login), requests);
        QCOMPARE(rig.service.connectionCount(), requests);
        QCOMPARE(capture.lines(u"LibreLinkUpClient"_s), QStringList());
    }

    // A redirect to another-case region, a patient id a URL path cannot hold, request headers, no secrets.
    void fullSession()
    {
        const QString patientId = u"Ann #1?ä %41"_s;
        SimAccount account = demo;
        account.connections = {{patientId, u"Ann"_s, u"Lee"_s}};
        Rig rig(account);
        rig.service.addFault(fault(login, F::redirect, 0, {}, u"EU"_s, 1));
        const LogCapture capture;
        const auto signedIn = rig.signIn();
        QVERIFY2(signedIn.value, describe(signedIn.error));
        const Session session = *signedIn.value;
        QCOMPARE(session.baseUrl, rig.service.regionBaseUrl(u"eu"_s));
        // SHA-256 of the user id.
        QVERIFY(session.accountIdHash ==
                u"41788214c1500f29e96104aa9a7969ed8279f45956a675cc596f340d8dbaf726"_s);

        const auto list = run(rig.client.fetchConnections(session));
        QVERIFY2(list.value, describe(list.error));
        QCOMPARE(list.value->value(0).patientId, patientId);
        const auto fetched = run(rig.client.fetchGraph(session, patientId));
        QVERIFY2(fetched.value, describe(fetched.error));
        QCOMPARE(fetched.value->connection->patientId, patientId);

        const Headers anonymous{
            {"Content-Type", "application/json;charset=UTF-8"},
            {"Accept", "application/json"},
            {"product", "llu.ios"},
            {"version", "4.16.0"},
            {"User-Agent", "Mozilla/5.0 (iPhone; CPU OS 17_4.1 like Mac OS X) AppleWebKit/605.1.15 (KHTML, "
                           "like Gecko) Version/17.4.1 Mobile/15E148 Safari/604.1"},
        };
        const Headers withSession =
            anonymous + Headers{{"Authorization", "Bearer <token>"}, {"account-id", "<account id>"}};
        QCOMPARE(ownHeaders(rig.service.lastHeaders(login), session), anonymous);
        QCOMPARE(ownHeaders(rig.service.lastHeaders(u"connections"_s), session), withSession);
        QCOMPARE(ownHeaders(rig.service.lastHeaders(graph), session), withSession);

        for (const LogCapture::Entry &entry : capture.entries()) {
            for (const QString &secret :
                 {account.password, session.token, session.accountIdHash, account.userId})
                QVERIFY2(!entry.message.contains(secret),
                         qPrintable(u"a secret in a message of "_s + entry.category));
        }
    }

#ifdef GLINTA_DEV_SERVICE_ADDRESS
    // HTTPS with a certificate made for this run, trusted only through the development address file.
    void tlsTrustedOnlyThroughAddressFile()
    {
        const QTemporaryDir dir;
        if (QStandardPaths::findExecutable(u"openssl"_s).isEmpty())
            QSKIP("openssl is not installed, so no test certificate can be made");
        QProcess openssl;
        openssl.setWorkingDirectory(dir.path());
        openssl.start(u"openssl"_s,
                      u"req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext "
                      u"subjectAltName=IP:127.0.0.1 -keyout server.key -out server.pem"_s.split(u' '));
        QVERIFY2(openssl.waitForFinished(30000) && openssl.exitCode() == 0, openssl.readAllStandardError());
        QFile key(dir.filePath(u"server.key"_s));
        QVERIFY(key.open(QIODevice::ReadOnly));
        SimulatedService service;
        service.useTls(QSslCertificate::fromPath(dir.filePath(u"server.pem"_s)).value(0),
                       QSslKey(&key, QSsl::Rsa, QSsl::Pem));
        service.addAccount(demo);
        QVERIFY(service.start() != 0);

        // The system's authorities only: the reason names the certificate problem.
        QNetworkAccessManager network;
        auto outcome =
            run(LibreLinkUpClient(&network, service.endpoints(), 5s).login(demo.email, demo.password));
        const QString description = text(outcome.error);
        QVERIFY2(description.startsWith(u"A secure connection to the server could not be made: "_s) &&
                     description.contains(u"certificate"_s, Qt::CaseInsensitive),
                 qPrintable(description));
        QCOMPARE(service.requestCount(login), 0);

        QFile file(dir.filePath(serviceAddressFileName));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\"defaultBaseURL\":\"" + service.baseUrl().toEncoded() + "\",\"regions\":{\"EU\":\"" +
                   service.regionBaseUrl(u"eu"_s).toEncoded() + "\"},\"caFile\":\"" +
                   dir.filePath(u"server.pem"_s).toUtf8() + "\"}");
        file.close();
        // A manager of its own: on the first, the host keeps failing even with the authority added.
        QNetworkAccessManager trusting;
        const LibreLinkUpClient client(&trusting, readServiceAddressFile(file.fileName()), 5s);
        outcome = run(client.login(demo.email, demo.password));
        QVERIFY2(outcome.value, describe(outcome.error));
        QCOMPARE(outcome.value->baseUrl, service.regionBaseUrl(u"eu"_s));
    }
#endif
};

QTEST_GUILESS_MAIN(TestLibreLinkUpClient)
#include "tst_librelinkupclient.moc"
