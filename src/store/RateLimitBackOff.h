#pragma once

#include <QByteArrayView>
#include <QDateTime>

#include <chrono>
#include <optional>

namespace glinta {

// How long to leave LibreLinkUp alone after it answered "too many requests": what its "Retry-After"
// says, otherwise 2, 4, 8, then 15 minutes, never more than 30 and never less than the usual poll
// interval. Polling on at the usual pace would only extend the lock-out. A good answer starts over.
class RateLimitBackOff
{
public:
    static constexpr std::chrono::seconds maximumWait{30 * 60};
    static constexpr std::chrono::seconds minimumWait{60};

    // A rate-limited answer at `now`, to a login when `login`: how long until the next try.
    std::chrono::seconds limited(std::optional<QByteArrayView> retryAfter, const QDateTime &now, bool login);
    // A good answer.
    void reset();

    // When the next try is due, while backing off.
    std::optional<QDateTime> nextTry() const { return m_nextTry; }
    // A login that was itself refused is not repeated before its next try is due.
    bool holdsLogin(const QDateTime &now) const { return m_loginLimited && m_nextTry && now < *m_nextTry; }

    // Delay seconds, or an HTTP date (IMF-fixdate) taken against `now`; nothing for anything else.
    static std::optional<std::chrono::seconds> parseRetryAfter(QByteArrayView value, const QDateTime &now);

private:
    int m_step = 0;
    bool m_loginLimited = false;
    std::optional<QDateTime> m_nextTry;
};

} // namespace glinta
