#include "client/AppVersion.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace glinta {

AppVersion AppVersion::builtIn()
{
    return AppVersion({4, 16, 0});
}

std::optional<AppVersion> AppVersion::parse(QStringView text)
{
    const QList<QStringView> pieces = text.split(u'.');
    if (pieces.size() < 2 || pieces.size() > 4)
        return std::nullopt;
    QList<int> parts;
    for (const QStringView piece : pieces) {
        if (piece.isEmpty() || piece.size() > 6)
            return std::nullopt;
        int value = 0;
        for (const QChar c : piece) {
            if (c < u'0' || c > u'9')
                return std::nullopt;
            value = value * 10 + (c.unicode() - u'0');
        }
        parts.append(value);
    }
    return AppVersion(std::move(parts));
}

QString AppVersion::toString() const
{
    QStringList pieces;
    for (const int part : m_parts)
        pieces.append(QString::number(part));
    return pieces.join(u'.');
}

std::strong_ordering operator<=>(const AppVersion &a, const AppVersion &b)
{
    const qsizetype count = std::max(a.m_parts.size(), b.m_parts.size());
    for (qsizetype i = 0; i < count; ++i) {
        if (const auto order = a.m_parts.value(i) <=> b.m_parts.value(i); order != 0)
            return order;
    }
    return std::strong_ordering::equal;
}

} // namespace glinta
