#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

// The LibreLinkUp service's JSON records. Members not listed here are ignored; a record that breaks the
// presence or type rules fails the whole response with a DecodingError.
namespace glinta {

struct LLUErrorBody
{
    std::optional<QString> message;
};

struct LLUAuthTicket
{
    QString token;
    // Decoded for strictness, never used: an expired token shows up as HTTP 401.
    std::optional<double> expires;
};

struct LLUUser
{
    QString id;
};

struct LLULoginData
{
    std::optional<bool> redirect;
    std::optional<QString> region;
    std::optional<LLUAuthTicket> authTicket;
    std::optional<LLUUser> user;
};

struct LLUMeasurement
{
    // The phone's local wall-clock time, in whatever zone the sharer is.
    QString timestamp;
    // The same moment in UTC. Kept only when it is a string: it is an extra the record can do without.
    std::optional<QString> factoryTimestamp;
    double valueInMgPerDl = 0.0;
    std::optional<std::int64_t> trendArrow;
    std::optional<bool> isHigh;
    std::optional<bool> isLow;
};

struct LLUConnection
{
    QString patientId;
    std::optional<QString> firstName;
    std::optional<QString> lastName;
    std::optional<LLUMeasurement> glucoseMeasurement;
};

struct LLUGraphData
{
    std::optional<LLUConnection> connection;
    // In the service's order.
    QList<LLUMeasurement> graphData;
};

// The envelope of every response; T is LLULoginData, QList<LLUConnection> or LLUGraphData.
// The envelope status with which the service refuses an app version it no longer accepts.
inline constexpr std::int64_t appVersionRefusedStatus = 920;

template <typename T> struct LLUResponse
{
    std::int64_t status = 0;
    // Never decoded for a refused app version: its data is not the request's record.
    std::optional<T> data;
    std::optional<LLUErrorBody> error;
    // For a refused app version, the "data.minimumVersion" text when it is one.
    std::optional<QString> minimumVersion;
};

// Decodes a whole response body. Throws DecodingError.
template <typename T> LLUResponse<T> decodeLLUResponse(const QByteArray &body);

extern template LLUResponse<LLULoginData> decodeLLUResponse(const QByteArray &);
extern template LLUResponse<QList<LLUConnection>> decodeLLUResponse(const QByteArray &);
extern template LLUResponse<LLUGraphData> decodeLLUResponse(const QByteArray &);

// The login request's body.
struct LoginBody
{
    QString email;
    QString password;
};

// {"email":…,"password":…}, compact, in that order.
QByteArray encodeLoginBody(const LoginBody &body);

} // namespace glinta
