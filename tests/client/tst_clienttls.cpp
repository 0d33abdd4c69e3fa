#include "DecodingError.h"
#include "LibreLinkUpClient.h"
#include "ServiceAddressFile.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSslKey>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <qcoro/qcorotask.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using namespace glinta::sim;

// HTTPS against the simulated service with a certificate made for this run, trusted through the
// development address file as the demo does.
class TestClientTls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void trustedOnlyThroughAddressFile();
    void brokenAddressFile_data();
    void brokenAddressFile();

private:
    QString writeAddressFile(const QByteArray &json);

    QTemporaryDir m_dir;
    SimulatedService m_service;
};

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

    // Self-signed, so the certificate is its own authority.
    QProcess openssl;
    openssl.setWorkingDirectory(m_dir.path());
    openssl.start(u"openssl"_s,
                  {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                   u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s,
                   u"-keyout"_s, u"server.key"_s, u"-out"_s, u"server.pem"_s});
    QVERIFY2(openssl.waitForFinished(30000) && openssl.exitCode() == 0, openssl.readAllStandardError());

    const auto certificates = QSslCertificate::fromPath(m_dir.filePath(u"server.pem"_s));
    QFile keyFile(m_dir.filePath(u"server.key"_s));
    QVERIFY(certificates.size() == 1 && keyFile.open(QIODevice::ReadOnly));
    m_service.useTls(certificates.first(), QSslKey(&keyFile, QSsl::Rsa, QSsl::Pem));
    m_service.addAccount(SimulatedService::demoAccount());
    QVERIFY(m_service.start() != 0);
}

void TestClientTls::trustedOnlyThroughAddressFile()
{
    // The system's authorities only: the reason names the certificate problem, not just that there was one.
    QNetworkAccessManager network;
    auto outcome = run(LibreLinkUpClient(&network, m_service.endpoints(), 5s)
                           .login(u"ann@example.com"_s, u"correct horse"_s));
    const QString description = QString::fromUtf8(describe(outcome.error));
    QVERIFY2(description.startsWith(u"A secure connection to the server could not be made: "_s) &&
                 description.contains(u"certificate"_s, Qt::CaseInsensitive),
             qPrintable(description));
    QCOMPARE(m_service.requestCount(u"login"_s), 0);

    const QByteArray json = "{\"defaultBaseURL\":\"" + m_service.baseUrl().toEncoded() +
                            "\",\"regions\":{\"EU\":\"" + m_service.regionBaseUrl(u"eu"_s).toEncoded() +
                            "\"},\"caFile\":\"" + m_dir.filePath(u"server.pem"_s).toUtf8() + "\"}";
    // A manager of its own: on the first, the host keeps failing even with the authority added.
    QNetworkAccessManager trusting;
    const LibreLinkUpClient client(&trusting, readServiceAddressFile(writeAddressFile(json)), 5s);
    outcome = run(client.login(u"ann@example.com"_s, u"correct horse"_s));
    QVERIFY2(outcome.value, describe(outcome.error));
    QCOMPARE(outcome.value->baseUrl, m_service.regionBaseUrl(u"eu"_s));
}

void TestClientTls::brokenAddressFile_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("description");

    QTest::newRow("ftp region")
        << R"({"defaultBaseURL":"http://127.0.0.1/","regions":{"eu":"ftp://x/"}})"_ba
        << u"The service address file has a string for \"regions.eu\" (expected an http or https URL)."_s;
    QTest::newRow("missing CA file")
        << R"({"defaultBaseURL":"http://127.0.0.1/","caFile":"/nonexistent/ca.pem"})"_ba
        << u"The service address file has a string for \"caFile\" (expected the path of a PEM certificate file)."_s;
}

void TestClientTls::brokenAddressFile()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, description);

    try {
        readServiceAddressFile(writeAddressFile(json));
        QFAIL("a broken address file was accepted");
    } catch (const DecodingError &error) {
        QCOMPARE(error.description(), description);
    }
}

QTEST_GUILESS_MAIN(TestClientTls)
#include "tst_clienttls.moc"
