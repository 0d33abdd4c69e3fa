#include "TestSupport.h"
#include "client/LLURecords.h"
#include "support/DecodingError.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

using Decoder = void (*)(const QByteArray &);
template <typename T> void decode(const QByteArray &body)
{
    decodeLLUResponse<T>(body);
}

} // namespace

Q_DECLARE_METATYPE(Decoder)

class TestLLURecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullIsAbsent()
    {
        // Unknown and absent members are the simulated service's everyday answers (tst_librelinkupclient).
        const auto login =
            decodeLLUResponse<LLULoginData>(R"({"status":0,"data":{"user":null,"region":null}})");
        QVERIFY(login.data && !login.data->user && !login.data->region && !login.error);
        const auto graph = decodeLLUResponse<LLUGraphData>(
            R"({"status":0,"data":{"connection":null,"graphData":[{"Timestamp":"x","ValueInMgPerDl":55.5,"isLow":null}]}})");
        QVERIFY(!graph.data->connection && graph.data->graphData.value(0).valueInMgPerDl == 55.5 &&
                !graph.data->graphData.value(0).isLow);
        // The UTC time is kept as text; one that is not text is dropped, not a broken response.
        const auto factory = decodeLLUResponse<LLUGraphData>(
            R"({"status":0,"data":{"graphData":[{"Timestamp":"x","FactoryTimestamp":"y","ValueInMgPerDl":1},)"
            R"({"Timestamp":"x","FactoryTimestamp":5,"ValueInMgPerDl":1}]}})");
        QCOMPARE(factory.data->graphData.value(0).factoryTimestamp, std::optional(u"y"_s));
        QVERIFY(!factory.data->graphData.value(1).factoryTimestamp);
    }

    // Whole numbers, also written with a fraction of zero, up to the edges of 64 bits.
    void integerMembers()
    {
        const auto status = [](const QByteArray &number) {
            return decodeLLUResponse<LLULoginData>("{\"status\":" + number + "}").status;
        };
        QCOMPARE(status("-3.0"), qint64(-3));
        QCOMPARE(status("9223372036854775807"), std::numeric_limits<qint64>::max());
        QCOMPARE(status("-9223372036854775808"), std::numeric_limits<qint64>::min());
    }

    void brokenResponses_data()
    {
        columns<Decoder, QByteArray>("decoder", "body");
        // Between "The response " and the final full stop. Text that is not JSON at all is the client's row.
        QTest::addColumn<QString>("description");

        const Decoder login = decode<LLULoginData>;
        const Decoder graph = decode<LLUGraphData>;

        QTest::newRow("top-level array")
            << graph << "[]"_ba << u"has an array at the top level (expected an object)"_s;
        QTest::newRow("no status") << graph << R"({"data":{"graphData":[]}})"_ba
                                   << u"is missing \"status\" (expected an integer)"_s;
        QTest::newRow("status fraction")
            << login << R"({"status":2.5})"_ba
            << u"has the number 2.5 for \"status\" (expected a whole number that fits in 64 bits)"_s;
        QTest::newRow("status 2^63")
            << graph << R"({"status":9223372036854775808})"_ba
            << u"has the number 9223372036854776000 for \"status\" (expected a whole number that fits in 64 bits)"_s;
        QTest::newRow("value as text")
            << graph << R"({"status":0,"data":{"graphData":[{"Timestamp":"x","ValueInMgPerDl":"124"}]}})"_ba
            << u"has a string for \"data.graphData[0].ValueInMgPerDl\" (expected a number)"_s;
        QTest::newRow("user id null") << login << R"({"status":0,"data":{"user":{"id":null}}})"_ba
                                      << u"has null for \"data.user.id\" (expected a string)"_s;
    }

    void brokenResponses()
    {
        const auto [decoder, body, description] =
            fetch<Decoder, QByteArray, QString>("decoder", "body", "description");

        QCOMPARE(errorOf([&] { decoder(body); }), u"The response "_s + description + u'.');
    }

    // A JSON parser reads back exactly what was given; half a surrogate pair survives only as an escape.
    void loginBody()
    {
        const QString surrogates = QChar(0xDE00) + u"p"_s + QChar(0xD83D) + QChar(0xD83D) + QChar(0xDE00);
        for (const auto &[email, password] :
             {std::pair{u" J\u00f6rg@Example.de "_s, u"q\"u/o\\te\n\u0001\U0001F600"_s},
              std::pair{u"a@b.c"_s, surrogates}}) {
            const QJsonObject parsed = QJsonDocument::fromJson(encodeLoginBody({email, password})).object();
            QCOMPARE(parsed, (QJsonObject{{"email"_L1, email}, {"password"_L1, password}}));
        }
    }
};

QTEST_GUILESS_MAIN(TestLLURecords)
#include "tst_llurecords.moc"
