#include "support/JsonDecoding.h"

#include "support/DecodingError.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QList>
#include <QLocale>
#include <QVariant>

#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta::json {

namespace {

const QString aString = u"a string"_s;
const QString aNumber = u"a number"_s;
const QString anInteger = u"an integer"_s;
const QString aBoolean = u"true or false"_s;
const QString anObject = u"an object"_s;
const QString anArray = u"an array"_s;

constexpr double int64Bound = 9223372036854775808.0; // 2^63

// What a value is, for messages. Strings are not quoted back: they come from the server and may be long
// or hostile, and the message ends up on screen.
QString describe(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return value.toBool() ? u"true"_s : u"false"_s;
    case QJsonValue::Double:
        return u"the number "_s + QString::number(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    case QJsonValue::String:
        return aString;
    case QJsonValue::Array:
        return anArray;
    case QJsonValue::Object:
        return anObject;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

} // namespace

QString Path::document() const
{
    return QString(m_document);
}

QString Path::toString() const
{
    QList<const Path *> chain;
    for (const Path *p = this; p->m_parent; p = p->m_parent)
        chain.prepend(p);
    QString text;
    for (const Path *p : chain) {
        if (p->m_index >= 0) {
            text += u'[' + QString::number(p->m_index) + u']';
        } else {
            if (!text.isEmpty())
                text += u'.';
            text += p->m_key;
        }
    }
    return text;
}

QJsonValue parse(const QByteArray &bytes, const Path &root)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        throw DecodingError::notJson(root.document(),
                                     error.errorString() + u" at byte "_s + QString::number(error.offset));
    }
    if (document.isArray())
        return document.array();
    return document.object();
}

void throwWrongValue(const QJsonValue &value, const Path &at, const QString &expected)
{
    throw DecodingError::wrongValue(at.document(), at.toString(), describe(value), expected);
}

QString toString(const QJsonValue &value, const Path &at)
{
    if (!value.isString())
        throwWrongValue(value, at, aString);
    return value.toString();
}

double toNumber(const QJsonValue &value, const Path &at)
{
    if (!value.isDouble())
        throwWrongValue(value, at, aNumber);
    return value.toDouble();
}

std::int64_t toInteger(const QJsonValue &value, const Path &at)
{
    if (!value.isDouble())
        throwWrongValue(value, at, anInteger);
    // The parser keeps integers that fit 64 bits as integers; only those it had to store as doubles
    // (fractions, exponents, huge values) need checking.
    const QVariant variant = value.toVariant();
    if (variant.typeId() == QMetaType::LongLong)
        return variant.toLongLong();
    const double number = value.toDouble();
    if (!std::isfinite(number) || std::trunc(number) != number || number < -int64Bound ||
        number >= int64Bound)
        throwWrongValue(value, at, u"a whole number that fits in 64 bits"_s);
    return static_cast<std::int64_t>(number);
}

bool toBool(const QJsonValue &value, const Path &at)
{
    if (!value.isBool())
        throwWrongValue(value, at, aBoolean);
    return value.toBool();
}

QJsonObject toObject(const QJsonValue &value, const Path &at)
{
    if (!value.isObject())
        throwWrongValue(value, at, anObject);
    return value.toObject();
}

QJsonArray toArray(const QJsonValue &value, const Path &at)
{
    if (!value.isArray())
        throwWrongValue(value, at, anArray);
    return value.toArray();
}

QJsonValue required(const QJsonObject &object, QLatin1StringView key, const Path &at, const QString &expected)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        throw DecodingError::missingMember(at.document(), at.member(key).toString(), expected);
    if (value.isNull())
        throwWrongValue(value, at.member(key), expected);
    return value;
}

std::optional<QJsonValue> optional(const QJsonObject &object, QLatin1StringView key)
{
    QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    return value;
}

QString requiredString(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    return toString(required(object, key, at, aString), at.member(key));
}

double requiredNumber(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    return toNumber(required(object, key, at, aNumber), at.member(key));
}

std::int64_t requiredInteger(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    return toInteger(required(object, key, at, anInteger), at.member(key));
}

bool requiredBool(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    return toBool(required(object, key, at, aBoolean), at.member(key));
}

QJsonArray requiredArray(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    return toArray(required(object, key, at, anArray), at.member(key));
}

std::optional<QString> optionalString(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    if (const auto value = optional(object, key))
        return toString(*value, at.member(key));
    return std::nullopt;
}

std::optional<double> optionalNumber(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    if (const auto value = optional(object, key))
        return toNumber(*value, at.member(key));
    return std::nullopt;
}

std::optional<std::int64_t> optionalInteger(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    if (const auto value = optional(object, key))
        return toInteger(*value, at.member(key));
    return std::nullopt;
}

std::optional<bool> optionalBool(const QJsonObject &object, QLatin1StringView key, const Path &at)
{
    if (const auto value = optional(object, key))
        return toBool(*value, at.member(key));
    return std::nullopt;
}

} // namespace glinta::json
