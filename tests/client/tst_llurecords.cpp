#include "DecodingError.h"
#include "LLURecords.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

// Runs a decoder that must fail and hands back its error.
template <typename T> std::optional<DecodingError> decodingFailure(const QByteArray &body)
{
    try {
        decodeLLUResponse<T>(body);
    } catch (const DecodingError &error) {
        return error;
    }
    return std::nullopt;
}

const QByteArray measurement = R"({"Timestamp":"1/5/2024 9:03:07 AM","ValueInMgPerDl":124,"TrendArrow":3,
    "FactoryTimestamp":"1/5/2024 8:03:07 AM","Value":124,"MeasurementColor":1,"type":1})";

} // namespace

class TestLLURecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loginSession();
    void loginRedirect();
    void connections();
    void graph();
    void envelopeWithoutData();
    void integerMembers_data();
    void integerMembers();
    void brokenResponses_data();
    void brokenResponses();
    void descriptionNamesMemberAndExpectation();
    void loginBody_data();
    void loginBody();
};

void TestLLURecords::loginSession()
{
    const auto response = decodeLLUResponse<LLULoginData>(R"({"status":0,"data":{
        "user":{"id":"abc","firstName":"Ann","country":"DE"},
        "authTicket":{"token":"tok","expires":1700000000,"duration":15552000000},
        "messages":{"unread":0}}})");
    QCOMPARE(response.status, 0);
    QVERIFY(response.data);
    QVERIFY(!response.data->redirect);
    QVERIFY(!response.data->region);
    QCOMPARE(response.data->user->id, u"abc"_s);
    QCOMPARE(response.data->authTicket->token, u"tok"_s);
    QCOMPARE(response.data->authTicket->expires, 1700000000.0);
    QVERIFY(!response.error);
}

void TestLLURecords::loginRedirect()
{
    // Null reads as absent for optional members.
    const auto response = decodeLLUResponse<LLULoginData>(
        R"({"status":0,"data":{"redirect":true,"region":"EU","authTicket":null}})");
    QCOMPARE(response.data->redirect, true);
    QCOMPARE(response.data->region, u"EU"_s);
    QVERIFY(!response.data->authTicket);
    QVERIFY(!response.data->user);
}

void TestLLURecords::connections()
{
    const auto response =
        decodeLLUResponse<QList<LLUConnection>>("{\"status\":0,\"data\":[{\"patientId\":\"p1\","
                                                "\"firstName\":\"Ann\",\"lastName\":null,"
                                                "\"targetLow\":70,\"glucoseMeasurement\":" +
                                                measurement + "},{\"patientId\":\"p2\"}]}");
    const QList<LLUConnection> &list = *response.data;
    QCOMPARE(list.size(), 2);
    QCOMPARE(list[0].patientId, u"p1"_s);
    QCOMPARE(list[0].firstName, u"Ann"_s);
    QVERIFY(!list[0].lastName);
    QCOMPARE(list[0].glucoseMeasurement->valueInMgPerDl, 124.0);
    QCOMPARE(list[0].glucoseMeasurement->trendArrow, 3);
    QVERIFY(!list[0].glucoseMeasurement->isHigh);
    QCOMPARE(list[1].patientId, u"p2"_s);
    QVERIFY(!list[1].glucoseMeasurement);

    const auto empty = decodeLLUResponse<QList<LLUConnection>>(R"({"status":0,"data":[]})");
    QVERIFY(empty.data && empty.data->isEmpty());
}

void TestLLURecords::graph()
{
    const auto response = decodeLLUResponse<LLUGraphData>(
        "{\"status\":0,\"data\":{\"connection\":{\"patientId\":\"p1\",\"glucoseMeasurement\":" + measurement +
        "},\"activeSensors\":[],\"graphData\":[" + measurement +
        R"(,{"Timestamp":"x","ValueInMgPerDl":55.5,"isHigh":false,"isLow":true}]}})");
    const LLUGraphData &graph = *response.data;
    QCOMPARE(graph.connection->patientId, u"p1"_s);
    QCOMPARE(graph.graphData.size(), 2);
    QCOMPARE(graph.graphData[1].timestamp, u"x"_s);
    QCOMPARE(graph.graphData[1].valueInMgPerDl, 55.5);
    QCOMPARE(graph.graphData[1].isLow, true);
    QVERIFY(!graph.graphData[1].trendArrow);
}

void TestLLURecords::envelopeWithoutData()
{
    const auto bare = decodeLLUResponse<LLUGraphData>(R"({"status":0})");
    QVERIFY(!bare.data);
    const auto failed =
        decodeLLUResponse<LLULoginData>(R"({"status":9,"data":null,"error":{"message":"Try later"}})");
    QCOMPARE(failed.status, 9);
    QVERIFY(!failed.data);
    QCOMPARE(failed.error->message, u"Try later"_s);
    const auto silent = decodeLLUResponse<LLULoginData>(R"({"status":9,"error":{}})");
    QVERIFY(silent.error && !silent.error->message);
}

void TestLLURecords::integerMembers_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("plain") << "4"_ba << qint64(4);
    QTest::newRow("negative") << "-1"_ba << qint64(-1);
    QTest::newRow("no fraction") << "3.0"_ba << qint64(3);
    QTest::newRow("exponent") << "1e2"_ba << qint64(100);
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
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<DecodingError::Kind>("kind");
    QTest::addColumn<QString>("path");

    using K = DecodingError::Kind;
    const QByteArray deep = QByteArray(10000, '[') + QByteArray(10000, ']');

    QTest::newRow("empty body") << QByteArray() << K::notJson << QString();
    QTest::newRow("html") << "<html>502 Bad Gateway</html>"_ba << K::notJson << QString();
    QTest::newRow("truncated") << R"({"status":0,"data":{"graphData":[)"_ba << K::notJson << QString();
    QTest::newRow("NaN text") << R"({"status":NaN})"_ba << K::notJson << QString();
    QTest::newRow("overflowing number") << R"({"status":1e400})"_ba << K::notJson << QString();
    QTest::newRow("10000 nested arrays") << deep << K::notJson << QString();
    QTest::newRow("top-level array") << "[]"_ba << K::wrongValue << QString();
    QTest::newRow("no status") << R"({"data":{"graphData":[]}})"_ba << K::missingMember << u"status"_s;
    QTest::newRow("status null") << R"({"status":null})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("status text") << R"({"status":"0"})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("status fraction") << R"({"status":0.5})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("status 2^63") << R"({"status":9223372036854775808})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("status 1e300") << R"({"status":1e300})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("status bool") << R"({"status":false})"_ba << K::wrongValue << u"status"_s;
    QTest::newRow("data array") << R"({"status":0,"data":[]})"_ba << K::wrongValue << u"data"_s;
    QTest::newRow("no graphData") << R"({"status":0,"data":{}})"_ba << K::missingMember
                                  << u"data.graphData"_s;
    QTest::newRow("graphData null") << R"({"status":0,"data":{"graphData":null}})"_ba << K::wrongValue
                                    << u"data.graphData"_s;
    QTest::newRow("graphData object")
        << R"({"status":0,"data":{"graphData":{}}})"_ba << K::wrongValue << u"data.graphData"_s;
    QTest::newRow("point not an object")
        << R"({"status":0,"data":{"graphData":[7]}})"_ba << K::wrongValue << u"data.graphData[0]"_s;
    QTest::newRow("third point without timestamp")
        << "{\"status\":0,\"data\":{\"graphData\":[" + measurement + "," + measurement +
               R"(,{"ValueInMgPerDl":100}]}})"
        << K::missingMember << u"data.graphData[2].Timestamp"_s;
    QTest::newRow("point without value") << R"({"status":0,"data":{"graphData":[{"Timestamp":"x"}]}})"_ba
                                         << K::missingMember << u"data.graphData[0].ValueInMgPerDl"_s;
    QTest::newRow("value as text")
        << R"({"status":0,"data":{"graphData":[{"Timestamp":"x","ValueInMgPerDl":"124"}]}})"_ba
        << K::wrongValue << u"data.graphData[0].ValueInMgPerDl"_s;
    QTest::newRow("timestamp as number")
        << R"({"status":0,"data":{"graphData":[{"Timestamp":1704445387,"ValueInMgPerDl":124}]}})"_ba
        << K::wrongValue << u"data.graphData[0].Timestamp"_s;
    QTest::newRow("trend fraction")
        << R"({"status":0,"data":{"graphData":[{"Timestamp":"x","ValueInMgPerDl":1,"TrendArrow":3.5}]}})"_ba
        << K::wrongValue << u"data.graphData[0].TrendArrow"_s;
    QTest::newRow("isHigh as text")
        << R"({"status":0,"data":{"graphData":[{"Timestamp":"x","ValueInMgPerDl":1,"isHigh":"true"}]}})"_ba
        << K::wrongValue << u"data.graphData[0].isHigh"_s;
    QTest::newRow("connection without patientId")
        << R"({"status":0,"data":{"connection":{"firstName":"Ann"},"graphData":[]}})"_ba << K::missingMember
        << u"data.connection.patientId"_s;
    QTest::newRow("connection measurement broken")
        << R"({"status":0,"data":{"connection":{"patientId":"p","glucoseMeasurement":{"Timestamp":"x"}},"graphData":[]}})"_ba
        << K::missingMember << u"data.connection.glucoseMeasurement.ValueInMgPerDl"_s;
    QTest::newRow("firstName number")
        << R"({"status":0,"data":{"connection":{"patientId":"p","firstName":5},"graphData":[]}})"_ba
        << K::wrongValue << u"data.connection.firstName"_s;
    QTest::newRow("error message number")
        << R"({"status":9,"error":{"message":42}})"_ba << K::wrongValue << u"error.message"_s;
    QTest::newRow("error is text") << R"({"status":9,"error":"Try later"})"_ba << K::wrongValue << u"error"_s;
}

void TestLLURecords::brokenResponses()
{
    QFETCH(QByteArray, body);
    QFETCH(DecodingError::Kind, kind);
    QFETCH(QString, path);

    const auto error = decodingFailure<LLUGraphData>(body);
    QVERIFY2(error, "decoding should have failed");
    QCOMPARE(error->kind(), kind);
    QCOMPARE(error->path(), path);
    QVERIFY(error->description().startsWith(u"The response "_s));
}

void TestLLURecords::descriptionNamesMemberAndExpectation()
{
    // Login-specific members: a ticket without token, a user without id.
    const auto noToken =
        decodingFailure<LLULoginData>(R"({"status":0,"data":{"authTicket":{},"user":{"id":"a"}}})");
    QCOMPARE(noToken->description(),
             u"The response is missing \"data.authTicket.token\" (expected a string)."_s);

    const auto noId = decodingFailure<LLULoginData>(R"({"status":0,"data":{"user":{"id":null}}})");
    QCOMPARE(noId->description(), u"The response has null for \"data.user.id\" (expected a string)."_s);

    const auto connection =
        decodingFailure<QList<LLUConnection>>(R"({"status":0,"data":[{"patientId":"a"},{}]})");
    QCOMPARE(connection->description(),
             u"The response is missing \"data[1].patientId\" (expected a string)."_s);

    const auto fraction = decodingFailure<LLULoginData>(R"({"status":2.5})");
    QCOMPARE(
        fraction->description(),
        u"The response has the number 2.5 for \"status\" (expected a whole number that fits in 64 bits)."_s);

    const auto notJson = decodingFailure<LLULoginData>("");
    QVERIFY(notJson->description().startsWith(u"The response is not valid JSON ("_s));
}

void TestLLURecords::loginBody_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("plain") << u"ann@example.com"_s << u"secret"_s
                           << R"({"email":"ann@example.com","password":"secret"})"_ba;
    QTest::newRow("escapes") << u" Ann@Example.com "_s << u"q\"u/o\\te\n"_s
                             << R"({"email":" Ann@Example.com ","password":"q\"u\/o\\te\n"})"_ba;
    QTest::newRow("control and non-ASCII") << u"j\u00f6rg@example.de"_s << u"\u0001\U0001F600"_s
                                           << "{\"email\":\"j\xc3\xb6rg@example.de\",\"password\":\"\\u0001"
                                              "\xf0\x9f\x98\x80\"}"_ba;
    QTest::newRow("empty") << QString() << QString() << R"({"email":"","password":""})"_ba;
}

void TestLLURecords::loginBody()
{
    QFETCH(QString, email);
    QFETCH(QString, password);
    QFETCH(QByteArray, expected);

    const QByteArray body = encodeLoginBody({email, password});
    QCOMPARE(body, expected);
    // Whatever the escaping, a JSON parser must read back exactly what was given.
    const QJsonObject parsed = QJsonDocument::fromJson(body).object();
    QCOMPARE(parsed.value("email"_L1).toString(), email);
    QCOMPARE(parsed.value("password"_L1).toString(), password);
}

QTEST_GUILESS_MAIN(TestLLURecords)
#include "tst_llurecords.moc"
