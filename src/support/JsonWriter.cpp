#include "support/JsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

namespace glinta {

namespace {

bool isUnpairedSurrogate(QStringView text, qsizetype i)
{
    const QChar c = text[i];
    if (c.isHighSurrogate())
        return i + 1 == text.size() || !text[i + 1].isLowSurrogate();
    if (c.isLowSurrogate())
        return i == 0 || !text[i - 1].isHighSurrogate();
    return false;
}

} // namespace

void JsonWriter::separate()
{
    if (m_needsComma)
        m_bytes += ',';
    m_needsComma = true;
}

void JsonWriter::beginObject()
{
    separate();
    m_bytes += '{';
    m_needsComma = false;
}

void JsonWriter::endObject()
{
    m_bytes += '}';
    m_needsComma = true;
}

void JsonWriter::beginArray()
{
    separate();
    m_bytes += '[';
    m_needsComma = false;
}

void JsonWriter::endArray()
{
    m_bytes += ']';
    m_needsComma = true;
}

void JsonWriter::key(QLatin1StringView name)
{
    value(QString(name));
    m_bytes += ':';
    m_needsComma = false;
}

void JsonWriter::value(QStringView text)
{
    separate();
    m_bytes += '"';
    // Plain runs are encoded whole so that surrogate pairs stay together.
    qsizetype runStart = 0;
    const auto flushRun = [&](qsizetype end) {
        if (end > runStart)
            m_bytes += text.sliced(runStart, end - runStart).toUtf8();
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        const char *escape = nullptr;
        char numeric[8];
        switch (c) {
        case u'"':
            escape = "\\\"";
            break;
        case u'\\':
            escape = "\\\\";
            break;
        case u'/':
            escape = "\\/";
            break;
        case u'\b':
            escape = "\\b";
            break;
        case u'\f':
            escape = "\\f";
            break;
        case u'\n':
            escape = "\\n";
            break;
        case u'\r':
            escape = "\\r";
            break;
        case u'\t':
            escape = "\\t";
            break;
        default:
            // A surrogate without its partner has no UTF-8 form (it would come out as U+FFFD); JSON's
            // escape keeps it, so text read from a response is written back unchanged.
            if (c < 0x20 || isUnpairedSurrogate(text, i)) {
                std::snprintf(numeric, sizeof numeric, "\\u%04x", static_cast<unsigned>(c));
                escape = numeric;
            }
        }
        if (escape) {
            flushRun(i);
            m_bytes += escape;
            runStart = i + 1;
        }
    }
    flushRun(text.size());
    m_bytes += '"';
}

void JsonWriter::value(double number)
{
    separate();
    if (!std::isfinite(number)) {
        m_bytes += "null";
        return;
    }
    char buffer[32];
    const auto result = std::to_chars(std::begin(buffer), std::end(buffer), number);
    m_bytes.append(buffer, result.ptr - buffer);
}

void JsonWriter::value(std::int64_t number)
{
    separate();
    m_bytes += QByteArray::number(static_cast<qlonglong>(number));
}

void JsonWriter::value(bool flag)
{
    separate();
    m_bytes += flag ? "true" : "false";
}

QByteArray JsonWriter::takeBytes()
{
    m_needsComma = false;
    return std::exchange(m_bytes, {});
}

} // namespace glinta
