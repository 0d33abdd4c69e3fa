#pragma once

#include <QByteArray>
#include <QLatin1StringView>
#include <QStringView>

#include <cstdint>

namespace glinta {

// Compact JSON text with keys in the order they are written. QJsonObject sorts its keys, and the files
// Glinta writes promise an order. Strings are escaped the way the widget side's own encoder does,
// forward slash included.
class JsonWriter
{
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(QLatin1StringView name);

    void value(QStringView text);
    // Shortest text that reads back as the same double; non-finite values are written as null, since JSON
    // has no spelling for them.
    void value(double number);
    void value(std::int64_t number);
    void value(bool flag);

    QByteArray takeBytes();

private:
    void separate();

    QByteArray m_bytes;
    bool m_needsComma = false;
};

} // namespace glinta
