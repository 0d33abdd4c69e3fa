#include "DecodingError.h"
#include "LibreLinkUpClient.h"
#include "ServiceAddressFile.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "TransportError.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSslKey>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <qcoro/qcorotask.h>

using namespace Qt::StringLiterals;
using namespace glinta;
using namespace glinta::sim;

// HTTPS against the simulated service with a certificate authority made for this run, handed to the
// client through the development address file as the demo does.
class TestClientTls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void trustedThroughAddressFile();
    void untrustedCertificateFails();
    void brokenAddressFile_data();
    void brokenAddressFile();

private:
    bool openssl(const QStringList &arguments);
    QString writeAddressFile(const QByteArray &json);

    QTemporaryDir m_dir;
    SimulatedService m_service;
};

bool TestClientTls::openssl(const QStringList &arguments)
{
    QProcess process;
    process.setWorkingDirectory(m_dir.path());
    process.start(u"openssl"_s, arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0) {
        qWarning("openssl %s failed: %s", qPrintable(arguments.join(u' ')),
                 process.readAllStandardError().constData());
        return false;
    }
    return true;
}

QString TestClientTls::writeAddressFile(const QByteArray &json)
{
    const QString path = m_dir.filePath(serviceAddressFileName);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(json) != json.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

void TestClientTls::initTestCase()
{
    QVERIFY(m_dir.isValid());
    if (QStandardPaths::findExecutable(u"openssl"_s).isEmpty())
        QSKIP("openssl is not installed, so no test certificate can be made");

    QFile extensions(m_dir.filePath(u"server.ext"_s));
    QVERIFY(extensions.open(QIODevice::WriteOnly));
    extensions.write("subjectAltName=IP:127.0.0.1\n");
    extensions.close();

    QVERIFY(
        openssl({u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                 u"-subj"_s, u"/CN=Glinta Test CA"_s, u"-keyout"_s, u"ca.key"_s, u"-out"_s, u"ca.pem"_s}));
    QVERIFY(openssl({u"req"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-subj"_s, u"/CN=127.0.0.1"_s,
                     u"-keyout"_s, u"server.key"_s, u"-out"_s, u"server.csr"_s}));
    QVERIFY(openssl({u"x509"_s, u"-req"_s, u"-in"_s, u"server.csr"_s, u"-CA"_s, u"ca.pem"_s, u"-CAkey"_s,
                     u"ca.key"_s, u"-CAcreateserial"_s, u"-days"_s, u"2"_s, u"-extfile"_s, u"server.ext"_s,
                     u"-out"_s, u"server.pem"_s}));

    QFile certificateFile(m_dir.filePath(u"server.pem"_s));
    QFile keyFile(m_dir.filePath(u"server.key"_s));
    QVERIFY(certificateFile.open(QIODevice::ReadOnly) && keyFile.open(QIODevice::ReadOnly));
    const QSslCertificate certificate(&certificateFile, QSsl::Pem);
    const QSslKey key(&keyFile, QSsl::Rsa, QSsl::Pem);
    QVERIFY(!certificate.isNull() && !key.isNull());

    m_service.useTls(certificate, key);
    m_service.addAccount(SimulatedService::demoAccount());
    QVERIFY(m_service.start() != 0);
    QCOMPARE(m_service.baseUrl().scheme(), u"https"_s);
}

void TestClientTls::trustedThroughAddressFile()
{
    const QByteArray json = "{\"defaultBaseURL\":\"" + m_service.baseUrl().toEncoded() +
                            "\",\"regions\":{\"EU\":\"" + m_service.regionBaseUrl(u"eu"_s).toEncoded() +
                            "\"},\"caFile\":\"" + m_dir.filePath(u"ca.pem"_s).toUtf8() + "\"}";
    const ServiceEndpoints endpoints = readServiceAddressFile(writeAddressFile(json));
    QCOMPARE(endpoints.extraCaCertificates.size(), 1);

    QNetworkAccessManager network;
    const LibreLinkUpClient client(&network, endpoints, std::chrono::seconds(5));
    const SimAccount account = SimulatedService::demoAccount();
    const auto session = run(client.login(account.email, account.password));
    QVERIFY2(session.value, describe(session.error));
    QCOMPARE(session.value->baseUrl, m_service.regionBaseUrl(u"eu"_s));
    const auto graph = run(client.fetchGraph(*session.value, account.connections.first().patientId));
    QVERIFY2(graph.value, describe(graph.error));
    QCOMPARE(graph.value->graphData.size(), 48);
}

void TestClientTls::untrustedCertificateFails()
{
    m_service.resetCounters();
    QNetworkAccessManager network;
    // The system's authorities only: the test CA is unknown to them.
    const LibreLinkUpClient client(&network, m_service.endpoints(), std::chrono::seconds(5));
    const auto outcome = run(client.login(u"ann@example.com"_s, u"correct horse"_s));
    const auto error = errorAs<TransportError>(outcome.error);
    QVERIFY2(error, describe(outcome.error));
    QCOMPARE(error->kind(), TransportError::Kind::insecure);
    QVERIFY2(error->description().startsWith(u"A secure connection to the server could not be made: "_s),
             qPrintable(error->description()));
    // The reason names the certificate problem, not just that there was one.
    QVERIFY2(error->description().contains(u"certificate"_s, Qt::CaseInsensitive),
             qPrintable(error->description()));
    QCOMPARE(m_service.requestCount(u"login"_s), 0);
}

void TestClientTls::brokenAddressFile_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("member");

    QTest::newRow("not JSON") << "defaultBaseURL=http://127.0.0.1"_ba << QString();
    QTest::newRow("no default") << R"({"regions":{}})"_ba << u"defaultBaseURL"_s;
    QTest::newRow("default not a URL") << R"({"defaultBaseURL":"127.0.0.1:80"})"_ba << u"defaultBaseURL"_s;
    QTest::newRow("ftp region") << R"({"defaultBaseURL":"http://127.0.0.1/","regions":{"eu":"ftp://x/"}})"_ba
                                << u"regions.eu"_s;
    QTest::newRow("missing CA file")
        << R"({"defaultBaseURL":"http://127.0.0.1/","caFile":"/nonexistent/ca.pem"})"_ba << u"caFile"_s;
}

void TestClientTls::brokenAddressFile()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, member);

    try {
        readServiceAddressFile(writeAddressFile(json));
        QFAIL("a broken address file was accepted");
    } catch (const DecodingError &error) {
        QCOMPARE(error.path(), member);
        QVERIFY(error.description().startsWith(u"The service address file "_s));
    }
}

QTEST_GUILESS_MAIN(TestClientTls)
#include "tst_clienttls.moc"
