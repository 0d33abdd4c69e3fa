#include "client/LLURecords.h"

#include "support/JsonDecoding.h"
#include "support/JsonWriter.h"

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

using json::Path;

template <typename T> T decodeData(const QJsonValue &value, const Path &at);

LLUErrorBody decodeErrorBody(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    return {json::optionalString(object, "message"_L1, at)};
}

LLUAuthTicket decodeAuthTicket(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    LLUAuthTicket ticket;
    ticket.token = json::requiredString(object, "token"_L1, at);
    ticket.expires = json::optionalNumber(object, "expires"_L1, at);
    return ticket;
}

LLUUser decodeUser(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    return {json::requiredString(object, "id"_L1, at)};
}

LLUMeasurement decodeMeasurement(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    LLUMeasurement measurement;
    measurement.timestamp = json::requiredString(object, "Timestamp"_L1, at);
    if (const QJsonValue factory = object.value("FactoryTimestamp"_L1); factory.isString())
        measurement.factoryTimestamp = factory.toString();
    measurement.valueInMgPerDl = json::requiredNumber(object, "ValueInMgPerDl"_L1, at);
    measurement.trendArrow = json::optionalInteger(object, "TrendArrow"_L1, at);
    measurement.isHigh = json::optionalBool(object, "isHigh"_L1, at);
    measurement.isLow = json::optionalBool(object, "isLow"_L1, at);
    return measurement;
}

LLUConnection decodeConnection(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    LLUConnection connection;
    connection.patientId = json::requiredString(object, "patientId"_L1, at);
    connection.firstName = json::optionalString(object, "firstName"_L1, at);
    connection.lastName = json::optionalString(object, "lastName"_L1, at);
    if (const auto measurement = json::optional(object, "glucoseMeasurement"_L1))
        connection.glucoseMeasurement = decodeMeasurement(*measurement, at.member("glucoseMeasurement"_L1));
    return connection;
}

template <> LLULoginData decodeData(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    LLULoginData data;
    data.redirect = json::optionalBool(object, "redirect"_L1, at);
    data.region = json::optionalString(object, "region"_L1, at);
    if (const auto ticket = json::optional(object, "authTicket"_L1))
        data.authTicket = decodeAuthTicket(*ticket, at.member("authTicket"_L1));
    if (const auto user = json::optional(object, "user"_L1))
        data.user = decodeUser(*user, at.member("user"_L1));
    return data;
}

template <> QList<LLUConnection> decodeData(const QJsonValue &value, const Path &at)
{
    const QJsonArray array = json::toArray(value, at);
    QList<LLUConnection> connections;
    connections.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i)
        connections.append(decodeConnection(array.at(i), at.element(i)));
    return connections;
}

template <> LLUGraphData decodeData(const QJsonValue &value, const Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    LLUGraphData data;
    if (const auto connection = json::optional(object, "connection"_L1))
        data.connection = decodeConnection(*connection, at.member("connection"_L1));
    const Path graphPath = at.member("graphData"_L1);
    const QJsonArray points = json::requiredArray(object, "graphData"_L1, at);
    data.graphData.reserve(points.size());
    for (qsizetype i = 0; i < points.size(); ++i)
        data.graphData.append(decodeMeasurement(points.at(i), graphPath.element(i)));
    return data;
}

} // namespace

template <typename T> LLUResponse<T> decodeLLUResponse(const QByteArray &body)
{
    const Path root("response"_L1);
    const QJsonObject object = json::toObject(json::parse(body, root), root);
    LLUResponse<T> response;
    response.status = json::requiredInteger(object, "status"_L1, root);
    const auto data = json::optional(object, "data"_L1);
    if (response.status == appVersionRefusedStatus) {
        if (const QJsonValue version = data.value_or(QJsonValue()).toObject().value("minimumVersion"_L1);
            version.isString())
            response.minimumVersion = version.toString();
    } else if (data) {
        response.data = decodeData<T>(*data, root.member("data"_L1));
    }
    if (const auto error = json::optional(object, "error"_L1))
        response.error = decodeErrorBody(*error, root.member("error"_L1));
    return response;
}

template LLUResponse<LLULoginData> decodeLLUResponse(const QByteArray &);
template LLUResponse<QList<LLUConnection>> decodeLLUResponse(const QByteArray &);
template LLUResponse<LLUGraphData> decodeLLUResponse(const QByteArray &);

QByteArray encodeLoginBody(const LoginBody &body)
{
    JsonWriter writer;
    writer.beginObject();
    writer.key("email"_L1);
    writer.value(body.email);
    writer.key("password"_L1);
    writer.value(body.password);
    writer.endObject();
    return writer.takeBytes();
}

} // namespace glinta
