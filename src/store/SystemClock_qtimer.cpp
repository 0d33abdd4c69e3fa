#include "Clock.h"

#include <QTimer>

#include <qcoro/qcorosignal.h>

#include <algorithm>
#include <limits>
#include <utility>

using namespace std::chrono_literals;

namespace glinta {

namespace {

struct DeleteLater
{
    void operator()(QObject *object) const { object->deleteLater(); }
};

// Settled once, by whichever comes first. The sleeping coroutine then goes on from the event loop: never
// from inside cancel(), nor from inside the signal of the timer it is about to destroy.
class Wake : public QObject
{
    Q_OBJECT

public:
    void settle()
    {
        if (std::exchange(m_settled, true))
            return;
        QMetaObject::invokeMethod(this, &Wake::settled, Qt::QueuedConnection);
    }

Q_SIGNALS:
    void settled();

private:
    bool m_settled = false;
};

// QTimer counts in int milliseconds, so a longer pause runs in parts.
constexpr std::chrono::milliseconds longestTimer{std::numeric_limits<int>::max()};

// Touches nothing of the clock, which may be gone before the sleep ends.
QCoro::Task<void> timerPart(std::chrono::milliseconds part, CancellationToken cancel)
{
    const std::unique_ptr<Wake, DeleteLater> wake(new Wake);
    const auto registration = cancel.onCancel([w = wake.get()] { w->settle(); });
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, wake.get(), &Wake::settle);
    timer.start(part);
    co_await qCoro(wake.get(), &Wake::settled);
    cancel.throwIfCancelled();
}

QCoro::Task<void> timerSleep(std::chrono::milliseconds duration, CancellationToken cancel)
{
    do {
        const auto part = std::clamp(duration, 0ms, longestTimer);
        duration -= part;
        co_await timerPart(part, cancel);
    } while (duration > 0ms);
}

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

#include "SystemClock_qtimer.moc"
