#include "DecodingError.h"
#include "LLURecords.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using Decoder = void (*)(const QByteArray &);
template <typename T> void decode(const QByteArray &body)
{
    decodeLLUResponse<T>(body);
}

const QByteArray measurement =
    R"({"Timestamp":"1/5/2024 9:03:07 AM","ValueInMgPerDl":124,"TrendArrow":3,"type":1})";

} // namespace

Q_DECLARE_METATYPE(Decoder)

class TestLLURecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullIsAbsent();
    void integerMembers_data();
    void integerMembers();
    void brokenResponses_data();
    void brokenResponses();
    void loginBody_data();
    void loginBody();
};

void TestLLURecords::nullIsAbsent()
{
    // Unknown and absent members are the simulated service's everyday answers (tst_librelinkupclient).
    const auto login = decodeLLUResponse<LLULoginData>(R"({"status":0,"data":{"user":null,"region":null}})");
    QVERIFY(login.data && !login.data->user && !login.data->region && !login.error);
    const auto list = decodeLLUResponse<QList<LLUConnection>>(
        R"({"status":0,"data":[{"patientId":"p","lastName":null,"glucoseMeasurement":null}]})");
    QVERIFY(list.data->size() == 1 && !list.data->at(0).lastName && !list.data->at(0).glucoseMeasurement);
    const auto graph = decodeLLUResponse<LLUGraphData>(
        R"({"status":0,"data":{"connection":null,"graphData":[{"Timestamp":"x","ValueInMgPerDl":55.5,"isLow":null}]}})");
    QVERIFY(!graph.data->connection && graph.data->graphData.value(0).valueInMgPerDl == 55.5 &&
            !graph.data->graphData.value(0).isLow);
}

void TestLLURecords::integerMembers_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("no fraction") << "-3.0"_ba << qint64(-3);
    QTest::newRow("int64 max") << "9223372036854775807"_ba << std::numeric_limits<qint64>::max();
    QTest::newRow("int64 min") << "-9223372036854775808"_ba << std::numeric_limits<qint64>::min();
}

void TestLLURecords::integerMembers()
{
    QFETCH(QByteArray, status);
    QFETCH(qint64, expected);
    QCOMPARE(decodeLLUResponse<LLULoginData>("{\"status\":" + status + "}").status, expected);
}

void TestLLURecords::brokenResponses_data()
{
    QTest::addColumn<Decoder>("decoder");
    QTest::addColumn<QByteArray>("body");
    // Between "The response " and the final full stop. Text that is not JSON at all is the client's row.
    QTest::addColumn<QString>("description");

    const Decoder login = decode<LLULoginData>;
    const Decoder graph = decode<LLUGraphData>;
    const auto points = [](const QByteArray &json) -> QByteArray {
        return R"({"status":0,"data":{"graphData":[)" + json + "]}}";
    };

    QTest::newRow("top-level array") << graph << "[]"_ba
                                     << u"has an array at the top level (expected an object)"_s;
    QTest::newRow("no status") << graph << R"({"data":{"graphData":[]}})"_ba
                               << u"is missing \"status\" (expected an integer)"_s;
    QTest::newRow("status fraction")
        << login << R"({"status":2.5})"_ba
        << u"has the number 2.5 for \"status\" (expected a whole number that fits in 64 bits)"_s;
    QTest::newRow("status 2^63")
        << graph << R"({"status":9223372036854775808})"_ba
        << u"has the number 9223372036854776000 for \"status\" (expected a whole number that fits in 64 bits)"_s;
    QTest::newRow("no graphData") << graph << R"({"status":0,"data":{}})"_ba
                                  << u"is missing \"data.graphData\" (expected an array)"_s;
    QTest::newRow("third point without timestamp")
        << graph << points(measurement + "," + measurement + R"(,{"ValueInMgPerDl":100})")
        << u"is missing \"data.graphData[2].Timestamp\" (expected a string)"_s;
    QTest::newRow("value as text")
        << graph << points(R"({"Timestamp":"x","ValueInMgPerDl":"124"})")
        << u"has a string for \"data.graphData[0].ValueInMgPerDl\" (expected a number)"_s;
    QTest::newRow("trend fraction")
        << graph << points(R"({"Timestamp":"x","ValueInMgPerDl":1,"TrendArrow":3.5})")
        << u"has the number 3.5 for \"data.graphData[0].TrendArrow\" (expected a whole number that fits in 64 bits)"_s;
    QTest::newRow("isHigh as text")
        << graph << points(R"({"Timestamp":"x","ValueInMgPerDl":1,"isHigh":"true"})")
        << u"has a string for \"data.graphData[0].isHigh\" (expected true or false)"_s;
    QTest::newRow("connection measurement broken")
        << graph
        << R"({"status":0,"data":{"connection":{"patientId":"p","glucoseMeasurement":{"Timestamp":"x"}},"graphData":[]}})"_ba
        << u"is missing \"data.connection.glucoseMeasurement.ValueInMgPerDl\" (expected a number)"_s;
    QTest::newRow("user id null") << login << R"({"status":0,"data":{"user":{"id":null}}})"_ba
                                  << u"has null for \"data.user.id\" (expected a string)"_s;
    QTest::newRow("second connection without id")
        << Decoder(decode<QList<LLUConnection>>) << R"({"status":0,"data":[{"patientId":"a"},{}]})"_ba
        << u"is missing \"data[1].patientId\" (expected a string)"_s;
}

void TestLLURecords::brokenResponses()
{
    QFETCH(Decoder, decoder);
    QFETCH(QByteArray, body);
    QFETCH(QString, description);

    try {
        decoder(body);
        QFAIL("decoding should have failed");
    } catch (const DecodingError &error) {
        QCOMPARE(error.description(), u"The response "_s + description + u'.');
    }
}

// Whatever the escaping, a JSON parser must read back exactly what was given.
void TestLLURecords::loginBody_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("password");

    QTest::newRow("escapes") << u" Ann@Example.com "_s << u"q\"u/o\\te\n"_s;
    QTest::newRow("control and non-ASCII") << u"j\u00f6rg@example.de"_s << u"\u0001\U0001F600"_s;
    QTest::newRow("empty") << QString() << QString();
    // Half a surrogate pair has no UTF-8 form; only an escape keeps it.
    QTest::newRow("unpaired surrogates")
        << u"a@b.c"_s << QChar(0xDE00) + u"p"_s + QChar(0xD83D) + QChar(0xD83D) + QChar(0xDE00);
}

void TestLLURecords::loginBody()
{
    QFETCH(QString, email);
    QFETCH(QString, password);

    const QJsonObject parsed = QJsonDocument::fromJson(encodeLoginBody({email, password})).object();
    QCOMPARE(parsed, (QJsonObject{{"email"_L1, email}, {"password"_L1, password}}));
}

QTEST_GUILESS_MAIN(TestLLURecords)
#include "tst_llurecords.moc"
