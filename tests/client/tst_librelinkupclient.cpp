#include "ClientError.h"
#include "DecodingError.h"
#include "LibreLinkUpClient.h"
#include "LogCapture.h"
#include "ServiceMapping.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "TransportError.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QTcpServer>
#include <QTest>
#include <QTimer>

#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using glinta::sim::SimAccount;
using glinta::sim::SimulatedService;
using Session = LibreLinkUpClient::Session;
using Headers = QList<QPair<QByteArray, QByteArray>>;

Q_DECLARE_METATYPE(glinta::sim::Fault)
Q_DECLARE_METATYPE(glinta::ClientError::Kind)
Q_DECLARE_METATYPE(glinta::DecodingError::Kind)
Q_DECLARE_METATYPE(glinta::TransportError::Kind)

namespace {

const SimAccount demo = SimulatedService::demoAccount();
const QString abcHash = u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s;
const QString clientCategory = u"com.nordvik.glinta.LibreLinkUpClient"_s;

// The client's own log lines, with their level, in order.
QStringList clientLog(const LogCapture &capture)
{
    QStringList lines;
    for (const LogCapture::Entry &entry : capture.inCategory(clientCategory)) {
        const char *level = entry.type == QtInfoMsg       ? "info: "
                            : entry.type == QtCriticalMsg ? "error: "
                                                          : "other: ";
        lines.append(QLatin1StringView(level) + entry.message);
    }
    return lines;
}

// The headers the client chose, without those Qt's HTTP stack adds on its own, and with stand-ins for
// the credentials so that a failed comparison never prints them.
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

Fault fault(const QString &path, Fault::Kind kind)
{
    Fault made;
    made.path = path;
    made.kind = kind;
    return made;
}

Fault httpFault(const QString &path, int status)
{
    Fault made = fault(path, Fault::Kind::httpStatus);
    made.httpStatus = status;
    return made;
}

Fault apiFault(const QString &path, qint64 status, std::optional<QString> message = std::nullopt)
{
    Fault made = fault(path, Fault::Kind::apiStatus);
    made.apiStatus = status;
    made.message = std::move(message);
    return made;
}

Fault rawFault(const QString &path, const QByteArray &body)
{
    Fault made = fault(path, Fault::Kind::rawBody);
    made.body = body;
    return made;
}

// A simulated service and a client pointed at it, with the short time-out every test uses.
struct Rig
{
    explicit Rig(const QList<SimAccount> &accounts = {demo})
    {
        for (const SimAccount &account : accounts)
            service.addAccount(account);
    }

    std::optional<Session> signIn(const SimAccount &account = demo)
    {
        return run(client.login(account.email, account.password)).value;
    }

    SimulatedService service;
    quint16 port = service.start();
    QNetworkAccessManager network;
    LibreLinkUpClient client{&network, service.endpoints(), 1s};
};

} // namespace

class TestLibreLinkUpClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void headers_data();
    void headers();
    void redirects_data();
    void redirects();
    void serviceErrors_data();
    void serviceErrors();
    void decodingFailures_data();
    void decodingFailures();
    void transportFailures_data();
    void transportFailures();
    void cancellation_data();
    void cancellation();
    void fullSession_data();
    void fullSession();
    void emptyConnectionList();
    void reusesConnection();
};

void TestLibreLinkUpClient::headers_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<bool>("withSession");

    QTest::newRow("login") << u"login"_s << false;
    QTest::newRow("connections") << u"connections"_s << true;
    QTest::newRow("graph") << u"graph"_s << true;
}

void TestLibreLinkUpClient::headers()
{
    QFETCH(QString, request);
    QFETCH(bool, withSession);

    const SimAccount abc{u"abc@example.com"_s, u"pw"_s, u"abc"_s, QString(), {{u"p-abc"_s, {}, {}}}};
    Rig rig({abc});
    const auto session = rig.signIn(abc);
    QVERIFY(session);
    QVERIFY(!session->token.isEmpty());
    QVERIFY(session->accountIdHash == abcHash);
    QVERIFY(LibreLinkUpClient::accountIdHash(u"abc"_s) == abcHash);
    QVERIFY(run(rig.client.fetchConnections(*session)).value);
    QVERIFY(run(rig.client.fetchGraph(*session, u"p-abc"_s)).value);

    Headers expected{
        {"Content-Type", "application/json;charset=UTF-8"},
        {"Accept", "application/json"},
        {"product", "llu.ios"},
        {"version", "4.16.0"},
        {"User-Agent",
         "Mozilla/5.0 (iPhone; CPU OS 17_4.1 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) "
         "Version/17.4.1 Mobile/15E148 Safari/604.1"},
    };
    if (withSession)
        expected += Headers{{"Authorization", "Bearer <token>"}, {"account-id", "<account id>"}};
    QCOMPARE(ownHeaders(rig.service.lastHeaders(request), *session), expected);
}

void TestLibreLinkUpClient::redirects_data()
{
    QTest::addColumn<QStringList>("redirects");
    QTest::addColumn<QString>("unsupported");
    QTest::addColumn<int>("logins");
    QTest::addColumn<QStringList>("log");

    const QString loggedIn = u"info: Logged in to LibreLinkUp via 127.0.0.1"_s;
    QTest::newRow("home region") << QStringList() << QString() << 2
                                 << QStringList{u"info: Login redirected to region eu"_s, loggedIn};
    QTest::newRow("upper-case region") << QStringList{u"EU"_s} << QString() << 2
                                       << QStringList{u"info: Login redirected to region EU"_s, loggedIn};
    QTest::newRow("unsupported region") << QStringList{u"xx"_s} << u"xx"_s << 1 << QStringList();
    QTest::newRow("third redirect") << QStringList{u"us"_s, u"de"_s, u"fr"_s} << u"fr"_s << 3
                                    << QStringList{u"info: Login redirected to region us"_s,
                                                   u"info: Login redirected to region de"_s};
}

void TestLibreLinkUpClient::redirects()
{
    QFETCH(QStringList, redirects);
    QFETCH(QString, unsupported);
    QFETCH(int, logins);
    QFETCH(QStringList, log);

    Rig rig;
    for (const QString &region : std::as_const(redirects)) {
        Fault redirect = fault(u"login"_s, Fault::Kind::redirect);
        redirect.region = region;
        redirect.count = 1;
        rig.service.addFault(redirect);
    }
    const LogCapture capture;
    const auto outcome = run(rig.client.login(demo.email, demo.password));

    QCOMPARE(rig.service.requestCount(u"login"_s), logins);
    QCOMPARE(clientLog(capture), log);
    if (unsupported.isEmpty()) {
        QVERIFY2(outcome.value, describe(outcome.error));
        QCOMPARE(outcome.value->baseUrl, rig.service.regionBaseUrl(u"eu"_s));
        QVERIFY(outcome.value->accountIdHash == LibreLinkUpClient::accountIdHash(demo.userId));
    } else {
        const auto error = errorAs<ClientError>(outcome.error);
        QVERIFY2(error, describe(outcome.error));
        QCOMPARE(error->kind(), ClientError::Kind::unknownRegion);
        QCOMPARE(error->region(), unsupported);
        QCOMPARE(error->description(),
                 u"LibreLinkUp redirected to an unsupported region ("_s + unsupported + u")."_s);
    }
}

void TestLibreLinkUpClient::serviceErrors_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<ClientError::Kind>("kind");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QStringList>("log");

    using K = ClientError::Kind;
    const QString login = u"login"_s;
    const QString graph = u"graph"_s;
    const QString pw = demo.password;
    const QString notSignedIn = u"Not signed in to LibreLinkUp."_s;
    const QString limited =
        u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
    const QString rejected = u"LibreLinkUp rejected the email or password."_s;
    const QString unexpected = u"LibreLinkUp returned an unexpected response."_s;
    const QStringList none;

    QTest::newRow("401 on login") << pw << httpFault(login, 401) << K::notAuthenticated << notSignedIn
                                  << none;
    QTest::newRow("401 on graph") << pw << httpFault(graph, 401) << K::notAuthenticated << notSignedIn
                                  << none;
    QTest::newRow("429") << pw << httpFault(graph, 429) << K::rateLimited << limited << none;
    QTest::newRow("430") << pw << httpFault(login, 430) << K::rateLimited << limited << none;
    QTest::newRow("403") << pw << httpFault(graph, 403) << K::httpError
                         << u"LibreLinkUp request failed (HTTP 403)."_s
                         << QStringList{u"error: HTTP 403 from 127.0.0.1"_s};
    QTest::newRow("500 on login") << pw << httpFault(login, 500) << K::httpError
                                  << u"LibreLinkUp request failed (HTTP 500)."_s
                                  << QStringList{u"error: HTTP 500 from 127.0.0.1"_s};
    QTest::newRow("status 2") << pw << apiFault(login, 2) << K::invalidCredentials << rejected << none;
    // The service's own answer, on time.
    QTest::newRow("wrong password") << u"Correct horse"_s << fault(login, Fault::Kind::delay)
                                    << K::invalidCredentials << rejected << none;
    QTest::newRow("status 4")
        << pw << apiFault(login, 4) << K::accountActionRequired
        << u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, "
           "then try again."_s
        << none;
    QTest::newRow("status 9 with message")
        << pw << apiFault(graph, 9, u"Try later"_s) << K::unexpectedStatus
        << u"LibreLinkUp returned status 9: Try later."_s << QStringList{u"error: API status 9"_s};
    QTest::newRow("status 9 alone") << pw << apiFault(login, 9) << K::unexpectedStatus
                                    << u"LibreLinkUp returned status 9."_s
                                    << QStringList{u"error: API status 9"_s};
    QTest::newRow("empty message") << pw << apiFault(login, 9, QString()) << K::unexpectedStatus
                                   << u"LibreLinkUp returned status 9: ."_s
                                   << QStringList{u"error: API status 9"_s};
    QTest::newRow("graph without data")
        << pw << rawFault(graph, R"({"status":0})") << K::malformedResponse << unexpected << none;
    QTest::newRow("redirect without region or ticket")
        << pw << rawFault(login, R"({"status":0,"data":{"redirect":true}})") << K::malformedResponse
        << unexpected << none;
    QTest::newRow("ticket without user")
        << pw << rawFault(login, R"({"status":0,"data":{"authTicket":{"token":"t","expires":1}}})")
        << K::malformedResponse << unexpected << none;
}

void TestLibreLinkUpClient::serviceErrors()
{
    QFETCH(QString, password);
    QFETCH(Fault, fault);
    QFETCH(ClientError::Kind, kind);
    QFETCH(QString, description);
    QFETCH(QStringList, log);

    Rig rig;
    std::optional<Session> session;
    if (fault.path != u"login") {
        session = rig.signIn();
        QVERIFY(session);
    }
    rig.service.addFault(fault);
    const LogCapture capture;
    std::exception_ptr failure;
    if (session)
        failure = run(rig.client.fetchGraph(*session, demo.connections.first().patientId)).error;
    else
        failure = run(rig.client.login(demo.email, password)).error;

    const auto error = errorAs<ClientError>(failure);
    QVERIFY2(error, describe(failure));
    QCOMPARE(error->kind(), kind);
    QCOMPARE(error->description(), description);
    QCOMPARE(clientLog(capture), log);
}

void TestLibreLinkUpClient::decodingFailures_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<DecodingError::Kind>("kind");

    using K = DecodingError::Kind;
    QTest::newRow("login not JSON") << fault(u"login"_s, Fault::Kind::notJson) << K::notJson;
    QTest::newRow("connections truncated")
        << fault(u"connections"_s, Fault::Kind::truncatedBody) << K::notJson;
    QTest::newRow("graph value as text") << fault(u"graph"_s, Fault::Kind::wrongType) << K::wrongValue;
    QTest::newRow("envelope without status")
        << rawFault(u"connections"_s, R"({"data":[]})") << K::missingMember;
    QTest::newRow("graph over 16 MiB") << fault(u"graph"_s, Fault::Kind::hugeBody) << K::tooLarge;
}

void TestLibreLinkUpClient::decodingFailures()
{
    QFETCH(Fault, fault);
    QFETCH(DecodingError::Kind, kind);

    Rig rig;
    rig.service.addFault(fault);
    // A fault on the login path spoils the sign-in itself, which is then the request under test.
    const auto login = run(rig.client.login(demo.email, demo.password));
    std::exception_ptr failure = login.error;
    if (login.value) {
        failure = fault.path == u"connections" ? run(rig.client.fetchConnections(*login.value)).error
                                               : run(rig.client.fetchGraph(*login.value, u"p-0001"_s)).error;
    }

    const auto error = errorAs<DecodingError>(failure);
    QVERIFY2(error, describe(failure));
    QCOMPARE(error->kind(), kind);
    QCOMPARE(rig.service.requestCount(fault.path), 1);
}

void TestLibreLinkUpClient::transportFailures_data()
{
    QTest::addColumn<bool>("listening");
    QTest::addColumn<Fault::Kind>("faultKind");
    QTest::addColumn<TransportError::Kind>("kind");
    QTest::addColumn<QString>("description");
    QTest::addColumn<int>("atLeastMs");

    using K = TransportError::Kind;
    QTest::newRow("no reply") << true << Fault::Kind::neverReply << K::timedOut << u"The request timed out."_s
                              << 900;
    QTest::newRow("closed mid-body") << true << Fault::Kind::closeMidBody << K::connectionLost
                                     << u"The connection to the server was lost."_s << 0;
    QTest::newRow("nothing listening")
        << false << Fault::Kind::neverReply << K::cannotConnect << u"Could not connect to the server."_s << 0;
}

void TestLibreLinkUpClient::transportFailures()
{
    QFETCH(bool, listening);
    QFETCH(Fault::Kind, faultKind);
    QFETCH(TransportError::Kind, kind);
    QFETCH(QString, description);
    QFETCH(int, atLeastMs);

    Rig rig;
    rig.service.addFault(fault(u"login"_s, faultKind));
    ServiceEndpoints endpoints = rig.service.endpoints();
    if (!listening) {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        endpoints.defaultBaseUrl.setPort(probe.serverPort());
    }
    const LibreLinkUpClient client(&rig.network, endpoints, 1s);

    QElapsedTimer clock;
    clock.start();
    const auto failure = run(client.login(demo.email, demo.password)).error;
    const qint64 elapsed = clock.elapsed();

    const auto error = errorAs<TransportError>(failure);
    QVERIFY2(error, describe(failure));
    QCOMPARE(error->kind(), kind);
    QCOMPARE(error->description(), description);
    QVERIFY2(elapsed >= atLeastMs && elapsed < 3000, QByteArray::number(elapsed));
}

void TestLibreLinkUpClient::cancellation_data()
{
    QTest::addColumn<bool>("beforeCall");
    QTest::addColumn<int>("requests");

    QTest::newRow("before the call") << true << 0;
    QTest::newRow("while the reply is awaited") << false << 1;
}

void TestLibreLinkUpClient::cancellation()
{
    QFETCH(bool, beforeCall);
    QFETCH(int, requests);

    Rig rig;
    rig.service.addFault(fault(u"login"_s, Fault::Kind::neverReply));
    const CancellationToken cancel;
    QElapsedTimer sinceCancel;
    // Cancel once the request has surely reached the service, well before the time-out.
    QTimer watch;
    watch.setInterval(5ms);
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (rig.service.requestCount(u"login"_s) > 0 && !cancel.isCancelled()) {
            sinceCancel.start();
            cancel.cancel();
        }
    });
    if (beforeCall) {
        sinceCancel.start();
        cancel.cancel();
    } else {
        watch.start();
    }

    const LogCapture capture;
    const auto failure = run(rig.client.login(demo.email, demo.password, cancel)).error;

    QVERIFY2(errorAs<CancelledError>(failure), describe(failure));
    QVERIFY2(sinceCancel.elapsed() < 500, QByteArray::number(sinceCancel.elapsed()));
    QCOMPARE(rig.service.requestCount(u"login"_s), requests);
    QCOMPARE(rig.service.connectionCount(), requests);
    QCOMPARE(clientLog(capture), QStringList());
}

void TestLibreLinkUpClient::fullSession_data()
{
    QTest::addColumn<QString>("patientId");

    QTest::newRow("plain id") << u"p-0001"_s;
    QTest::newRow("id a path cannot hold as is") << u"Ann #1?ä %41"_s;
}

void TestLibreLinkUpClient::fullSession()
{
    QFETCH(QString, patientId);

    SimAccount account = demo;
    account.connections = {{patientId, u"Ann"_s, u"Lee"_s}};
    Rig rig({account});
    const LogCapture capture;
    const auto session = rig.signIn(account);
    QVERIFY(session);

    const auto connections = run(rig.client.fetchConnections(*session));
    QVERIFY2(connections.value, describe(connections.error));
    QCOMPARE(connections.value->size(), 1);
    const LLUConnection &connection = connections.value->first();
    QCOMPARE(connection.patientId, patientId);
    QCOMPARE(connection.firstName, u"Ann"_s);
    QVERIFY(connection.glucoseMeasurement);

    const auto graph = run(rig.client.fetchGraph(*session, connection.patientId));
    QVERIFY2(graph.value, describe(graph.error));
    QCOMPARE(graph.value->connection->patientId, patientId);
    // Twelve hours at one point every fifteen minutes.
    QCOMPARE(graph.value->graphData.size(), 48);

    const GraphReadings mapped = readings(*graph.value);
    QCOMPARE(mapped.displayName, u"Ann Lee"_s);
    QVERIFY(mapped.latest);
    QCOMPARE(mapped.latest->mgPerDl, graph.value->connection->glucoseMeasurement->valueInMgPerDl);
    QVERIFY(mapped.history.size() >= 48);
    QCOMPARE(mapped.history.last().date, mapped.latest->date);

    // The log did hear the client; none of it may carry a credential.
    QVERIFY(!clientLog(capture).isEmpty());
    const QList<std::pair<const char *, QString>> secrets{{"the password", account.password},
                                                          {"the token", session->token},
                                                          {"the account id", session->accountIdHash},
                                                          {"the user id", account.userId}};
    for (const LogCapture::Entry &entry : capture.entries()) {
        for (const auto &[name, secret] : secrets) {
            QVERIFY(!secret.isEmpty());
            QVERIFY2(!entry.message.contains(secret),
                     qPrintable(u"%1 in a message of %2"_s.arg(QLatin1StringView(name), entry.category)));
        }
    }
}

void TestLibreLinkUpClient::emptyConnectionList()
{
    Rig rig;
    const auto session = rig.signIn();
    QVERIFY(session);
    rig.service.addFault(rawFault(u"connections"_s, R"({"status":0,"data":[]})"));

    const auto connections = run(rig.client.fetchConnections(*session));
    QVERIFY2(connections.value, describe(connections.error));
    QVERIFY(connections.value->isEmpty());
}

void TestLibreLinkUpClient::reusesConnection()
{
    Rig rig;
    const auto session = rig.signIn();
    QVERIFY(session);
    // A fresh network manager, so that the sign-in's connection cannot be the one reused.
    QNetworkAccessManager network;
    const LibreLinkUpClient client(&network, rig.service.endpoints(), 1s);
    const int before = rig.service.connectionCount();

    for (int poll = 0; poll < 2; ++poll) {
        // Polls come with a pause between them, long enough for an idle connection to be dropped.
        QTest::qWait(50);
        const auto graph = run(client.fetchGraph(*session, u"p-0001"_s));
        QVERIFY2(graph.value, describe(graph.error));
    }
    QCOMPARE(rig.service.requestCount(u"graph"_s), 2);
    QCOMPARE(rig.service.connectionCount() - before, 1);
}

QTEST_GUILESS_MAIN(TestLibreLinkUpClient)
#include "tst_librelinkupclient.moc"
