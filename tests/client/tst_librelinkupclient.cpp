#include "ClientError.h"
#include "LibreLinkUpClient.h"
#include "LogCapture.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"

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

namespace {

const SimAccount demo = SimulatedService::demoAccount();
const QString login = u"login"_s;
const QString connections = u"connections"_s;
const QString graph = u"graph"_s;

// The client's own log lines, with their level, in order.
QStringList clientLog(const LogCapture &capture)
{
    QStringList lines;
    for (const LogCapture::Entry &entry : capture.inCategory(u"com.nordvik.glinta.LibreLinkUpClient"_s)) {
        const auto level = entry.type == QtInfoMsg       ? "info: "_L1
                           : entry.type == QtCriticalMsg ? "error: "_L1
                                                         : "other: "_L1;
        lines.append(level + entry.message);
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

// A simulated service and a client pointed at it, with the short time-out every test uses.
struct Rig
{
    explicit Rig(const SimAccount &account = demo) { service.addAccount(account); }
    std::optional<Session> signIn() { return run(client.login(demo.email, demo.password)).value; }

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
    void redirects_data();
    void redirects();
    void failures_data();
    void failures();
    void cannotConnect();
    void cancellation_data();
    void cancellation();
    void fullSession();
    void reusesConnection();
};

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
        Fault redirect = fault(login, Fault::Kind::redirect);
        redirect.region = region;
        redirect.count = 1;
        rig.service.addFault(redirect);
    }
    const LogCapture capture;
    const auto outcome = run(rig.client.login(demo.email, demo.password));

    QCOMPARE(rig.service.requestCount(login), logins);
    QCOMPARE(clientLog(capture), log);
    if (unsupported.isEmpty()) {
        QVERIFY2(outcome.value, describe(outcome.error));
        QCOMPARE(outcome.value->baseUrl, rig.service.regionBaseUrl(u"eu"_s));
    } else {
        QCOMPARE(describe(outcome.error),
                 "LibreLinkUp redirected to an unsupported region (" + unsupported.toUtf8() + ").");
    }
}

void TestLibreLinkUpClient::failures_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("log");

    using F = Fault::Kind;
    const auto http = [](const QString &path, int status) {
        Fault made = fault(path, F::httpStatus);
        made.httpStatus = status;
        return made;
    };
    const auto raw = [](const QString &path, const QByteArray &body) {
        Fault made = fault(path, F::rawBody);
        made.body = body;
        return made;
    };
    const QString limited =
        u"LibreLinkUp is rate-limiting requests. This usually clears up within a few minutes."_s;
    const QString unexpected = u"LibreLinkUp returned an unexpected response."_s;
    const QString status9 = u"error: API status 9"_s;
    const QString none;

    QTest::newRow("401") << http(graph, 401) << u"Not signed in to LibreLinkUp."_s << none;
    QTest::newRow("429") << http(graph, 429) << limited << none;
    QTest::newRow("430") << http(login, 430) << limited << none;
    QTest::newRow("403") << http(graph, 403) << u"LibreLinkUp request failed (HTTP 403)."_s
                         << u"error: HTTP 403 from 127.0.0.1"_s;
    QTest::newRow("500") << http(login, 500) << u"LibreLinkUp request failed (HTTP 500)."_s
                         << u"error: HTTP 500 from 127.0.0.1"_s;
    QTest::newRow("status 2") << raw(login, R"({"status":2})")
                              << u"LibreLinkUp rejected the email or password."_s << none;
    QTest::newRow("status 4")
        << raw(login, R"({"status":4})")
        << u"Your account needs attention. Open the LibreLinkUp app, accept any new terms, "
           "then try again."_s
        << none;
    QTest::newRow("status 9 with message") << raw(graph, R"({"status":9,"error":{"message":"Try later"}})")
                                           << u"LibreLinkUp returned status 9: Try later."_s << status9;
    QTest::newRow("status 9 alone") << raw(login, R"({"status":9})") << u"LibreLinkUp returned status 9."_s
                                    << status9;
    QTest::newRow("empty message") << raw(login, R"({"status":9,"error":{"message":""}})")
                                   << u"LibreLinkUp returned status 9: ."_s << status9;
    QTest::newRow("graph without data") << raw(graph, R"({"status":0})") << unexpected << none;
    QTest::newRow("redirect without region")
        << raw(login, R"({"status":0,"data":{"redirect":true}})") << unexpected << none;
    QTest::newRow("ticket without user")
        << raw(login, R"({"status":0,"data":{"authTicket":{"token":"t","expires":1}}})") << unexpected
        << none;

    QTest::newRow("login not JSON") << fault(login, F::notJson)
                                    << u"The response is not valid JSON (illegal value at byte 1)."_s << none;
    QTest::newRow("graph value as text")
        << fault(graph, F::wrongType)
        << u"The response has a string for \"data.connection.glucoseMeasurement.ValueInMgPerDl\" (expected a number)."_s
        << none;
    QTest::newRow("envelope without status")
        << raw(connections, R"({"data":[]})")
        << u"The response is missing \"status\" (expected an integer)."_s << none;
    QTest::newRow("graph over 16 MiB")
        << fault(graph, F::hugeBody) << u"The response is larger than 16 MiB."_s << none;

    QTest::newRow("no reply") << fault(login, F::neverReply) << u"The request timed out."_s << none;
    QTest::newRow("closed mid-body") << fault(graph, F::closeMidBody)
                                     << u"The connection to the server was lost."_s << none;
}

void TestLibreLinkUpClient::failures()
{
    QFETCH(Fault, fault);
    QFETCH(QString, description);
    QFETCH(QString, log);

    Rig rig;
    const auto session = fault.path == login ? std::nullopt : rig.signIn();
    rig.service.addFault(fault);
    const LogCapture capture;
    QElapsedTimer clock;
    clock.start();
    const std::exception_ptr failure = !session ? run(rig.client.login(demo.email, demo.password)).error
                                       : fault.path == graph
                                           ? run(rig.client.fetchGraph(*session, u"p-0001"_s)).error
                                           : run(rig.client.fetchConnections(*session)).error;
    const qint64 elapsed = clock.elapsed();

    // Each text belongs to one kind of one error class, so the text pins both down.
    QCOMPARE(QString::fromUtf8(describe(failure)), description);
    QCOMPARE(clientLog(capture), log.isEmpty() ? QStringList() : QStringList{log});
    QCOMPARE(rig.service.requestCount(fault.path), 1);
    // Only a silent service waits out the one-second time-out.
    QVERIFY2(elapsed >= (fault.kind == Fault::Kind::neverReply ? 900 : 0) && elapsed < 3000,
             QByteArray::number(elapsed));
}

void TestLibreLinkUpClient::cannotConnect()
{
    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    ServiceEndpoints endpoints;
    endpoints.defaultBaseUrl = QUrl(u"http://127.0.0.1:%1/"_s.arg(probe.serverPort()));
    probe.close();
    QNetworkAccessManager network;
    const auto failure =
        run(LibreLinkUpClient(&network, endpoints, 1s).login(demo.email, demo.password)).error;
    QCOMPARE(QString::fromUtf8(describe(failure)), u"Could not connect to the server."_s);
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
    rig.service.addFault(fault(login, Fault::Kind::neverReply));
    const CancellationToken cancel;
    QElapsedTimer sinceCancel;
    const auto cancelNow = [&] {
        sinceCancel.start();
        cancel.cancel();
    };
    // Once the request has surely reached the service, well before the time-out.
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&] {
        if (rig.service.requestCount(login) > 0 && !cancel.isCancelled())
            cancelNow();
    });
    beforeCall ? cancelNow() : watch.start(5ms);

    const LogCapture capture;
    const auto failure = run(rig.client.login(demo.email, demo.password, cancel)).error;

    QVERIFY2(errorAs<CancelledError>(failure), describe(failure));
    QVERIFY2(sinceCancel.elapsed() < 500, QByteArray::number(sinceCancel.elapsed()));
    QCOMPARE(rig.service.requestCount(login), requests);
    QCOMPARE(rig.service.connectionCount(), requests);
    QCOMPARE(clientLog(capture), QStringList());
}

void TestLibreLinkUpClient::fullSession()
{
    // An id a URL path cannot hold as it is.
    const QString patientId = u"Ann #1?ä %41"_s;
    SimAccount account = demo;
    account.connections = {{patientId, u"Ann"_s, u"Lee"_s}};
    Rig rig(account);
    const LogCapture capture;
    const auto session = rig.signIn();
    QVERIFY(session);
    // SHA-256 of the user id.
    QVERIFY(session->accountIdHash == u"41788214c1500f29e96104aa9a7969ed8279f45956a675cc596f340d8dbaf726"_s);

    const auto list = run(rig.client.fetchConnections(*session));
    QVERIFY2(list.value, describe(list.error));
    QCOMPARE(list.value->value(0).patientId, patientId);
    const auto fetched = run(rig.client.fetchGraph(*session, patientId));
    QVERIFY2(fetched.value, describe(fetched.error));
    QCOMPARE(fetched.value->connection->patientId, patientId);

    const Headers anonymous{
        {"Content-Type", "application/json;charset=UTF-8"},
        {"Accept", "application/json"},
        {"product", "llu.ios"},
        {"version", "4.16.0"},
        {"User-Agent",
         "Mozilla/5.0 (iPhone; CPU OS 17_4.1 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) "
         "Version/17.4.1 Mobile/15E148 Safari/604.1"},
    };
    const Headers signedIn =
        anonymous + Headers{{"Authorization", "Bearer <token>"}, {"account-id", "<account id>"}};
    QCOMPARE(ownHeaders(rig.service.lastHeaders(login), *session), anonymous);
    QCOMPARE(ownHeaders(rig.service.lastHeaders(connections), *session), signedIn);
    QCOMPARE(ownHeaders(rig.service.lastHeaders(graph), *session), signedIn);

    QVERIFY(!clientLog(capture).isEmpty());
    const QList<std::pair<const char *, QString>> secrets{{"the password", account.password},
                                                          {"the token", session->token},
                                                          {"the account id", session->accountIdHash},
                                                          {"the user id", account.userId}};
    for (const LogCapture::Entry &entry : capture.entries()) {
        for (const auto &[name, secret] : secrets) {
            QVERIFY2(!entry.message.contains(secret),
                     qPrintable(u"%1 in a message of %2"_s.arg(QLatin1StringView(name), entry.category)));
        }
    }
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
        const auto fetched = run(client.fetchGraph(*session, u"p-0001"_s));
        QVERIFY2(fetched.value, describe(fetched.error));
    }
    QCOMPARE(rig.service.requestCount(graph), 2);
    QCOMPARE(rig.service.connectionCount() - before, 1);
}

QTEST_GUILESS_MAIN(TestLibreLinkUpClient)
#include "tst_librelinkupclient.moc"
