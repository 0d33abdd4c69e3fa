#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1StringView>
#include <QString>

#include <cstdint>
#include <optional>

// Strict readers for JSON documents: a required member must be present, not null and of its type; an
// optional one may be missing or null (both read as absent) but otherwise must still have its type. Every
// violation throws a DecodingError naming the member, so one bad element fails the whole document.
namespace glinta::json {

// Where a value sits in a document. Paths live on the stack while a document is decoded and become text
// only when something is wrong, so a well-formed document costs no string building.
class Path
{
public:
    // The root: `document` names the whole thing in messages ("response", "snapshot file").
    explicit Path(QLatin1StringView document) : m_document(document) {}

    Path member(QLatin1StringView key) const { return Path(this, key, -1); }
    Path element(qsizetype index) const { return Path(this, {}, index); }

    QString document() const;
    QString toString() const;

private:
    Path(const Path *parent, QLatin1StringView key, qsizetype index)
        : m_parent(parent), m_document(parent->m_document), m_key(key), m_index(index)
    {}

    const Path *m_parent = nullptr;
    QLatin1StringView m_document;
    QLatin1StringView m_key;
    qsizetype m_index = -1;
};

// Parses a whole document; anything but a JSON object or array at the top is a DecodingError.
QJsonValue parse(const QByteArray &bytes, const Path &root);

[[noreturn]] void throwWrongValue(const QJsonValue &value, const Path &at, const QString &expected);

QString toString(const QJsonValue &value, const Path &at);
double toNumber(const QJsonValue &value, const Path &at);
// A JSON number with no fractional part that fits a signed 64-bit integer.
std::int64_t toInteger(const QJsonValue &value, const Path &at);
bool toBool(const QJsonValue &value, const Path &at);
QJsonObject toObject(const QJsonValue &value, const Path &at);
QJsonArray toArray(const QJsonValue &value, const Path &at);

// The member's value, or a DecodingError when it is missing or null.
QJsonValue required(const QJsonObject &object, QLatin1StringView key, const Path &at,
                    const QString &expected);
// The member's value, or nothing when it is missing or null.
std::optional<QJsonValue> optional(const QJsonObject &object, QLatin1StringView key);

QString requiredString(const QJsonObject &object, QLatin1StringView key, const Path &at);
double requiredNumber(const QJsonObject &object, QLatin1StringView key, const Path &at);
std::int64_t requiredInteger(const QJsonObject &object, QLatin1StringView key, const Path &at);
bool requiredBool(const QJsonObject &object, QLatin1StringView key, const Path &at);
QJsonArray requiredArray(const QJsonObject &object, QLatin1StringView key, const Path &at);

std::optional<QString> optionalString(const QJsonObject &object, QLatin1StringView key, const Path &at);
std::optional<double> optionalNumber(const QJsonObject &object, QLatin1StringView key, const Path &at);
std::optional<std::int64_t> optionalInteger(const QJsonObject &object, QLatin1StringView key, const Path &at);
std::optional<bool> optionalBool(const QJsonObject &object, QLatin1StringView key, const Path &at);

} // namespace glinta::json
