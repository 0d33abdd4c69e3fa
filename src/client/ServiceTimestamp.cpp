#include "client/ServiceTimestamp.h"

#include <QDate>
#include <QList>
#include <QTime>

#include <algorithm>

namespace glinta {

namespace {

class Scanner
{
public:
    explicit Scanner(QStringView text) : m_text(text) {}

    // Between `minDigits` and `maxDigits` ASCII digits.
    std::optional<int> number(int minDigits, int maxDigits)
    {
        int value = 0;
        int digits = 0;
        while (digits < maxDigits && m_pos < m_text.size()) {
            const char16_t c = m_text[m_pos].unicode();
            if (c < u'0' || c > u'9')
                break;
            value = value * 10 + (c - u'0');
            ++digits;
            ++m_pos;
        }
        if (digits < minDigits)
            return std::nullopt;
        return value;
    }

    bool literal(char16_t expected)
    {
        if (m_pos >= m_text.size() || m_text[m_pos].unicode() != expected)
            return false;
        ++m_pos;
        return true;
    }

    // "AM" or "PM", in either case; gives whether it was PM.
    std::optional<bool> meridiem()
    {
        if (m_text.size() - m_pos < 2)
            return std::nullopt;
        const char16_t first = m_text[m_pos].toUpper().unicode();
        const char16_t second = m_text[m_pos + 1].toUpper().unicode();
        if (second != u'M' || (first != u'A' && first != u'P'))
            return std::nullopt;
        m_pos += 2;
        return first == u'P';
    }

    bool atEnd() const { return m_pos == m_text.size(); }

private:
    QStringView m_text;
    qsizetype m_pos = 0;
};

struct WallClock
{
    QDate date;
    QTime time;
};

std::optional<WallClock> scan(QStringView text)
{
    Scanner scanner(text);
    const auto month = scanner.number(1, 2);
    if (!month || !scanner.literal(u'/'))
        return std::nullopt;
    const auto day = scanner.number(1, 2);
    if (!day || !scanner.literal(u'/'))
        return std::nullopt;
    const auto year = scanner.number(4, 4);
    if (!year || !scanner.literal(u' '))
        return std::nullopt;
    const auto hour = scanner.number(1, 2);
    if (!hour || !scanner.literal(u':'))
        return std::nullopt;
    const auto minute = scanner.number(2, 2);
    if (!minute || !scanner.literal(u':'))
        return std::nullopt;
    const auto second = scanner.number(2, 2);
    if (!second || !scanner.literal(u' '))
        return std::nullopt;
    const auto pm = scanner.meridiem();
    if (!pm || !scanner.atEnd())
        return std::nullopt;

    if (*hour < 1 || *hour > 12 || *year < 1)
        return std::nullopt;
    // QDate and QTime reject 2/29 of a common year, 13/1, 25:00 and the like.
    const QDate date(*year, *month, *day);
    const QTime time(*hour % 12 + (*pm ? 12 : 0), *minute, *second);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return WallClock{date, time};
}

// Wall-clock time in `zone` to an instant, decided from the offsets the zone actually uses around it
// rather than by QDateTime, whose handling of gaps and repeated hours varies between Qt versions.
std::optional<QDateTime> toInstant(const WallClock &wall, const QTimeZone &zone)
{
    const QDateTime asIfUtc(wall.date, wall.time, Qt::UTC);
    if (!zone.hasTransitions()) {
        return asIfUtc.addSecs(-zone.offsetFromUtc(asIfUtc));
    }

    // Offsets never exceed a day, so every offset that could apply is in use somewhere in this window.
    constexpr qint64 window = 26 * 3600;
    const QDateTime windowStart = asIfUtc.addSecs(-window);
    QList<int> offsets{zone.offsetFromUtc(windowStart)};
    for (const QTimeZone::OffsetData &transition : zone.transitions(windowStart, asIfUtc.addSecs(window)))
        offsets.append(transition.offsetFromUtc);

    std::optional<QDateTime> earliest;
    for (const int offset : std::as_const(offsets)) {
        const QDateTime candidate = asIfUtc.addSecs(-offset);
        if (zone.offsetFromUtc(candidate) != offset)
            continue;
        if (!earliest || candidate < *earliest)
            earliest = candidate;
    }
    return earliest;
}

std::optional<QDateTime> parseIn(QStringView text, const QTimeZone &zone)
{
    const auto wall = scan(text);
    if (!wall)
        return std::nullopt;
    return toInstant(*wall, zone);
}

} // namespace

const QTimeZone &serviceTimeZone()
{
    // A function-local static: initialised exactly once even when several threads parse at once.
    static const QTimeZone zone = QTimeZone::systemTimeZone();
    return zone;
}

std::optional<QDateTime> parseServiceTimestamp(QStringView text)
{
    return parseIn(text, serviceTimeZone());
}

std::optional<QDateTime> parseServiceTimestampUtc(QStringView text)
{
    return parseIn(text, QTimeZone::utc());
}

} // namespace glinta
