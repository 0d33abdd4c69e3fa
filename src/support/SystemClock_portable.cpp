#include "support/Clock.h"
#include "support/TimerSleep.h"

namespace glinta {

namespace {

// Elsewhere we know of no timer that counts through system sleep, so a pause that spans one runs late.
class TimerClock final : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<void> sleep(std::chrono::milliseconds duration, CancellationToken cancel) override
    {
        return timerSleep(duration, std::move(cancel));
    }
};

} // namespace

std::unique_ptr<Clock> makeSystemClock()
{
    return std::make_unique<TimerClock>();
}

} // namespace glinta
