#include "store/RateLimitBackOff.h"

#include <QLocale>
#include <QStringList>
#include <QTimeZone>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

std::chrono::seconds RateLimitBackOff::limited(std::optional<QByteArrayView> retryAfter, const QDateTime &now,
                                               bool login)
{
    static constexpr std::array<std::chrono::seconds, 4> steps{2min, 4min, 8min, 15min};
    std::chrono::seconds wait = steps[std::min<std::size_t>(m_step, steps.size() - 1)];
    if (retryAfter) {
        if (const auto asked = parseRetryAfter(*retryAfter, now))
            wait = *asked;
    }
    wait = std::clamp(wait, minimumWait, maximumWait);
    ++m_step;
    m_loginLimited = login;
    m_nextTry = now.addSecs(wait.count());
    return wait;
}

void RateLimitBackOff::reset()
{
    m_step = 0;
    m_loginLimited = false;
    m_nextTry.reset();
}

std::optional<std::chrono::seconds> RateLimitBackOff::parseRetryAfter(QByteArrayView value,
                                                                      const QDateTime &now)
{
    const QByteArrayView text = value.trimmed();
    if (text.isEmpty())
        return std::nullopt;
    if (std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        // Anything past ten digits is past the cap anyway.
        if (text.size() > 10)
            return maximumWait;
        return std::chrono::seconds(text.toLongLong());
    }
    // "Tue, 24 Nov 2026 14:05:00 GMT", read piece by piece: as a whole, Qt would read it in the local zone.
    const QStringList parts = QString::fromLatin1(text).split(u' ');
    if (parts.size() != 6 || parts[5] != u"GMT")
        return std::nullopt;
    const QLocale c = QLocale::c();
    const QDate date = c.toDate(parts.mid(0, 4).join(u' '), u"ddd, dd MMM yyyy"_s);
    const QTime time = c.toTime(parts[4], u"HH:mm:ss"_s);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return std::chrono::seconds(std::max<qint64>(now.secsTo(QDateTime(date, time, QTimeZone::utc())), 0));
}

} // namespace glinta
